// GPX 1.0 and 1.1: the tracks (trk) with their segments, or the routes (rte)
// when the file has no track.
#pragma once

#include "track.h"

#include <QIODevice>

ReadResult readGpx(QIODevice &device);
