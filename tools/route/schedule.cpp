// Scheduling. Each point gets its exact time from the start, which is rounded
// to the second; a point that lands in the second of the point before it is
// dropped, except the ends of the track, which replace it. So every stop is
// played at its own rounded time and the whole route ends within half a
// second of its exact length.
#include "schedule.h"

#include "geodesy.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double SecondsPerHour = 3600;
constexpr double MetresPerKilometre = 1000;
// Going back to the start of the route between loops takes at least this.
constexpr double LoopGapSeconds = 1;
// Bounds that keep the arithmetic exact and the command file of a sane size.
constexpr double LongestRouteSeconds = 100.0 * 365 * 24 * 3600;
constexpr qint64 MostStops = 10000000;

// Exact seconds of each point from the first, before the rate; or an error.
QString exactTimes(const QVector<TrackPoint> &points, const Timing &timing, QVector<double> &times)
{
    if (timing.speedKmh) {
        const double metresPerSecond = *timing.speedKmh * MetresPerKilometre / SecondsPerHour;
        times.append(0);
        for (int i = 1; i < points.size(); ++i)
            times.append(times.last() + distanceMetres(points[i - 1], points[i]) / metresPerSecond);
        return {};
    }
    if (std::none_of(points.begin(), points.end(), [](const TrackPoint &p) { return p.time.has_value(); }))
        return QStringLiteral("the track has no times: give --speed KMH to pace it");
    for (const TrackPoint &point : points) {
        if (!point.time)
            return lineError(point.line, QStringLiteral("point without a time in a timed track: give --speed KMH to "
                                                        "pace the track by distance instead"));
        const double time = *point.time - *points.first().time;
        if (!times.isEmpty() && time < times.last())
            return lineError(point.line, QStringLiteral("time goes back from the point before"));
        times.append(time);
    }
    return {};
}

} // namespace

Schedule schedulePoints(const QVector<TrackPoint> &points, const Timing &timing)
{
    Schedule schedule;
    QVector<double> times;
    schedule.error = exactTimes(points, timing, times);
    if (!schedule.error.isEmpty())
        return schedule;
    for (double &time : times)
        time /= timing.rate;

    double gap = LoopGapSeconds;
    if (timing.speedKmh) {
        const double metresPerSecond = *timing.speedKmh * MetresPerKilometre / SecondsPerHour;
        gap = std::max(gap, distanceMetres(points.last(), points.first()) / metresPerSecond / timing.rate);
    }
    const double loopLength = times.last() + gap;
    if (timing.loops * loopLength > LongestRouteSeconds) {
        schedule.error = QStringLiteral("the route would last more than a century");
        return schedule;
    }
    if (qint64(timing.loops) * points.size() > MostStops) {
        schedule.error = QStringLiteral("more than %1 points to play").arg(MostStops);
        return schedule;
    }
    const int last = points.size() - 1;
    bool lastIsEnd = false; // whether the latest stop is a first or last point
    for (int loop = 0; loop < timing.loops; ++loop) {
        for (int i = 0; i <= last; ++i) {
            const qint64 second = std::llround(loop * loopLength + times[i]);
            const bool end = i == 0 || i == last;
            if (schedule.stops.isEmpty() || second > schedule.stops.last().second || (end && lastIsEnd)) {
                schedule.stops.append({i, second});
                lastIsEnd = end;
            } else if (end) {
                schedule.stops.last().point = i;
                lastIsEnd = true;
            }
        }
    }
    return schedule;
}
