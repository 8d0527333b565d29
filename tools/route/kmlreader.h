// KML: every Placemark with a path is a track, and each of its LineString or
// gx:Track elements (several in a MultiGeometry or gx:MultiTrack) a segment, in
// document order. Placemark points are places, not a path, and are left out.
#pragma once

#include "track.h"

#include <QIODevice>

ReadResult readKml(QIODevice &device);
