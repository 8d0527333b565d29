// Command file writer: the fix of each stop, its heading towards the next stop,
// and a pause for the time to it.
#include "commandwriter.h"

#include "geodesy.h"
#include "shelllimits.h"

#include <climits>
#include <cmath>

namespace {

// The shell sleeps seconds x 1000 milliseconds in 32-bit arithmetic.
constexpr qint64 LongestPause = INT_MAX / 1000;
constexpr double FullTurn = 360;

QString position(const TrackPoint &point)
{
    return shellNumber(Coordinate::Latitude, point.latitude) + ' '
           + shellNumber(Coordinate::Longitude, point.longitude);
}

// 359.6 is North again, not 360.
double wholeDegrees(double bearing)
{
    return std::fmod(std::round(bearing), FullTurn);
}

// Heading of each stop towards the next stop at another position (as written);
// the stops at the end, and a route that never moves, keep the heading before.
QVector<double> headings(const QVector<TrackPoint> &points, const QVector<Stop> &stops)
{
    QVector<std::optional<double>> towardsNext(stops.size());
    for (int i = stops.size() - 2; i >= 0; --i) {
        const TrackPoint &here = points[stops[i].point];
        const TrackPoint &next = points[stops[i + 1].point];
        towardsNext[i] = position(here) == position(next) ? towardsNext[i + 1] : wholeDegrees(bearingDegrees(here, next));
    }
    QVector<double> result;
    double previous = 0;
    for (const auto &heading : towardsNext) {
        previous = heading.value_or(previous);
        result.append(previous);
    }
    return result;
}

} // namespace

QByteArray commandFile(const QVector<TrackPoint> &points, const QVector<Stop> &stops,
                       std::optional<double> accuracy)
{
    QString text = QStringLiteral("gps setstatus enabled\n");
    const QVector<double> bearings = headings(points, stops);
    for (int i = 0; i < stops.size(); ++i) {
        const TrackPoint &point = points[stops[i].point];
        text += QStringLiteral("gps setlatitude %1\n").arg(shellNumber(Coordinate::Latitude, point.latitude));
        text += QStringLiteral("gps setlongitude %1\n").arg(shellNumber(Coordinate::Longitude, point.longitude));
        if (point.altitude)
            text += QStringLiteral("gps setaltitude %1\n").arg(shellNumber(Coordinate::Altitude, *point.altitude));
        text += QStringLiteral("gps setbearing %1\n").arg(shellNumber(Coordinate::Bearing, bearings[i]));
        if (accuracy)
            text += QStringLiteral("gps setaccuracy %1\n").arg(shellNumber(Coordinate::Accuracy, *accuracy));
        if (i + 1 < stops.size()) {
            for (qint64 wait = stops[i + 1].second - stops[i].second; wait > 0; wait -= LongestPause)
                text += QStringLiteral("pause %1\n").arg(std::min(wait, LongestPause));
        }
    }
    return text.toUtf8();
}
