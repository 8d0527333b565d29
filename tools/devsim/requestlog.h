// Request log of the device simulator: one line per event, each starting with
// its local date and time to the millisecond, appended to a file (or stderr)
// and flushed at once so tests can read it while it runs.
#pragma once

#include <QFile>
#include <QString>

class RequestLog
{
public:
    // An empty path logs to stderr.
    bool open(const QString &path, QString &error);
    void write(const QString &line);

private:
    QFile m_file;
};
