// Runs device commands through the real shell against a simulated device and
// returns only what the commands printed, plus the requests the device got.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTest>

#include "devsim.h"
#include "shellrunner.h"

namespace CommandRun {

// Exit statuses of a one-shot command: its handler returned 0 or -1.
constexpr int Succeeded = 0;
constexpr int Failed = 255;

// Simulator options of a row whose device is not there at all.
inline QStringList unreachable()
{
    return {QStringLiteral("<unreachable>")};
}

struct Outcome
{
    QStringList lines;    // output after the start-up banner and version advice
    QStringList requests; // requests after the start-up version read
    int exitCode = -1;
    bool finished = false;
};

// Drops the start-up lines: everything up to the welcome, then the version
// advice that a device of another version triggers.
inline QStringList commandLines(const QByteArray &out)
{
    QStringList lines = QString::fromUtf8(out).split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    const int welcome = lines.indexOf(QStringLiteral("Welcome to Korvex Shell"));
    lines = lines.mid(welcome + 1);
    const int adviceLines = 5; // blank, two versions, advice, blank
    if (lines.size() >= adviceLines && lines[0].isEmpty()
        && lines[1].startsWith(QStringLiteral("Virtual device is in version: ")))
        lines = lines.mid(adviceLines);
    return lines;
}

// Starts a simulator on address (or none for unreachable()) and runs the shell
// in remote mode on it with the given arguments (e.g. -c "battery getlevel").
inline Outcome run(const ShellRunner &runner, const QString &address, const QStringList &simOptions,
                   const QStringList &arguments)
{
    Outcome outcome;
    const bool present = simOptions != unreachable();
    DevSim sim(address, simOptions);
    if (present && !sim.start()) {
        qWarning("simulator did not start on %s", qPrintable(address));
        return outcome;
    }
    const ShellResult result = runner.run(QStringList{"-r", address} + arguments);
    sim.stop();
    outcome.lines = commandLines(result.out);
    outcome.exitCode = result.exitCode;
    outcome.finished = result.finished;
    if (present)
        outcome.requests = sim.requests().mid(1);
    if (!result.finished)
        qWarning("shell did not finish: %s%s", result.out.constData(), result.err.constData());
    return outcome;
}

inline Outcome runCommand(const ShellRunner &runner, const QString &address, const QStringList &simOptions,
                          const QString &command)
{
    return run(runner, address, simOptions, {"-c", command});
}

// Local mode without any virtual machine: nothing is ever selected.
inline Outcome runLocal(const ShellRunner &runner, const QString &command)
{
    Outcome outcome;
    const ShellResult result = runner.run({"-c", command});
    outcome.lines = commandLines(result.out);
    outcome.exitCode = result.exitCode;
    outcome.finished = result.finished;
    return outcome;
}

// Request texts as the simulator logs them.
inline QString getParam(const QString &parameter)
{
    return QString("type: GetParam parameter { type: %1 }").arg(parameter);
}

inline QString setParam(const QString &parameter, const QString &value)
{
    return QString("type: SetParam parameter { type: %1 value { %2 } }").arg(parameter, value);
}

inline QString setInt(const QString &parameter, int value)
{
    return setParam(parameter, QString("type: Int intValue: %1").arg(value));
}

inline QString setBool(const QString &parameter, bool value)
{
    return setParam(parameter, QString("type: Bool boolValue: %1").arg(value ? "true" : "false"));
}

inline QString setString(const QString &parameter, const QString &value)
{
    return setParam(parameter, QString("type: String stringValue: \"%1\"").arg(value));
}

// Doubles travel in both fields; the float one may print fewer digits.
inline QString setDouble(const QString &parameter, const QString &asFloat, const QString &asDouble)
{
    return setParam(parameter, QString("type: Float floatValue: %1 doubleValue: %2").arg(asFloat, asDouble));
}

inline QString baseband(const QString &line)
{
    return QString("type: SendCommand parameter { type: KvexBasebandCmd value { type: String stringValue: "
                   "\"%1\\n\" } }")
        .arg(line);
}

} // namespace CommandRun

// Every row of the device-command tables has the same shape.
#define COMMAND_ROW_COLUMNS()                                                                                  \
    do {                                                                                                       \
        QTest::addColumn<QString>("command");                                                                  \
        QTest::addColumn<QStringList>("simOptions");                                                           \
        QTest::addColumn<QStringList>("expectedLines");                                                        \
        QTest::addColumn<int>("expectedExit");                                                                 \
        QTest::addColumn<QStringList>("expectedRequests");                                                     \
    } while (false)

// Runs the current row on address and compares output, exit status and requests.
#define VERIFY_COMMAND_ROW(runner, address)                                                                    \
    do {                                                                                                       \
        QFETCH(QString, command);                                                                              \
        QFETCH(QStringList, simOptions);                                                                       \
        QFETCH(QStringList, expectedLines);                                                                    \
        QFETCH(int, expectedExit);                                                                             \
        QFETCH(QStringList, expectedRequests);                                                                 \
        const CommandRun::Outcome outcome = CommandRun::runCommand(runner, address, simOptions, command);      \
        QVERIFY(outcome.finished);                                                                             \
        QCOMPARE(outcome.lines, expectedLines);                                                                \
        QCOMPARE(outcome.exitCode, expectedExit);                                                              \
        if (simOptions != CommandRun::unreachable())                                                           \
            QCOMPARE(outcome.requests, expectedRequests);                                                      \
    } while (false)
