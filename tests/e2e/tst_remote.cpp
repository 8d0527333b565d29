// Remote mode end to end: korvex-shell -r against the device simulator, for
// devices ping and the start-up connection test, the connection kept or not
// by agent version, a reply that comes after its request gave up, a device
// that closes or restarts, command files that are pipes, and one command file
// run against a fleet of devices at once.
#include <QtTest>

#include <memory>

#include <sys/stat.h>

#include "devsim.h"
#include "shellrunner.h"

namespace {

// Simulators take the first free address of the pool, so that copies of this
// test run from other build trees at the same time do not collide.
constexpr int SimPoolFirst = 30;
constexpr int SimPoolSize = 9;
const QString DeadAddress = QStringLiteral("127.0.0.39"); // nothing ever listens here
constexpr int Succeeded = 0;
constexpr int Failed = 255;
const QStringList NoAgent{QStringLiteral("<no agent>")};
const char Reconnection[] = "[critical] [initConnection] Persistant connection but not connected. Will reconnect to";

std::unique_ptr<DevSim> startSim(const QStringList &options)
{
    for (int host = SimPoolFirst; host < SimPoolFirst + SimPoolSize; ++host) {
        auto sim = std::make_unique<DevSim>(QStringLiteral("127.0.0.%1").arg(host), options);
        if (sim->start())
            return sim;
    }
    return nullptr;
}

// What the commands printed, after the welcome line.
QStringList commandLines(const QByteArray &out)
{
    QStringList lines = QString::fromUtf8(out).split('\n', Qt::SkipEmptyParts);
    return lines.mid(lines.indexOf(QStringLiteral("Welcome to Korvex Shell")) + 1);
}

} // namespace

class TestRemote : public QObject
{
    Q_OBJECT

private slots:
    void ping_data();
    void ping();
    void connectionsByAgentVersion_data();
    void connectionsByAgentVersion();
    void lateReplyTakenByNextRequest();
    void pipedFileAcrossDeviceRestart_data();
    void pipedFileAcrossDeviceRestart();
    void fleet();
};

void TestRemote::ping_data()
{
    QTest::addColumn<QStringList>("options"); // of the simulator
    QTest::addColumn<QString>("output");
    QTest::addColumn<QStringList>("logLines"); // %1: the device address
    QTest::addColumn<int>("parseWarnings");

    const QString success = QStringLiteral("[debug] Connection success");
    QTest::newRow("pong") << QStringList{} << "Pong received"
                          << QStringList{"[debug] Remote device used: \"%1:22666\"",
                                         "[debug] Try connection with remote device...", success}
                          << 0;
    QTest::newRow("reply in two chunks") << QStringList{"--split"} << "Pong received" << QStringList{success} << 1;
    QTest::newRow("device closes while waited for")
        << QStringList{"--close"} << "Device unreachable."
        << QStringList{"[warning] Connection closed by the device while waiting for request reply"} << 0;
    QTest::newRow("no agent") << NoAgent << "Device unreachable."
                              << QStringList{"[critical] Unable to connect to  \"%1:22666\" : "
                                             "QAbstractSocket::ConnectionRefusedError",
                                             "[critical] Check if remote device is on.",
                                             "[critical] Unable to connect to \"%1\" : 22666 \"Connection refused\"",
                                             "[critical] Fail to send Ping to device"}
                              << 0;
}

void TestRemote::ping()
{
    QFETCH(QStringList, options);
    QFETCH(QString, output);
    QFETCH(QStringList, logLines);
    QFETCH(int, parseWarnings);

    const std::unique_ptr<DevSim> sim = options == NoAgent ? nullptr : startSim(options);
    const QString address = sim ? sim->address() : DeadAddress;
    ShellRunner runner;
    const ShellResult result = runner.run({"-r", address, "-c", "devices ping"});
    QVERIFY(result.finished);
    QCOMPARE(QString::fromUtf8(result.out).trimmed().section(QLatin1Char(10), -1), output);
    QCOMPARE(result.exitCode, output == "Pong received" ? Succeeded : Failed);

    const QString log = runner.log();
    for (const QString &pattern : logLines) {
        const QString line = pattern.contains("%1") ? pattern.arg(address) : pattern;
        QVERIFY2(log.contains(line), qPrintable(line + "\nnot in the log:\n" + log));
    }
    QCOMPARE(log.count("Cannot parse message from device"), parseWarnings);
}

void TestRemote::connectionsByAgentVersion_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<int>("connections");
    // The start-up test connection, then one per request up to 2.0.3 (the
    // version read and three pings) and a single kept one after it.
    QTest::newRow("2.0.3") << "2.0.3" << 5;
    QTest::newRow("2.0.4") << "2.0.4" << 2;
}

void TestRemote::connectionsByAgentVersion()
{
    QFETCH(QString, version);
    QFETCH(int, connections);

    const std::unique_ptr<DevSim> sim = startSim({"--agent-version", version});
    QVERIFY(sim);
    ShellRunner runner;
    const QString file = runner.writeCommandFile("pings", "devices ping\ndevices ping\ndevices ping\n");
    const ShellResult result = runner.run({"-r", sim->address(), "-f", file});
    QCOMPARE(QString::fromUtf8(result.out).count("Pong received"), 3);
    QCOMPARE(result.exitCode, Succeeded);
    QCOMPARE(sim->connectionCount(), connections);
    QCOMPARE(runner.log().contains("[KorvexClient] Use persistent connection"), connections == 2);
}

