// The ranges the shell's gps commands accept, and numbers written so that the
// shell reads them back under any locale.
#pragma once

#include "track.h"

enum class Coordinate { Latitude, Longitude, Altitude, Bearing, Accuracy };

struct Range
{
    const char *name;
    double lower; // always included
    double upper;
    bool upperIncluded;
    int decimals; // kept when written
};

const Range &rangeOf(Coordinate coordinate);

bool inRange(Coordinate coordinate, double value);

// The range as the shell's own messages write it, "[-90; 90)" style.
QString rangeText(Coordinate coordinate);

// Checks a point against the shell's ranges; a longitude of exactly 180 is the
// same meridian as -180 and becomes it. The error names the point's line.
QString fitPoint(TrackPoint &point);

// The value rounded to the coordinate's decimals (and kept inside its range),
// written with digits, a minus sign and an exponent only: "488566e-4".
// The shell parses numbers with the user's locale, and this is the one
// form every locale reads back, whatever its decimal mark.
QString shellNumber(Coordinate coordinate, double value);
