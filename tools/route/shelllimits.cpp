// Range table and locale-proof number writing.
#include "shelllimits.h"

#include <cmath>

#include "gpsranges.h"

namespace {

constexpr Range range(const char *name, const GpsRanges::Range &limits, int decimals)
{
    return {name, limits.lower, limits.upper, limits.upperIncluded, decimals};
}

// In the order of Coordinate.
const Range Ranges[] = {
    range("latitude", GpsRanges::Latitude, 7),
    range("longitude", GpsRanges::Longitude, 7),
    range("altitude", GpsRanges::Altitude, 2),
    range("bearing", GpsRanges::Bearing, 0),
    range("accuracy", GpsRanges::Accuracy, 1),
};

} // namespace

const Range &rangeOf(Coordinate coordinate)
{
    return Ranges[static_cast<int>(coordinate)];
}

bool inRange(Coordinate coordinate, double value)
{
    const Range &range = rangeOf(coordinate);
    return value >= range.lower && (range.upperIncluded ? value <= range.upper : value < range.upper);
}

QString rangeText(Coordinate coordinate)
{
    const Range &range = rangeOf(coordinate);
    return QStringLiteral("[%1; %2%3").arg(range.lower).arg(range.upper).arg(range.upperIncluded ? ']' : ')');
}

QString fitPoint(TrackPoint &point)
{
    if (point.longitude == rangeOf(Coordinate::Longitude).upper)
        point.longitude = rangeOf(Coordinate::Longitude).lower;
    const std::pair<Coordinate, std::optional<double>> values[] = {
        {Coordinate::Latitude, point.latitude},
        {Coordinate::Longitude, point.longitude},
        {Coordinate::Altitude, point.altitude},
    };
    for (const auto &[coordinate, value] : values) {
        if (value && !inRange(coordinate, *value))
            return lineError(point.line, QStringLiteral("%1 %2 is outside %3")
                                             .arg(rangeOf(coordinate).name)
                                             .arg(*value, 0, 'g', 10)
                                             .arg(rangeText(coordinate)));
    }
    return {};
}

QString shellNumber(Coordinate coordinate, double value)
{
    const Range &range = rangeOf(coordinate);
    int decimals = range.decimals;
    const double scale = std::pow(10.0, decimals);
    qint64 scaled = std::llround(value * scale);
    // Rounding must not reach an excluded upper bound (89.99999999 is not 90).
    const qint64 upper = std::llround(range.upper * scale);
    if (!range.upperIncluded && scaled >= upper)
        scaled = upper - 1;
    while (decimals > 0 && scaled % 10 == 0) {
        scaled /= 10;
        --decimals;
    }
    return decimals == 0 ? QString::number(scaled) : QStringLiteral("%1e-%2").arg(scaled).arg(decimals);
}
