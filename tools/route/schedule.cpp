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
// Going back to the start of the route between loops takes at least this, and
// so does going on to a segment recorded earlier than the one before.
constexpr double LoopGapSeconds = 1;
// Bounds that keep the arithmetic exact and the command file of a sane size.
constexpr double LongestRouteSeconds = 100.0 * 365 * 24 * 3600;
constexpr qint64 MostStops = 10000000;

// The own times of the points of one segment [first, end), which has at least
// one time. A point without a time lies, by distance along the segment,
// between its timed neighbours; one before the first or after the last timed
// point takes that point's time.
QVector<double> ownTimes(const QVector<TrackPoint> &points, int first, int end)
{
    const int count = end - first;
    QVector<double> along(count, 0); // metres from the segment's first point
    for (int i = 1; i < count; ++i)
        along[i] = along[i - 1] + distanceMetres(points[first + i - 1], points[first + i]);
    QVector<int> nextTimed(count + 1, -1);
    for (int i = count - 1; i >= 0; --i)
        nextTimed[i] = points[first + i].time ? i : nextTimed[i + 1];
    QVector<double> times(count);
    int before = -1;
    for (int i = 0; i < count; ++i) {
        const TrackPoint &point = points[first + i];
        const int after = nextTimed[i];
        if (point.time) {
            times[i] = *point.time;
            before = i;
        } else if (before < 0 || after < 0) {
            times[i] = before < 0 ? *points[first + after].time : times[before];
        } else {
            const double span = along[after] - along[before];
            const double share = span > 0 ? (along[i] - along[before]) / span : 0;
            times[i] = times[before] + share * (*points[first + after].time - times[before]);
        }
    }
    return times;
}

// Exact seconds of each point from the first, before the rate; or an error.
// Segments follow one another with their own times, and one that starts
// before the one before it ended follows it after LoopGapSeconds.
QString exactTimes(const QVector<TrackPoint> &points, const Timing &timing, QVector<double> &times)
{
    if (timing.speedKmh) {
        const double metresPerSecond = *timing.speedKmh * MetresPerKilometre / SecondsPerHour;
        times.append(0);
        for (int i = 1; i < points.size(); ++i)
            times.append(times.last() + distanceMetres(points[i - 1], points[i]) / metresPerSecond);
        return {};
    }
    if (std::none_of(points.begin(), points.end(), hasTime))
        return QStringLiteral("the track has no times: give --speed KMH to pace it");
    double previous = 0;
    for (int first = 0, end = 0; first < points.size(); first = end) {
        end = segmentEnd(points, first);
        if (std::none_of(points.begin() + first, points.begin() + end, hasTime))
            return lineError(points[first].line, QStringLiteral("segment without times in a timed track: give --speed "
                                                                "KMH to pace the track by distance instead"));
        const QVector<double> own = ownTimes(points, first, end);
        for (int i = first; i < end; ++i) {
            double step = times.isEmpty() ? 0 : own[i - first] - previous;
            if (step < 0 && i > first)
                return lineError(points[i].line, QStringLiteral("time goes back from the point before"));
            if (step < 0)
                step = LoopGapSeconds;
            times.append(times.isEmpty() ? 0 : times.last() + step);
            previous = own[i - first];
        }
    }
    return {};
}

// No pause between two points lasts longer than `longest`.
void capPauses(QVector<double> &times, double longest)
{
    double previous = times.first();
    for (int i = 1; i < times.size(); ++i) {
        const double original = times[i];
        times[i] = times[i - 1] + std::min(original - previous, longest);
        previous = original;
    }
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
    if (timing.maxPause)
        capPauses(times, *timing.maxPause);

    double gap = LoopGapSeconds;
    if (timing.speedKmh) {
        const double metresPerSecond = *timing.speedKmh * MetresPerKilometre / SecondsPerHour;
        gap = std::max(gap, distanceMetres(points.last(), points.first()) / metresPerSecond / timing.rate);
    }
    if (timing.maxPause)
        gap = std::min(gap, std::max(*timing.maxPause, LoopGapSeconds));
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
