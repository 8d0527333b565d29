// NMEA 0183 logs: RMC and GGA sentences of any talker (GPS, GLONASS, combined).
// Lines that are not valid sentences are skipped and counted.
#pragma once

#include "track.h"

#include <QIODevice>

// Whether the start of a file reads as an NMEA log: a sentence on one of its
// first lines, after whatever header a logger wrote.
bool looksLikeNmea(const QByteArray &start);

ReadResult readNmea(QIODevice &device);
