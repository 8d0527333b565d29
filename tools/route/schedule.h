// When each point is played: the track's times or a speed, sped up by a rate,
// long pauses capped, repeated, and cut to the whole seconds the shell's pause
// command takes.
#pragma once

#include "track.h"

struct Timing
{
    std::optional<double> speedKmh; // set: pace by distance, ignoring the track's times
    double rate = 1;                // played this many times faster
    int loops = 1;
    std::optional<double> maxPause; // seconds as played; set: no pause lasts longer
};

// One point as played: its index in the track and its second from the start.
struct Stop
{
    int point;
    qint64 second;
};

struct Schedule
{
    QVector<Stop> stops;
    QString error;
};

Schedule schedulePoints(const QVector<TrackPoint> &points, const Timing &timing);
