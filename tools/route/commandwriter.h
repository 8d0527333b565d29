// Writes the shell command file that plays a scheduled track.
#pragma once

#include "schedule.h"

#include <QByteArray>

QByteArray commandFile(const QVector<TrackPoint> &points, const QVector<Stop> &stops,
                       std::optional<double> accuracy);
