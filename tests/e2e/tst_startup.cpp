// The shell binary end to end: options and their errors, one-shot and file
// modes with their exit statuses, help listings, start-up output and log.
#include <QtTest>

#include "devsim.h"
#include "shellrunner.h"

namespace {

// Addresses of this file: nothing listens on the first, simulators on the others.
const QString SilentAddress = "127.0.0.170";
const QString SimAddress = "127.0.0.171";
const QString LocalMachineAddress = "127.0.0.172";

const QByteArray LocalStart = "Connection mode: local host\n";
const QByteArray Welcome = "Welcome to Korvex Shell\n";
const QByteArray VersionLine = "2.8.1 20161117-c0196b8\n";
const QByteArray ParamCountError = "Syntax error: Command expects 0 parameters while 1 were given.\n";
const QByteArray StartLogLine = "****  STARTING KORVEX SHELL  ****";
const QByteArray StopLogLine = "****  STOPPING KORVEX SHELL  ****";
const char HomeToken[] = "<home>";

QByteArray usage()
{
    return "\nUsage: " + ShellRunner::shellBinary().toUtf8()
           + " [options]\n\n"
             "Options:\n"
             "\t-h            : Display this help\n"
             "\t-r ip_address : Use Korvex virtual device specified with your IP address\n"
             "\t-c command    : Launch command and display result in terminal host\n"
             "\t-f file       : Launch all commands listed into file\n"
             "\n";
}

QByteArray helpBlock(const QByteArrayList &rows)
{
    QByteArray text = "\nList of available commands:\n---------------------------\n";
    for (const QByteArray &row : rows)
        text += row + "\n";
    return text + "\n";
}

QByteArray versionAdvice(const QByteArray &deviceVersion, const QByteArray &advice)
{
    return "\nVirtual device is in version: " + deviceVersion + "\nKorvex is in version: 2.8.1\n" + advice
           + "\n\n";
}

const QByteArray DeployAdvice = "If you have problems, deploy a newer version of the virtual device.";
const QByteArray InstallAdvice = "If you have problems, install a newer version of Korvex.";

// What a local-mode run printed after its welcome line; the device list
// banners that may come before it are the device source's business.
QByteArray afterWelcome(const QByteArray &out)
{
    const int at = out.indexOf(Welcome);
    return at < 0 ? QByteArray("<no welcome>\n" + out) : out.mid(at + Welcome.size());
}

QStringList withHome(QStringList arguments, const QString &home)
{
    for (QString &argument : arguments)
        argument.replace(HomeToken, home);
    return arguments;
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT

private slots:
    void optionErrors_data();
    void optionErrors();
    void oneShot_data();
    void oneShot();
    void commandFile_data();
    void commandFile();
    void oneShotWinsOverFile();
    void unreadableCommandFile();
    void remoteModeWithoutDevice();
    void versionReport_data();
    void versionReport();
    void localWelcomeNamesSelectedDevice();
    void startupLog();

private:
    ShellRunner m_runner;
};

void TestStartup::optionErrors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<int>("exitCode");

    const QByteArray unknown = "Unknown option" + usage();
    const QString missing = QString(HomeToken) + "/missing.txt";
    const QString existing = QString(HomeToken) + "/present.txt";

    QTest::newRow("-h") << QStringList{"-h"} << usage() << 0;
    QTest::newRow("-H") << QStringList{"-H"} << usage() << 0;
    QTest::newRow("-h after another option") << QStringList{"-c", "version", "-h"} << usage() << 0;
    QTest::newRow("options after -h unread") << QStringList{"-h", "-x", "-f", missing} << usage() << 0;
    QTest::newRow("unknown option") << QStringList{"-x"} << unknown << 1;
    QTest::newRow("missing argument") << QStringList{"-c"} << unknown << 1;
    QTest::newRow("missing file") << QStringList{"-f", missing}
                                  << QByteArray(HomeToken) + "/missing.txt: no such file or directory\n" << 1;
    QTest::newRow("bad address") << QStringList{"-r", "999.1.1.1"} << QByteArray("999.1.1.1: is not an IPv4 address\n")
                                 << 1;
    QTest::newRow("file fine, address bad") << QStringList{"-f", existing, "-r", "1.2.3.4.5"}
                                            << QByteArray("1.2.3.4.5: is not an IPv4 address\n") << 1;
    QTest::newRow("first failure decides") << QStringList{"-r", "bad", "-f", missing}
                                           << QByteArray("bad: is not an IPv4 address\n") << 1;
}

