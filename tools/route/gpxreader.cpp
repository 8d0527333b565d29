// GPX reader. Elements are matched by local name, so both schema versions and
// files without a namespace read the same. An empty optional value (<ele/>,
// <time/>, as some apps write on every point) is absent.
#include "gpxreader.h"

#include "textvalues.h"

namespace {

// An optional value: absent when empty, else read, else an error naming it.
template <typename Read>
bool readOptional(QXmlStreamReader &xml, std::optional<double> &value, Read read, const char *name,
                  const char *expected, QString &error)
{
    const qint64 line = xml.lineNumber();
    const QString text = xml.readElementText();
    if (xml.hasError() || text.trimmed().isEmpty())
        return true;
    value = read(text);
    if (!value)
        error = lineError(line, QStringLiteral("%1 \"%2\" is not %3").arg(QLatin1String(name), text,
                                                                         QLatin1String(expected)));
    return value.has_value();
}

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
        bool ok = true;
        if (xml.name() == QLatin1String("ele"))
            ok = readOptional(xml, point.altitude, finiteNumber, "elevation", "a number", error);
        else if (xml.name() == QLatin1String("time"))
            ok = readOptional(xml, point.time, isoTime, "time", "an ISO 8601 date and time", error);
        else
            xml.skipCurrentElement();
        if (!ok)
            return std::nullopt;
    }
    return point;
}

// The tracks or the routes of the file, numbered in file order.
struct Paths
{
    QVector<TrackPoint> points;
    QStringList names;
};

} // namespace

ReadResult readGpx(QIODevice &device)
{
    QXmlStreamReader xml(&device);
    Paths tracks;
    Paths routes;
    Paths *current = nullptr;
    int segment = 0;
    QStringList open; // elements open around the current one
    while (!xml.atEnd()) {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (token == QXmlStreamReader::EndElement && !open.isEmpty())
            open.removeLast();
        if (token != QXmlStreamReader::StartElement)
            continue;
        const QStringRef name = xml.name();
        if (name == QLatin1String("trkpt") || name == QLatin1String("rtept")) {
            Paths &paths = name == QLatin1String("trkpt") ? tracks : routes;
            if (paths.names.isEmpty())
                paths.names.append(QString()); // a point outside any trk or rte
            QString error;
            auto point = readPoint(xml, error);
            if (xml.hasError())
                break;
            if (!point)
                return {{}, error};
            point->track = paths.names.size() - 1;
            point->segment = &paths == &tracks ? std::max(segment, 0) : 0;
            paths.points.append(*point);
            continue;
        }
        if (name == QLatin1String("name") && current && !open.isEmpty()
            && (open.last() == QLatin1String("trk") || open.last() == QLatin1String("rte"))) {
            current->names.last() = xml.readElementText().simplified();
            continue;
        }
        if (name == QLatin1String("trk") || name == QLatin1String("rte")) {
            current = name == QLatin1String("trk") ? &tracks : &routes;
            current->names.append(QString());
            segment = -1;
        } else if (name == QLatin1String("trkseg")) {
            ++segment;
        }
        open.append(name.toString());
    }
    if (xml.hasError())
        return xmlFailure(xml);
    const Paths &played = tracks.points.isEmpty() ? routes : tracks;
    ReadResult result;
    result.track.points = played.points;
    result.track.trackNames = played.names;
    return result;
}
