// NMEA reader: arbitrary bytes as a receiver's log.
#include "trackcheck.h"

#include "nmeareader.h"

FUZZ_TRACK_READER(readNmea)
