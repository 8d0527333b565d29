// Remote mode end to end: korvex-shell -r against the device simulator, for
// devices ping, the start-up connection test, one connection per request
// against old agents and one kept connection against newer ones, and a
// reply that comes after its request gave up.
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
const QString NoAgent = QStringLiteral("<no agent>");

std::unique_ptr<DevSim> startSim(const QStringList &options)
{
    for (int host = SimPoolFirst; host < SimPoolFirst + SimPoolSize; ++host) {
        auto sim = std::make_unique<DevSim>(QStringLiteral("127.0.0.%1").arg(host), options);
        if (sim->start())
            return sim;
    }
    return nullptr;
}

QString lastLine(const QByteArray &out)
{
    const QStringList lines = QString::fromUtf8(out).split('\n', Qt::SkipEmptyParts);
    return lines.isEmpty() ? QString() : lines.last();
}

QStringList commandLines(const QByteArray &out)
{
    QStringList lines = QString::fromUtf8(out).split('\n', Qt::SkipEmptyParts);
    const int welcome = lines.indexOf(QStringLiteral("Welcome to Korvex Shell"));
    return lines.mid(welcome + 1);
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
};

void TestRemote::ping_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("options"); // NoAgent: nothing listens
    QTest::addColumn<QString>("output");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<bool>("pingSent");
    QTest::addColumn<QStringList>("logLines"); // %1: the device address
    QTest::addColumn<int>("parseWarnings");

    const QString ping = QStringLiteral("devices ping");
    const QString success = QStringLiteral("[debug] Connection success");
    QTest::newRow("pong") << ping << QStringList() << "Pong received" << Succeeded << true
                          << QStringList{QStringLiteral("[debug] Remote device used: \"%1:22666\""),
                                         "[debug] Try connection with remote device...", success}
                          << 0;
    QTest::newRow("reply in two chunks") << ping << QStringList{"--split"} << "Pong received" << Succeeded << true
                                         << QStringList{success} << 1;
    QTest::newRow("error reply") << ping << QStringList{"--error", "GenericError:boom"}
                                 << "Unknown error. Result code: 2" << Failed << true << QStringList{success} << 0;
    QTest::newRow("not implemented") << ping << QStringList{"--error", "NotImplemented"}
                                     << "Unknown error. Result code: 8" << Failed << true
                                     << QStringList{"[warning] Not implemented in your current Korvex system."} << 0;
    QTest::newRow("information") << ping << QStringList{"--info", "note"} << "Unknown error. Result code: 7" << Failed
                                 << true << QStringList{success} << 0;
    QTest::newRow("device closes while waited for")
        << ping << QStringList{"--close"} << "Device unreachable." << Failed << true
        << QStringList{"[warning] Connection closed by the device while waiting for request reply"} << 0;
    QTest::newRow("extra word") << ping + " now" << QStringList()
                                << "Syntax error: Command expects 0 parameters while 1 were given." << Failed << false
                                << QStringList{success} << 0;
    QTest::newRow("no agent")
        << ping << QStringList{NoAgent} << "Device unreachable." << Failed << false
        << QStringList{QStringLiteral("[critical] Unable to connect to  \"%1:22666\" : "
                                      "QAbstractSocket::ConnectionRefusedError"),
                       "[critical] Check if remote device is on.",
                       QStringLiteral("[critical] Unable to connect to \"%1\" : 22666 \"Connection refused\""),
                       "[critical] Fail to send Ping to device"}
        << 0;
}

void TestRemote::ping()
{
    QFETCH(QString, command);
    QFETCH(QStringList, options);
    QFETCH(QString, output);
    QFETCH(int, exitCode);
    QFETCH(bool, pingSent);
    QFETCH(QStringList, logLines);
    QFETCH(int, parseWarnings);

    std::unique_ptr<DevSim> sim;
    if (options != QStringList{NoAgent}) {
        sim = startSim(options);
        QVERIFY(sim);
    }
    const QString address = sim ? sim->address() : DeadAddress;

    ShellRunner runner;
    const ShellResult result = runner.run({"-r", address, "-c", command});
    QVERIFY(result.finished);
    QCOMPARE(lastLine(result.out), output);
    QCOMPARE(result.exitCode, exitCode);
    QCOMPARE(sim && sim->requests().contains("type: Ping"), pingSent);

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
    QTest::addColumn<bool>("persistent");

    // The start-up test connection, then one per request up to 2.0.3 (the
    // version read and three pings) and a single kept one after it.
    QTest::newRow("2.0.3") << "2.0.3" << 5 << false;
    QTest::newRow("2.0.4") << "2.0.4" << 2 << true;
}

void TestRemote::connectionsByAgentVersion()
{
    QFETCH(QString, version);
    QFETCH(int, connections);
    QFETCH(bool, persistent);

    const std::unique_ptr<DevSim> sim = startSim({"--agent-version", version});
    QVERIFY(sim);
    ShellRunner runner;
    const QString file = runner.writeCommandFile("pings", "devices ping\ndevices ping\ndevices ping\n");
    const ShellResult result = runner.run({"-r", sim->address(), "-f", file});
    QVERIFY(result.finished);
    QCOMPARE(result.exitCode, Succeeded);
    QCOMPARE(QString::fromUtf8(result.out).count("Pong received"), 3);
    QCOMPARE(sim->requests().size(), 4);
    QCOMPARE(sim->connectionCount(), connections);
    QCOMPARE(runner.log().contains("[KorvexClient] Use persistent connection"), persistent);
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
    QVERIFY(result.finished);
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
    QVERIFY(shell.waitForStarted());
    QFile pipe(fifo); // opened for both, which never waits for the reader
    QVERIFY(!namedPipe || pipe.open(QIODevice::ReadWrite | QIODevice::Unbuffered));
    auto writeLine = [&](const QByteArray &line) { namedPipe ? pipe.write(line) : shell.write(line); };

    writeLine("battery setlevel 40\n");
    QByteArray out;
    QTRY_VERIFY_WITH_TIMEOUT((out += shell.readAllStandardOutput()).contains("Battery level set to: 40%\n"), 10000);
    sim.reset();
    sim = std::make_unique<DevSim>(address);
    QVERIFY(sim->start());
    writeLine("battery getlevel\n");
    namedPipe ? pipe.close() : shell.closeWriteChannel();
    QVERIFY(shell.waitForFinished(10000));
    out += shell.readAllStandardOutput();
    QCOMPARE(commandLines(out), (QStringList{"Battery level set to: 40%", "Battery level: 50%"}));
    QCOMPARE(shell.exitCode(), Succeeded);
    const QString log = runner.log();
    QCOMPARE(log.count("[critical] [initConnection] Persistant connection but not connected. Will reconnect to"), 1);
    QVERIFY2(!log.contains("Timeout"), qPrintable(log));
}

QTEST_GUILESS_MAIN(TestRemote)
#include "tst_remote.moc"
