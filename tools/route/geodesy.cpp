// Spherical Earth formulas: plenty for pacing and heading a simulated fix.
#include "geodesy.h"

#include <QtMath>
#include <cmath>

namespace {
constexpr double EarthRadiusMetres = 6371008.8; // mean radius
constexpr double FullTurn = 360;
} // namespace

double distanceMetres(const TrackPoint &from, const TrackPoint &to)
{
    const double lat1 = qDegreesToRadians(from.latitude);
    const double lat2 = qDegreesToRadians(to.latitude);
    const double dLat = lat2 - lat1;
    const double dLon = qDegreesToRadians(to.longitude - from.longitude);
    // Haversine: well conditioned for the short hops of a track.
    const double h = std::pow(std::sin(dLat / 2), 2) + std::cos(lat1) * std::cos(lat2) * std::pow(std::sin(dLon / 2), 2);
    return 2 * EarthRadiusMetres * std::asin(std::min(1.0, std::sqrt(h)));
}

double bearingDegrees(const TrackPoint &from, const TrackPoint &to)
{
    const double lat1 = qDegreesToRadians(from.latitude);
    const double lat2 = qDegreesToRadians(to.latitude);
    const double dLon = qDegreesToRadians(to.longitude - from.longitude);
    const double y = std::sin(dLon) * std::cos(lat2);
    const double x = std::cos(lat1) * std::sin(lat2) - std::sin(lat1) * std::cos(lat2) * std::cos(dLon);
    const double degrees = std::fmod(qRadiansToDegrees(std::atan2(y, x)) + FullTurn, FullTurn);
    return degrees;
}
