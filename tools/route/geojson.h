// The route as played, as GeoJSON that map viewers and editors open as it is:
// the path through every stop, and each stop as a point with its offset.
#pragma once

#include "schedule.h"

#include <QByteArray>

QByteArray geoJson(const QVector<TrackPoint> &points, const QVector<Stop> &stops);
