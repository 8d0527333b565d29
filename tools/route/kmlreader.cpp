// KML reader. A LineString's coordinates are "lon,lat[,alt]" tuples separated
// by blanks; a gx:Track pairs its when elements with its gx:coord elements
// ("lon lat alt") in order. A tracker writes an empty gx:coord, with its when,
// where recording paused: that sample has no position and is left out, and an
// empty when is a sample without a time.
#include "kmlreader.h"

#include "textvalues.h"

#include <QRegularExpression>

namespace {

// Fills a point from the numbers of one tuple: longitude, latitude, altitude.
bool fillPoint(TrackPoint &point, const QStringList &numbers)
{
    if (numbers.size() < 2 || numbers.size() > 3)
        return false;
    QVector<double> values;
    for (const QString &number : numbers) {
        const auto value = finiteNumber(number);
        if (!value)
            return false;
        values.append(*value);
    }
    point.longitude = values[0];
    point.latitude = values[1];
    if (values.size() == 3)
        point.altitude = values[2];
    return true;
}

// The tuples of a coordinates element whose text began on the given line.
QString readCoordinates(const QString &text, qint64 firstLine, QVector<TrackPoint> &points)
{
    static const QRegularExpression tuple(QStringLiteral("[^\\s]+"));
    for (auto match = tuple.globalMatch(text); match.hasNext();) {
        const QRegularExpressionMatch found = match.next();
        TrackPoint point;
        point.line = firstLine + text.leftRef(found.capturedStart()).count('\n');
        if (!fillPoint(point, found.captured().split(',')))
            return lineError(point.line, QStringLiteral("coordinates \"%1\" are not lon,lat[,alt]").arg(found.captured()));
        points.append(point);
    }
    return {};
}

// Reads the gx:Track whose start tag is current, up to its end tag.
QString readGxTrack(QXmlStreamReader &xml, QVector<TrackPoint> &points)
{
    const qint64 trackLine = xml.lineNumber();
    QVector<std::optional<double>> times;
    QVector<std::optional<TrackPoint>> samples; // empty where the sample has no position
    while (xml.readNextStartElement()) {
        const qint64 line = xml.lineNumber();
        if (xml.name() == QLatin1String("when")) {
            const QString text = xml.readElementText();
            times.append(text.trimmed().isEmpty() ? std::nullopt : isoTime(text));
            if (!times.last() && !text.trimmed().isEmpty() && !xml.hasError())
                return lineError(line, QStringLiteral("time \"%1\" is not an ISO 8601 date and time").arg(text));
        } else if (xml.name() == QLatin1String("coord")) {
            const QString text = xml.readElementText();
            const QStringList numbers = text.split(' ', Qt::SkipEmptyParts);
            TrackPoint point;
            point.line = line;
            if (!numbers.isEmpty() && !fillPoint(point, numbers) && !xml.hasError())
                return lineError(line, QStringLiteral("gx:coord \"%1\" is not lon lat alt").arg(text));
            samples.append(numbers.isEmpty() ? std::nullopt : std::optional<TrackPoint>(point));
        } else {
            xml.skipCurrentElement();
        }
    }
    if (xml.hasError())
        return {};
    if (!times.isEmpty() && times.size() != samples.size())
        return lineError(trackLine, QStringLiteral("gx:Track has %1 when but %2 gx:coord elements")
                                        .arg(times.size())
                                        .arg(samples.size()));
    for (int i = 0; i < samples.size(); ++i) {
        if (!samples[i])
            continue;
        if (!times.isEmpty())
            samples[i]->time = times[i];
        points.append(*samples[i]);
    }
    return {};
}

} // namespace

ReadResult readKml(QIODevice &device)
{
    QXmlStreamReader xml(&device);
    ReadResult result;
    Track &track = result.track;
    QStringList open;         // elements open around the current one
    int placemarkTrack = -1;  // the track of the open Placemark, once it has a path
    QString placemarkName;
    int segment = 0;
    // Gives the points read since `first` the current track and segment.
    const auto place = [&track, &segment](int first) {
        for (int i = first; i < track.points.size(); ++i) {
            track.points[i].track = track.trackNames.size() - 1;
            track.points[i].segment = segment;
        }
    };
    while (!xml.atEnd()) {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (token == QXmlStreamReader::EndElement && !open.isEmpty()) {
            if (open.takeLast() == QLatin1String("Placemark"))
                placemarkTrack = -1;
        }
        if (token != QXmlStreamReader::StartElement)
            continue;
        const QStringRef name = xml.name();
        const QString parent = open.isEmpty() ? QString() : open.last();
        QString error;
        if (name == QLatin1String("name") && parent == QLatin1String("Placemark")) {
            placemarkName = xml.readElementText().simplified();
            if (placemarkTrack >= 0)
                track.trackNames[placemarkTrack] = placemarkName;
            continue;
        }
        if (name == QLatin1String("coordinates") && parent == QLatin1String("LineString")) {
            const qint64 line = xml.lineNumber();
            const QString text = xml.readElementText();
            const int first = track.points.size();
            if (!xml.hasError())
                error = readCoordinates(text, line, track.points);
            place(first);
            if (!error.isEmpty())
                return {{}, error};
            continue;
        }
        if (name == QLatin1String("Placemark")) {
            placemarkName.clear();
        } else if (name == QLatin1String("LineString") || name == QLatin1String("Track")) {
            // The first path of a Placemark starts its track; a path outside
            // any Placemark is a track of its own.
            const bool inPlacemark = open.contains(QLatin1String("Placemark"));
            if (!inPlacemark || placemarkTrack < 0) {
                track.trackNames.append(inPlacemark ? placemarkName : QString());
                if (inPlacemark)
                    placemarkTrack = track.trackNames.size() - 1;
                segment = -1;
            }
            ++segment;
        }
        if (name == QLatin1String("Track")) {
            const int first = track.points.size();
            error = readGxTrack(xml, track.points);
            place(first);
            if (!error.isEmpty())
                return {{}, error};
            continue;
        }
        open.append(name.toString());
    }
    if (xml.hasError())
        return xmlFailure(xml);
    return result;
}
