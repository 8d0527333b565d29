// Conversions of the text values found in track files.
#include "textvalues.h"

#include <QDateTime>
#include <cmath>

std::optional<double> finiteNumber(const QString &text)
{
    bool ok = false;
    const double value = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::optional<double> isoTime(const QString &text)
{
    QDateTime time = QDateTime::fromString(text.trimmed(), Qt::ISODateWithMs);
    if (!time.isValid())
        return std::nullopt;
    // A local time would shift with the host's daylight saving changes.
    if (time.timeSpec() == Qt::LocalTime)
        time.setTimeSpec(Qt::UTC);
    return time.toMSecsSinceEpoch() / 1000.0;
}
