// Remote mode end to end: korvex-shell -r against the device simulator, for
// devices ping, the start-up connection test, one connection per request
// against old agents and one kept connection against newer ones, and a
// reply that comes after its request gave up.
#include <QtTest>

#include "devsim.h"
#include "shellrunner.h"

namespace {

const QString PingAddress = QStringLiteral("127.0.0.30");
const QString VersionAddress = QStringLiteral("127.0.0.31");
const QString LateAddress = QStringLiteral("127.0.0.32");
constexpr int Succeeded = 0;
constexpr int Failed = 255;
const QString NoAgent = QStringLiteral("<no agent>");

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
};

void TestRemote::ping_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("options"); // NoAgent: nothing listens
    QTest::addColumn<QString>("output");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<bool>("pingSent");
    QTest::addColumn<QStringList>("logLines");
    QTest::addColumn<int>("parseWarnings");

    const QString ping = QStringLiteral("devices ping");
    const QString success = QStringLiteral("[debug] Connection success");
    QTest::newRow("pong") << ping << QStringList() << "Pong received" << Succeeded << true
                          << QStringList{QStringLiteral("[debug] Remote device used: \"%1:22666\"").arg(PingAddress),
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
    QTest::newRow("extra word") << ping + " now" << QStringList()
                                << "Syntax error: Command expects 0 parameters while 1 were given." << Failed << false
                                << QStringList{success} << 0;
    QTest::newRow("no agent")
        << ping << QStringList{NoAgent} << "Device unreachable." << Failed << false
        << QStringList{QStringLiteral("[critical] Unable to connect to  \"%1:22666\" : "
                                      "QAbstractSocket::ConnectionRefusedError")
                           .arg(PingAddress),
                       "[critical] Check if remote device is on.",
                       QStringLiteral("[critical] Unable to connect to \"%1\" : 22666 \"Connection refused\"")
                           .arg(PingAddress),
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

    const bool agent = options != QStringList{NoAgent};
    DevSim sim(PingAddress, agent ? options : QStringList());
    if (agent)
        QVERIFY(sim.start());

    ShellRunner runner;
    const ShellResult result = runner.run({"-r", PingAddress, "-c", command});
    QVERIFY(result.finished);
    QCOMPARE(lastLine(result.out), output);
    QCOMPARE(result.exitCode, exitCode);
    QCOMPARE(sim.requests().contains("type: Ping"), pingSent);

    const QString log = runner.log();
    for (const QString &line : logLines)
        QVERIFY2(log.contains(line), qPrintable(line + "\nnot in the log:\n" + log));
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

    DevSim sim(VersionAddress, {"--agent-version", version});
    QVERIFY(sim.start());
    ShellRunner runner;
    const QString file = runner.writeCommandFile("pings", "devices ping\ndevices ping\ndevices ping\n");
    const ShellResult result = runner.run({"-r", VersionAddress, "-f", file});
    QVERIFY(result.finished);
    QCOMPARE(result.exitCode, Succeeded);
    QCOMPARE(QString::fromUtf8(result.out).count("Pong received"), 3);
    QCOMPARE(sim.requests().size(), 4);
    QCOMPARE(sim.connectionCount(), connections);
    QCOMPARE(runner.log().contains("[KorvexClient] Use persistent connection"), persistent);
}

// The first ping times out; its Pong arrives during the second one, which
// takes it (one kept connection, the agent being newer than 2.0.3).
void TestRemote::lateReplyTakenByNextRequest()
{
    DevSim sim(LateAddress, {"--delay", "6000", "--fault-count", "2"});
    QVERIFY(sim.start());
    ShellRunner runner;
    const QString file = runner.writeCommandFile("pings", "devices ping\ndevices ping\n");
    const ShellResult result = runner.run({"-r", LateAddress, "-f", file});
    QVERIFY(result.finished);
    QCOMPARE(commandLines(result.out), (QStringList{"Device unreachable.", "Pong received"}));
    QCOMPARE(result.exitCode, Failed);
    QCOMPARE(runner.log().count("[warning] Timeout while waiting for request reply"), 1);
    QCOMPARE(sim.connectionCount(), 2);
}

QTEST_GUILESS_MAIN(TestRemote)
#include "tst_remote.moc"
