// KML reader: arbitrary bytes as a KML file.
#include "trackcheck.h"

#include "kmlreader.h"

FUZZ_TRACK_READER(readKml)