void TestStartup::optionErrors()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, out);
    QFETCH(int, exitCode);

    m_runner.writeCommandFile("present.txt", "version\n");
    QFile::remove(m_runner.logPath());
    const ShellResult result = m_runner.run(withHome(arguments, m_runner.home()));
    QVERIFY(result.finished);
    QCOMPARE(result.out, out.replace(HomeToken, m_runner.home().toUtf8()));
    QCOMPARE(result.exitCode, exitCode);
    // Option handling ends before the shell starts: no start-up line is logged.
    QVERIFY(!m_runner.log().contains(StartLogLine));
}

void TestStartup::oneShot_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("version") << "version" << VersionLine << 0;
    QTest::newRow("UTF-8 argument") << "nosüch" << QByteArray("Command not found: nosüch\n") << 1;
    QTest::newRow("failed check is 255") << "version 1" << ParamCountError << 255;
    QTest::newRow("help")
        << "help"
        << helpBlock({
               "android             information related to the Android system included in Korvex distribution",
               "battery             actions and information related to the battery widget",
               "devices             generic actions related to virtual devices (listing, selection, ...)",
               "exit                quit this application",
               "gps                 actions and information related to the Global Positioning System widget",
               "help                display this help and display help for each verb",
               "korvex              information related to the Korvex system",
               "network             actions and information related to the network quality of service",
               "pause               perform a pause (useful for automatic tests)",
               "phone               actions related to the phone widget",
               "quit                quit this application",
               "rotation            actions related to the rotation of virtual devices",
               "version             version number of the running Korvex Shell application",
           })
        << 0;
    QTest::newRow("help devices")
        << "help devices"
        << helpBlock({
               "factoryreset        reset the virtual device to factory state (device id or device name) [add "
               "keyword \"force\" at the end to skip the warning message about data loss]",
               "list                show the list of available virtual devices",
               "ping                send a ping to the virtual device to check if it is available",
               "refresh             refresh list of available virtual devices",
               "select              select a virtual device to interact with",
               "show                show the list of available virtual devices",
           })
        << 0;
}

void TestStartup::oneShot()
{
    QFETCH(QString, command);
    QFETCH(QByteArray, out);
    QFETCH(int, exitCode);

    const ShellResult result = m_runner.run({"-c", command});
    QVERIFY(result.finished);
    QVERIFY2(result.out.startsWith(LocalStart), result.out.constData());
    QCOMPARE(afterWelcome(result.out), out);
    QCOMPARE(result.exitCode, exitCode);
}

void TestStartup::commandFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<int>("exitCode");

    QByteArray manyUnknown;
    for (int i = 0; i < 300; ++i)
        manyUnknown += "nosuch\n";
    QByteArray manyUnknownOut;
    for (int i = 0; i < 300; ++i)
        manyUnknownOut += "Command not found: nosuch\n";

    QTest::newRow("statuses add up") << QByteArray("pause 0\n\nversion\n")
                                     << "Command not found: \n" + VersionLine << 1;
    QTest::newRow("signs cancel") << QByteArray("nosuch\nversion x\n")
                                  << "Command not found: nosuch\n" + ParamCountError << 0;
    QTest::newRow("negative sum") << QByteArray("version x\nquit y\n") << ParamCountError + ParamCountError
                                  << 254;
    QTest::newRow("sum modulo 256") << manyUnknown << manyUnknownOut << 300 % 256;
    QTest::newRow("CRLF and no final line feed") << QByteArray("version\r\nversion") << VersionLine + VersionLine
                                                 << 0;
    QTest::newRow("quit does not stop the file") << QByteArray("quit\nversion\n")
                                                 << "Exiting...\n" + VersionLine << 0;
}

void TestStartup::commandFile()
{
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, out);
    QFETCH(int, exitCode);

    const QString path = m_runner.writeCommandFile("commands.txt", content);
    const ShellResult result = m_runner.run({"-f", path});
    QVERIFY(result.finished);
    QVERIFY2(result.out.startsWith(LocalStart), result.out.constData());
    QCOMPARE(afterWelcome(result.out), out);
    QCOMPARE(result.exitCode, exitCode);
}

void TestStartup::oneShotWinsOverFile()
{
    const QString path = m_runner.writeCommandFile("ignored.txt", "nosuch\n");
    const ShellResult result = m_runner.run({"-f", path, "-c", "version"});
    QVERIFY(result.finished);
    QCOMPARE(afterWelcome(result.out), VersionLine);
    QCOMPARE(result.exitCode, 0);
}

