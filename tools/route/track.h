// A track file as the readers hand it over: points in file order, each with the
// line of the file it came from so later checks can name it, and the track and
// segment of the file it belongs to.
#pragma once

#include <QString>
#include <QStringList>
#include <QVector>
#include <QXmlStreamReader>
#include <optional>

struct TrackPoint
{
    double latitude = 0;
    double longitude = 0;
    std::optional<double> altitude;
    std::optional<double> time; // seconds on any fixed origin; only differences matter
    qint64 line = 0;
    int track = 0;   // index into Track::trackNames
    int segment = 0; // from 0 within its track
};

struct Track
{
    QVector<TrackPoint> points;
    QStringList trackNames; // one per track of the file, empty when unnamed
    int skippedLines = 0;   // NMEA lines that are not valid sentences
    qint64 firstSkippedLine = 0;
};

// What a reader returns: a track, or an error that names the line when it can.
struct ReadResult
{
    Track track;
    QString error;
};

inline bool hasTime(const TrackPoint &point)
{
    return point.time.has_value();
}

// The end of the run of points from `first` on that share its track and segment.
inline int segmentEnd(const QVector<TrackPoint> &points, int first)
{
    int end = first + 1;
    while (end < points.size() && points[end].track == points[first].track
           && points[end].segment == points[first].segment)
        ++end;
    return end;
}

inline QString lineError(qint64 line, const QString &message)
{
    return QStringLiteral("line %1: %2").arg(line).arg(message);
}

inline ReadResult readFailure(qint64 line, const QString &message)
{
    return {{}, lineError(line, message)};
}

// The reader's own error, worded the same for both XML formats.
inline ReadResult xmlFailure(const QXmlStreamReader &xml)
{
    return readFailure(xml.lineNumber(), QStringLiteral("broken XML: %1").arg(xml.errorString()));
}
