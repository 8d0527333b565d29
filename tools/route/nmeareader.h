// NMEA 0183 logs: RMC and GGA sentences of GPS or multi-constellation
// receivers. Sentences with a bad checksum or bad fields are skipped and counted.
#pragma once

#include "track.h"

#include <QIODevice>

ReadResult readNmea(QIODevice &device);
