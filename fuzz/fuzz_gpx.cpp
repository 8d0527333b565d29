// GPX reader: arbitrary bytes as a GPX file.
#include "trackcheck.h"

#include "gpxreader.h"

FUZZ_TRACK_READER(readGpx)
