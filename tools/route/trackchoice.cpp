// Choice of a track and segment, and the untimed segments of a timed file.
#include "trackchoice.h"

#include <algorithm>

namespace {

// 2 "Evening run", or 2 for a track without a name: what a user may give to --track.
QString trackId(const Track &track, int index)
{
    const QString &name = track.trackNames.value(index);
    return name.isEmpty() ? QString::number(index + 1) : QStringLiteral("%1 \"%2\"").arg(index + 1).arg(name);
}

QString trackLabel(const Track &track, int index)
{
    return QStringLiteral("track ") + trackId(track, index);
}

QString trackList(const Track &track)
{
    QStringList ids;
    for (int i = 0; i < track.trackNames.size(); ++i)
        ids << trackId(track, i);
    return ids.join(QStringLiteral(", "));
}

// How many segments each track has, by track index.
QVector<int> segmentCounts(const Track &track)
{
    QVector<int> counts(track.trackNames.size(), 0);
    for (const TrackPoint &point : track.points) {
        if (point.track >= 0 && point.track < counts.size())
            counts[point.track] = std::max(counts[point.track], point.segment + 1);
    }
    return counts;
}

void keepOnly(Track &track, int index, std::optional<int> segment)
{
    track.points.erase(std::remove_if(track.points.begin(), track.points.end(),
                                      [&](const TrackPoint &point) {
                                          return point.track != index || (segment && point.segment != *segment);
                                      }),
                       track.points.end());
}

} // namespace

QString choosePart(Track &track, const TrackChoice &choice)
{
    int index = -1;
    if (!choice.track.isEmpty()) {
        bool number = false;
        const int given = choice.track.toInt(&number);
        index = number && given >= 1 && given <= track.trackNames.size() ? given - 1
                                                                           : track.trackNames.indexOf(choice.track);
        if (index < 0)
            return QStringLiteral("no track \"%1\" in the file; its tracks: %2").arg(choice.track, trackList(track));
    } else if (choice.segment) {
        if (track.trackNames.size() != 1)
            return QStringLiteral("--segment needs --track: the file has %1 tracks: %2")
                .arg(track.trackNames.size())
                .arg(trackList(track));
        index = 0;
    }
    if (index < 0)
        return {};
    const int segments = segmentCounts(track).value(index);
    if (choice.segment && *choice.segment > segments)
        return QStringLiteral("%1 has %2 segment(s), not %3")
            .arg(trackLabel(track, index))
            .arg(segments)
            .arg(*choice.segment);
    keepOnly(track, index, choice.segment ? std::optional<int>(*choice.segment - 1) : std::nullopt);
    return {};
}

QStringList dropUntimedSegments(Track &track)
{
    QVector<TrackPoint> timed;
    QStringList notes;
    const QVector<int> segments = segmentCounts(track);
    for (int first = 0, end = 0; first < track.points.size(); first = end) {
        const TrackPoint &start = track.points[first];
        end = segmentEnd(track.points, first);
        if (std::any_of(track.points.cbegin() + first, track.points.cbegin() + end, hasTime)) {
            timed.append(track.points.mid(first, end - first));
            continue;
        }
        const QString label = trackLabel(track, start.track);
        const QString part = segments.value(start.track) > 1
                                 ? QStringLiteral("segment %1 of %2").arg(start.segment + 1).arg(label)
                                 : label;
        notes << QStringLiteral("skipped %1: it has no times (play it with --speed KMH)").arg(part);
    }
    if (timed.isEmpty())
        return {};
    track.points = timed;
    return notes;
}
