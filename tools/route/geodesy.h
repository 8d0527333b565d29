// Great-circle distance and initial bearing between two track points.
#pragma once

#include "track.h"

double distanceMetres(const TrackPoint &from, const TrackPoint &to);

// Direction of travel leaving `from` towards `to`, in degrees clockwise from
// North, in [0, 360).
double bearingDegrees(const TrackPoint &from, const TrackPoint &to);
