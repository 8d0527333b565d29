// GeoJSON writer. Positions are [longitude, latitude(, altitude)], the values
// the shell is given, not the file's own digits.
#include "geojson.h"

#include "shelllimits.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QJsonArray position(const TrackPoint &point)
{
    const auto played = [](Coordinate coordinate, double value) {
        return shellNumber(coordinate, value).toDouble();
    };
    QJsonArray result{played(Coordinate::Longitude, point.longitude), played(Coordinate::Latitude, point.latitude)};
    if (point.altitude)
        result.append(played(Coordinate::Altitude, *point.altitude));
    return result;
}

QJsonObject feature(const QString &type, const QJsonValue &coordinates, const QJsonObject &properties)
{
    return QJsonObject{{"type", "Feature"},
                       {"geometry", QJsonObject{{"type", type}, {"coordinates", coordinates}}},
                       {"properties", properties}};
}

} // namespace

QByteArray geoJson(const QVector<TrackPoint> &points, const QVector<Stop> &stops)
{
    QJsonArray features;
    QJsonArray path;
    for (int i = 0; i < stops.size(); ++i) {
        const QJsonArray at = position(points[stops[i].point]);
        path.append(at);
        features.append(feature("Point", at, {{"stop", i + 1}, {"offset_seconds", stops[i].second}}));
    }
    // A LineString needs two positions.
    if (stops.size() > 1)
        features.prepend(feature("LineString", path, {{"stops", stops.size()}, {"seconds", stops.last().second}}));
    const QJsonObject collection{{"type", "FeatureCollection"}, {"features", features}};
    return QJsonDocument(collection).toJson(QJsonDocument::Compact) + '\n';
}
