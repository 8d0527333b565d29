// Command-line options of the device simulator: where it listens, where it
// logs, the initial device state and the fault to play.
#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QPair>
#include <QString>
#include <QStringList>

#include "requests.pb.h"

struct Fault
{
    // What replaces the normal reply (at most one is used, in this order).
    bool rawReply = false;
    QByteArray rawBytes;
    bool garbage = false;
    bool error = false;
    Korvex::Status::Code errorCode = Korvex::Status::GenericError;
    bool errorHasDescription = false;
    QString errorDescription;
    bool info = false;
    QString infoText;

    // How the reply is delivered.
    int delayMs = 0;
    bool silent = false;
    bool split = false;
    int splitAt = 0; // bytes in the first write of a split reply; 0 for half
    bool close = false;

    bool all = false; // also the start-up version read
    int count = -1;   // eligible requests affected; -1 for all

    bool any() const { return rawReply || garbage || error || info || delayMs > 0 || silent || split || close; }
    // A replaced reply means the device refused: a SetParam is then not applied.
    bool refuses() const { return rawReply || garbage || error; }
};

struct SimOptions
{
    // One device per address, each with its own state; all on the same port.
    QList<QHostAddress> addresses;
    quint16 port = 22666;
    QString logPath;
    QList<QPair<QString, QString>> settings; // --set NAME=VALUE, in order
    Fault fault;
    // Random faults instead of the fixed one: see RandomFaults.
    double faultRate = 0;
    quint32 seed = 1;
    QString faultKinds;
};

// Parses the arguments; prints help or errors itself. Returns -1 to go on,
// else the exit status.
int parseOptions(const QStringList &arguments, SimOptions &options);
