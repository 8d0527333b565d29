// Command-line options of korvex-route.
#pragma once

#include "schedule.h"
#include "trackchoice.h"

#include <QStringList>

struct RouteOptions
{
    QString track;
    Timing timing;
    std::optional<double> accuracy;
    TrackChoice choice;
    QString geoJsonPath; // set: the route as played is also written there
};

// Parses the arguments; --help and --version print and exit here, and so does
// an unknown option. Otherwise an error message, empty when all is well.
QString parseRouteOptions(const QStringList &arguments, RouteOptions &options);
