// Starts korvex-devsim on a loopback address for a test and reads its request
// log. Each test uses its own 127.0.0.N address, since the port is fixed.
#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

// A simulator process that ends with the test: a test killed by a sanitizer
// report or a time-out must not leave it holding its address for later runs.
class SimulatorProcess : public QProcess
{
protected:
    void setupChildProcess() override;
};

class DevSim
{
public:
    DevSim(const QString &address, const QStringList &options = {});
    ~DevSim();

    // Starts and waits for its "listening on" line; false when it did not come.
    bool start();
    void stop();
    QString address() const { return m_address; }
    // Lines of the request log without their timestamps ("connect N",
    // "request N <text>", ...).
    QStringList log() const;
    // Only the text of the "request" lines, in order.
    QStringList requests() const;
    int connectionCount() const;

    // Starts one on the first free address of 127.0.0.first to first + count - 1, so that
    // copies of a test run from other build trees at once do not collide; null when none is.
    static std::unique_ptr<DevSim> startFree(int first, int count, const QStringList &options = {});

    static QString binary() { return QStringLiteral(KORVEX_DEVSIM_BIN); }

private:
    QString m_address;
    QStringList m_options;
    QTemporaryDir m_dir;
    SimulatorProcess m_process;
};
