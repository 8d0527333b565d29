// Which part of a track file is played: the track and segment the user chose,
// and, when the track's own times give the pace, only the segments that have
// times.
#pragma once

#include "track.h"

struct TrackChoice
{
    QString track;              // a number from 1 or a track's name; empty: all
    std::optional<int> segment; // from 1 within the track
};

// Keeps the chosen points; an error says what the file holds instead.
QString choosePart(Track &track, const TrackChoice &choice);

// Drops the segments without any time, unless no segment has one, and says
// which went, one note each.
QStringList dropUntimedSegments(Track &track);
