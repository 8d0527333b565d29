// GPX 1.0 and 1.1: track points, or route points when there is no track.
#pragma once

#include "track.h"

#include <QIODevice>

ReadResult readGpx(QIODevice &device);
