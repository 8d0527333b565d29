// Numbers and times as track files write them: always with a dot and ISO 8601,
// whatever the user's locale.
#pragma once

#include <QString>
#include <optional>

// A finite decimal number, or nothing ("nan", "inf" and junk are refused).
std::optional<double> finiteNumber(const QString &text);

// An ISO 8601 date and time in seconds since the epoch; no zone means UTC.
std::optional<double> isoTime(const QString &text);