// The first ping times out; its Pong arrives during the second one, which
// takes it (one kept connection, the agent being newer than 2.0.3).
void TestRemote::lateReplyTakenByNextRequest()
{
    const std::unique_ptr<DevSim> sim = startSim({"--delay", "6000", "--fault-count", "2"});
    QVERIFY(sim);
    ShellRunner runner;
    const QString file = runner.writeCommandFile("pings", "devices ping\ndevices ping\n");
    const ShellResult result = runner.run({"-r", sim->address(), "-f", file});
    QCOMPARE(commandLines(result.out), (QStringList{"Device unreachable.", "Pong received"}));
    QCOMPARE(result.exitCode, Failed);
    QCOMPARE(runner.log().count("[warning] Timeout while waiting for request reply"), 1);
    QCOMPARE(sim->connectionCount(), 2);
}

void TestRemote::pipedFileAcrossDeviceRestart_data()
{
    QTest::addColumn<bool>("namedPipe"); // else the shell's standard input, as /dev/stdin
    QTest::newRow("standard input") << false;
    QTest::newRow("named pipe") << true;
}

// Each line is written only once the one before it was answered, and the
// device restarts between the two: the kept connection is found closed and
// replaced before the second request, which costs neither a command nor a
// time-out.
void TestRemote::pipedFileAcrossDeviceRestart()
{
    QFETCH(bool, namedPipe);
    std::unique_ptr<DevSim> sim = startSim({});
    QVERIFY(sim);
    const QString address = sim->address();
    ShellRunner runner;
    const QString fifo = runner.home() + "/commands";
    QVERIFY(!namedPipe || mkfifo(qPrintable(fifo), 0600) == 0);
    QProcess shell;
    shell.setProcessEnvironment(runner.environment());
    shell.start(ShellRunner::shellBinary(), {"-r", address, "-f", namedPipe ? fifo : "/dev/stdin"});
    QFile pipe(fifo); // opened for both, which never waits for the reader
    QVERIFY(!namedPipe || pipe.open(QIODevice::ReadWrite | QIODevice::Unbuffered));
    QIODevice &input = namedPipe ? static_cast<QIODevice &>(pipe) : shell;

    input.write("battery setlevel 40\n");
    QByteArray out;
    QTRY_VERIFY_WITH_TIMEOUT((out += shell.readAllStandardOutput()).contains("Battery level set to: 40%\n"), 10000);
    sim = std::make_unique<DevSim>(address);
    QVERIFY(sim->start());
    input.write("battery getlevel\n");
    namedPipe ? pipe.close() : shell.closeWriteChannel();
    QVERIFY(shell.waitForFinished(10000));
    QCOMPARE(commandLines(out + shell.readAllStandardOutput()),
             (QStringList{"Battery level set to: 40%", "Battery level: 50%"}));
    QCOMPARE(shell.exitCode(), Succeeded);
    const QString log = runner.log();
    QCOMPARE(log.count(Reconnection), 1);
    QVERIFY2(!log.contains("Timeout"), qPrintable(log));
}

// The recipe of the README: two devices played by one simulator, and an
// address where nothing answers; each output apart and labelled, one failure counted.
void TestRemote::fleet()
{
    if (QStandardPaths::findExecutable("parallel").isEmpty())
        QSKIP("GNU parallel is not installed");
    const std::unique_ptr<DevSim> sim = startSim({"--address", "127.0.0.38"});
    QVERIFY(sim && sim->address() != "127.0.0.38");
    ShellRunner runner;
    runner.environment().insert("KX_SHELL", ShellRunner::shellBinary());
    QProcess fleet;
    fleet.setProcessEnvironment(runner.environment());
    fleet.start(KORVEX_SOURCE_DIR "/scripts/fleet.sh", {runner.writeCommandFile("commands", "battery setlevel 30\n"),
                                                        sim->address(), DeadAddress, "127.0.0.38"});
    QVERIFY(fleet.waitForFinished(60000));
    const QStringList lines = QString::fromUtf8(fleet.readAllStandardOutput()).split('\n');
    for (const QString &address : {sim->address(), QStringLiteral("127.0.0.38")})
        QVERIFY(lines.contains(address + "\tBattery level set to: 30%"));
    QVERIFY(lines.contains(DeadAddress + "\tDevice unreachable."));
    // Each device's lines together: three runs of labels, one per device.
    QStringList labels;
    for (const QString &line : lines.filter("\t"))
        if (labels.isEmpty() || labels.last() != line.section('\t', 0, 0))
            labels << line.section('\t', 0, 0);
    QCOMPARE(labels.size(), 3);
    QCOMPARE(fleet.exitCode(), 1);
}

QTEST_GUILESS_MAIN(TestRemote)
#include "tst_remote.moc"
