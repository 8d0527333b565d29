// Request log of the device simulator.
#include "requestlog.h"

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
    m_file.write(line.toUtf8() + '\n');
    m_file.flush();
}
