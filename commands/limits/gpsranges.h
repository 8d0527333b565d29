// The ranges the gps set commands accept. korvex-route checks tracks against
// the same table before it writes a command file, so both read it from here.
#pragma once

namespace GpsRanges {

// Lower bounds are always included. The upper bound of the angular values is
// excluded (90 is no latitude, 360 is a bearing of 0) while lengths include it.
struct Range
{
    double lower;
    double upper;
    bool upperIncluded;
};

constexpr Range Latitude{-90, 90, false};
constexpr Range Longitude{-180, 180, false};
constexpr Range Altitude{-10000, 10000, true};
constexpr Range Accuracy{0, 200, true};
constexpr Range Bearing{0, 360, false};

} // namespace GpsRanges
