// Logging of the process's levelled messages to a file (and to stderr on request).
#pragma once

#include <QString>

// Name of the log file, appended to the base data directory.
inline constexpr char LogFileName[] = "/korvex-shell.log";

// Opens (appends to) the log file and installs the message handler; callable
// again to re-open the file, e.g. after the cache was cleared.
void initLogging(const QString &path, bool quiet);
