// Shared by the track reader targets: reads the bytes as a file of one format
// and checks what any reader must hand over, whatever the bytes.
#pragma once

#include "fuzzcheck.h"
#include "track.h"

#include <QBuffer>
#include <cmath>

namespace Fuzz {

inline bool finite(const std::optional<double> &value)
{
    return !value || std::isfinite(*value);
}

inline int readTrack(ReadResult (*read)(QIODevice &), const uint8_t *data, size_t size)
{
    QBuffer buffer;
    buffer.setData(bytes(data, size));
    buffer.open(QIODevice::ReadOnly);
    const ReadResult result = read(buffer);
    // A refused file hands over nothing; a point names a line of the file.
    FUZZ_CHECK(result.error.isEmpty() || result.track.points.isEmpty());
    const qint64 lines = buffer.data().count('\n') + buffer.data().count('\r') + 1;
    for (const TrackPoint &point : result.track.points) {
        FUZZ_CHECK(finite(point.latitude) && finite(point.longitude) && finite(point.altitude) && finite(point.time));
        FUZZ_CHECK(point.line >= 1 && point.line <= lines && point.segment >= 0);
        FUZZ_CHECK(point.track >= 0 && point.track < result.track.trackNames.size());
    }
    return 0;
}

} // namespace Fuzz

// The whole target for a reader.
#define FUZZ_TRACK_READER(read)                                                \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)    \
    {                                                                          \
        return Fuzz::readTrack(read, data, size);                              \
    }
