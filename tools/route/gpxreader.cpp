// GPX reader. Elements are matched by local name, so both schema versions and
// files without a namespace read the same.
#include "gpxreader.h"

#include "textvalues.h"

namespace {

// Reads the point whose start tag is current, up to its end tag; an error
// names the line.
std::optional<TrackPoint> readPoint(QXmlStreamReader &xml, QString &error)
{
    TrackPoint point;
    point.line = xml.lineNumber();
    const QXmlStreamAttributes attributes = xml.attributes();
    const auto latitude = finiteNumber(attributes.value("lat").toString());
    const auto longitude = finiteNumber(attributes.value("lon").toString());
    if (!latitude || !longitude) {
        error = lineError(point.line, QStringLiteral("point without a valid lat and lon"));
        return std::nullopt;
    }
    point.latitude = *latitude;
    point.longitude = *longitude;
    while (xml.readNextStartElement()) {
        const qint64 line = xml.lineNumber();
        if (xml.name() == QLatin1String("ele")) {
            const QString text = xml.readElementText();
            point.altitude = finiteNumber(text);
            if (!point.altitude && !xml.hasError()) {
                error = lineError(line, QStringLiteral("elevation \"%1\" is not a number").arg(text));
                return std::nullopt;
            }
        } else if (xml.name() == QLatin1String("time")) {
            const QString text = xml.readElementText();
            point.time = isoTime(text);
            if (!point.time && !xml.hasError()) {
                error = lineError(line, QStringLiteral("time \"%1\" is not an ISO 8601 date and time").arg(text));
                return std::nullopt;
            }
        } else {
            xml.skipCurrentElement();
        }
    }
    return point;
}

} // namespace

ReadResult readGpx(QIODevice &device)
{
    QXmlStreamReader xml(&device);
    QVector<TrackPoint> trackPoints;
    QVector<TrackPoint> routePoints;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        const bool trackPoint = xml.name() == QLatin1String("trkpt");
        if (!trackPoint && xml.name() != QLatin1String("rtept"))
            continue;
        QString error;
        const auto point = readPoint(xml, error);
        if (xml.hasError())
            break;
        if (!point)
            return {{}, error};
        (trackPoint ? trackPoints : routePoints).append(*point);
    }
    if (xml.hasError())
        return xmlFailure(xml);
    ReadResult result;
    result.track.points = trackPoints.isEmpty() ? routePoints : trackPoints;
    return result;
}