void TestStartup::unreadableCommandFile()
{
    // A directory exists, so it passes the option check, but cannot be read as a file.
    const QString path = m_runner.home() + "/commands.d";
    QVERIFY(QDir().mkpath(path));
    const ShellResult result = m_runner.run({"-f", path});
    QVERIFY(result.finished);
    QVERIFY2(afterWelcome(result.out).startsWith(path.toUtf8() + ": unable to open file: "), result.out.constData());
    QCOMPARE(result.exitCode, 1);
}

void TestStartup::remoteModeWithoutDevice()
{
    // No agent answers: the version read fails and "1.0.0" is assumed.
    const ShellResult result = m_runner.run({"-R", SilentAddress, "-c", "devices refresh"});
    QVERIFY(result.finished);
    QCOMPARE(result.out, "Connection mode: remote host\n" + Welcome + versionAdvice("1.0.0", DeployAdvice)
                             + "Command not available in this mode (remote host)\n");
    QCOMPARE(result.exitCode, 255);
}

void TestStartup::versionReport_data()
{
    QTest::addColumn<QString>("agentVersion");
    QTest::addColumn<QByteArray>("advice");
    QTest::addColumn<bool>("persistent");

    QTest::newRow("same version") << "2.8.1" << QByteArray() << true;
    QTest::newRow("threshold itself") << "2.0.3" << versionAdvice("2.0.3", DeployAdvice) << false;
    QTest::newRow("just above threshold") << "2.0.4" << versionAdvice("2.0.4", DeployAdvice) << true;
    QTest::newRow("newer agent") << "2.10" << versionAdvice("2.10", InstallAdvice) << true;
    QTest::newRow("unparsable version") << "beta" << QByteArray() << false;
}

void TestStartup::versionReport()
{
    QFETCH(QString, agentVersion);
    QFETCH(QByteArray, advice);
    QFETCH(bool, persistent);

    DevSim sim(SimAddress, {"--agent-version", agentVersion});
    QVERIFY(sim.start());
    QFile::remove(m_runner.logPath());
    const ShellResult result = m_runner.run({"-r", SimAddress, "-c", "version"});
    sim.stop();
    QVERIFY(result.finished);
    QCOMPARE(result.out, "Connection mode: remote host\n" + Welcome + advice + VersionLine);
    QCOMPARE(result.exitCode, 0);

    const QString log = m_runner.log();
    QVERIFY2(log.contains("[displayInfoVersions] System version: \"" + agentVersion + "\""), qPrintable(log));
    QVERIFY2(log.contains("[displayInfoVersions] Software version: \"2.8.1\""), qPrintable(log));
    QCOMPARE(log.contains("[KorvexClient] Use persistent connection"), persistent);
}

void TestStartup::localWelcomeNamesSelectedDevice()
{
    // One running machine through the stand-in VirtualBox manager: it is selected at start.
    ShellRunner runner;
    const QString state = runner.writeCommandFile(
        "machines.json",
        QString(R"({"machines": [{"name": "Pixel Lab", "uuid": "5150-0001", "state": "running", "ip": "%1",
                                  "extradata": {"korvex/vm-version": "2.8.1"}}]})")
            .arg(LocalMachineAddress)
            .toUtf8());
    runner.environment().insert("KX_VBOXMANAGE", QStringLiteral(KORVEX_SOURCE_DIR "/tests/fakes/VBoxManage"));
    runner.environment().insert("KX_FAKE_VBOX_STATE", state);

    DevSim sim(LocalMachineAddress, {"--agent-version", "2.1"});
    QVERIFY(sim.start());
    const ShellResult result = runner.run({"-c", "version"});
    sim.stop();
    QVERIFY(result.finished);
    QCOMPARE(result.out, LocalStart + Welcome + "\nKorvex virtual device selected: Pixel Lab\n\n"
                             + versionAdvice("2.1", DeployAdvice) + VersionLine);
    QCOMPARE(sim.requests(), QStringList{"type: GetParam parameter { type: KorvexVersion }"});
}

void TestStartup::startupLog()
{
    QFile::remove(m_runner.logPath());
    const ShellResult result = m_runner.run({"-c", "version"});
    QVERIFY(result.finished);

    const QStringList lines = m_runner.log().split('\n');
    const auto indexOf = [&lines](const QString &ending) {
        for (int i = 0; i < lines.size(); ++i) {
            if (lines.at(i).endsWith(ending))
                return i;
        }
        return -1;
    };
    const int start = indexOf("[Korvex Shell] [warning] " + QString(StartLogLine));
    const int version = indexOf("[Korvex Shell] [warning] Korvex shell version: Korvex Shell \"2.8.1\"");
    const int stop = indexOf("[Korvex Shell] [warning] " + QString(StopLogLine));
    QVERIFY2(start >= 0 && version == start + 1 && stop > version, qPrintable(lines.join('\n')));
}

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
