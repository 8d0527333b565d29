// KML: the coordinates of every LineString and the points of every gx:Track,
// in document order. Placemark points are places, not a path, and are left out.
#pragma once

#include "track.h"

#include <QIODevice>

ReadResult readKml(QIODevice &device);
