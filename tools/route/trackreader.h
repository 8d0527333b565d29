// Reads a track file whatever its format: GPX, KML or NMEA, told apart by content.
#pragma once

#include "track.h"

ReadResult readTrackFile(const QString &path);
