// Random faults of the simulator: each eligible request gets a fault with a
// given probability, of a kind drawn by weight. Seeded, so that a run with
// the same requests repeats exactly; the request log names every fault.
#pragma once

#include <random>

#include <QString>
#include <QVector>

#include "simoptions.h"

class RandomFaults
{
public:
    // kinds: comma-separated KIND or KIND:WEIGHT; empty for every kind, weight 1.
    bool configure(double rate, quint32 seed, const QString &kinds, QString &error);
    bool enabled() const { return m_rate > 0; }
    // The fault of the next eligible request (none when the draw spares it);
    // description names it for the log, e.g. "error NotImplemented".
    Fault draw(QString &description);

    // Names of the kinds, in the order of the help text.
    static QString kindNames();

private:
    enum Kind { Error, Info, Delay, Late, Split, Close, Garbage, KindCount };

    double m_rate = 0;
    std::mt19937 m_engine;
    QVector<Kind> m_kinds;
    QVector<int> m_weights;
};
