// KML reader. A LineString's coordinates are "lon,lat[,alt]" tuples separated
// by blanks; a gx:Track pairs its when elements with its gx:coord elements
// ("lon lat alt") in order.
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
    QVector<TrackPoint> coordinates;
    while (xml.readNextStartElement()) {
        const qint64 line = xml.lineNumber();
        if (xml.name() == QLatin1String("when")) {
            const QString text = xml.readElementText();
            times.append(isoTime(text));
            if (!times.last() && !xml.hasError())
                return lineError(line, QStringLiteral("time \"%1\" is not an ISO 8601 date and time").arg(text));
        } else if (xml.name() == QLatin1String("coord")) {
            const QString text = xml.readElementText();
            TrackPoint point;
            point.line = line;
            if (!fillPoint(point, text.split(' ', Qt::SkipEmptyParts)) && !xml.hasError())
                return lineError(line, QStringLiteral("gx:coord \"%1\" is not lon lat alt").arg(text));
            coordinates.append(point);
        } else {
            xml.skipCurrentElement();
        }
    }
    if (xml.hasError())
        return {};
    if (!times.isEmpty() && times.size() != coordinates.size())
        return lineError(trackLine, QStringLiteral("gx:Track has %1 when but %2 gx:coord elements")
                                        .arg(times.size())
                                        .arg(coordinates.size()));
    for (int i = 0; i < times.size(); ++i)
        coordinates[i].time = times[i];
    points += coordinates;
    return {};
}

} // namespace

ReadResult readKml(QIODevice &device)
{
    QXmlStreamReader xml(&device);
    ReadResult result;
    int lineStrings = 0; // depth of open LineString elements
    while (!xml.atEnd()) {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (token == QXmlStreamReader::EndElement && xml.name() == QLatin1String("LineString"))
            --lineStrings;
        if (token != QXmlStreamReader::StartElement)
            continue;
        QString error;
        if (xml.name() == QLatin1String("LineString")) {
            ++lineStrings;
        } else if (xml.name() == QLatin1String("coordinates") && lineStrings > 0) {
            const qint64 line = xml.lineNumber();
            const QString text = xml.readElementText();
            if (!xml.hasError())
                error = readCoordinates(text, line, result.track.points);
        } else if (xml.name() == QLatin1String("Track")) {
            error = readGxTrack(xml, result.track.points);
        }
        if (!error.isEmpty())
            return {{}, error};
    }
    if (xml.hasError())
        return xmlFailure(xml);
    return result;
}
