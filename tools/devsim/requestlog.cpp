// Request log of the device simulator.
#include "requestlog.h"

#include <QDateTime>

#include <cstdio>

bool RequestLog::open(const QString &path, QString &error)
{
    if (path.isEmpty())
        return m_file.open(stderr, QIODevice::WriteOnly | QIODevice::Unbuffered);
    m_file.setFileName(path);
    if (m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
        return true;
    error = m_file.errorString();
    return false;
}

void RequestLog::write(const QString &line)
{
    // Local time with milliseconds, as in the shell's log, so the two can be matched.
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
    m_file.write((stamp + ' ' + line).toUtf8() + '\n');
    m_file.flush();
}
