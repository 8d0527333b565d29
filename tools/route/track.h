// A track as the readers hand it over: points in file order, each with the line
// of the file it came from so later checks can name it.
#pragma once

#include <QString>
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
};

struct Track
{
    QVector<TrackPoint> points;
    int badSentences = 0; // NMEA lines skipped for a bad checksum or bad fields
    qint64 firstBadLine = 0;
};

// What a reader returns: a track, or an error that names the line when it can.
struct ReadResult
{
    Track track;
    QString error;
};

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
