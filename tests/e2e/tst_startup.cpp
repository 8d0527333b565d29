// The shell binary end to end: options and their errors, one-shot and file
// modes with their exit statuses, and the version report at start-up.
#include <QtTest>

#include "devsim.h"
#include "shellrunner.h"

namespace {

// Simulators take a free address from 127.0.0.174 on; nothing listens on 127.0.0.170.
constexpr int SimPool = 174;
const QString DeadAddress = "127.0.0.170";
const QByteArray Local = "Connection mode: local host\nWelcome to Korvex Shell\n";
const QByteArray Remote = "Connection mode: remote host\nWelcome to Korvex Shell\n";
const QByteArray Version = "2.8.1 20161117-c0196b8\n";
const QByteArray Count = "Syntax error: Command expects 0 parameters while 1 were given.\n";
const QByteArray NotInteger = "Syntax error: Parameter 1 should be of type Integer\n";

QByteArray usage()
{
    return "\nUsage: " + ShellRunner::shellBinary().toUtf8()
           + " [options]\n\nOptions:\n"
             "\t-h            : Display this help\n"
             "\t-r ip_address : Use Korvex virtual device specified with your IP address\n"
             "\t-c command    : Launch command and display result in terminal host\n"
             "\t-f file       : Launch all commands listed into file\n\n";
}

QByteArray advice(const QByteArray &device, bool deploy)
{
    return "\nVirtual device is in version: " + device + "\nKorvex is in version: 2.8.1\nIf you have problems, "
           + (deploy ? "deploy a newer version of the virtual device." : "install a newer version of Korvex.")
           + "\n\n";
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT

private slots:
    void run_data();
    void run();
};

void TestStartup::run_data()
{
    QTest::addColumn<QStringList>("arguments"); // <home>: the shell's home, <file>: the command file, <sim>
    QTest::addColumn<QByteArray>("file");       // content of <file>, which exists even when empty
    QTest::addColumn<QString>("agent");         // version of a simulated agent at <sim>, or none
    QTest::addColumn<QByteArray>("out");        // <home> as in arguments
    QTest::addColumn<int>("exitCode");

    const QByteArray unknown = "Unknown option" + usage();
    const QByteArray none;
    const QByteArray missing = "<home>/missing.txt: no such file or directory\n";
    const QStringList script = {"-f", "<file>"};
    const QString noAgent;

    QTest::newRow("-h") << QStringList{"-h"} << none << noAgent << usage() << 0;
    QTest::newRow("-H after another option") << QStringList{"-c", "version", "-H"} << none << noAgent << usage() << 0;
    QTest::newRow("unknown option") << QStringList{"-x"} << none << noAgent << unknown << 1;
    QTest::newRow("missing argument") << QStringList{"-c"} << none << noAgent << unknown << 1;
    QTest::newRow("missing file") << QStringList{"-F", "<home>/missing.txt"} << none << noAgent << missing << 1;
    QTest::newRow("bad address") << QStringList{"-r", "999.1.1.1"} << none << noAgent
                                 << QByteArray("999.1.1.1: is not an IPv4 address\n") << 1;
    QTest::newRow("file fine, address bad") << QStringList{"-f", "<file>", "-r", "1.2.3.4.5"} << none << noAgent
                                            << QByteArray("1.2.3.4.5: is not an IPv4 address\n") << 1;
    QTest::newRow("first failure decides") << QStringList{"-r", "bad", "-f", "<home>/missing.txt"} << none
                                           << noAgent << QByteArray("bad: is not an IPv4 address\n") << 1;
    QTest::newRow("later option wins") << QStringList{"-c", "nosuch", "-C", "version"} << none << noAgent
                                       << Local + Version << 0;
    QTest::newRow("one-shot unknown, UTF-8") << QStringList{"-c", "nosüch"} << none << noAgent
                                             << Local + "Command not found: nosüch\n" << 1;
    QTest::newRow("one-shot failed check") << QStringList{"-c", "version 1"} << none << noAgent << Local + Count
                                           << 255;
    QTest::newRow("one-shot wins over the file") << QStringList{"-f", "<file>", "-c", "version"}
                                                 << QByteArray("nosuch\n") << noAgent << Local + Version << 0;
    QTest::newRow("statuses add up") << script << QByteArray("pause 0\n\nversion\n") << noAgent
                                     << Local + "Command not found: \n" + Version << 1;
    QTest::newRow("signs cancel") << script << QByteArray("nosuch\nversion x\n") << noAgent
                                  << Local + "Command not found: nosuch\n" + Count << 0;
    QTest::newRow("negative sum") << script << QByteArray("version x\npause\n") << noAgent
                                  << Local + Count + "Syntax error: Command expects 1 parameters while 0 were given.\n"
                                  << 254;
    QTest::newRow("sum modulo 256") << script << QByteArray("x\n").repeated(257) << noAgent
                                    << Local + QByteArray("Command not found: x\n").repeated(257) << 1;
    QTest::newRow("CRLF, no final line feed, quit does not stop the file")
        << script << QByteArray("quit\r\nversion") << noAgent << Local + "Exiting...\n" + Version << 0;
    QTest::newRow("invalid UTF-8") << script << QByteArray("pause \xff\n\xc3(\n") << noAgent
                                   << Local + NotInteger + "Command not found: \xef\xbf\xbd(\n" << 0;
    QTest::newRow("line of a megabyte") << script << "pause " + QByteArray(1 << 20, '9') + "\n" << noAgent
                                        << Local + NotInteger << 255;
    QTest::newRow("unreadable file") << script + QStringList{"-f", "<home>"} << none << noAgent
                                     << Local + "<home>: unable to open file: file to open is a directory\n" << 1;
    // The version read fails without an agent: "1.0.0" is assumed.
    QTest::newRow("no agent") << QStringList{"-R", DeadAddress, "-c", "version"} << none << noAgent
                              << Remote + advice("1.0.0", true) + Version << 0;
    QTest::newRow("IPv6 loopback") << QStringList{"-R", "::1", "-c", "version"} << none << noAgent
                                   << Remote + advice("1.0.0", true) + Version << 0;
    QTest::newRow("same version") << QStringList{"-r", "<sim>", "-c", "version"} << none << "2.8.1"
                                  << Remote + Version << 0;
    QTest::newRow("older agent") << QStringList{"-r", "<sim>", "-c", "version"} << none << "2.8.0-rc1"
                                 << Remote + advice("2.8.0-rc1", true) + Version << 0;
    QTest::newRow("newer agent") << QStringList{"-r", "<sim>", "-c", "version"} << none << "2.10"
                                 << Remote + advice("2.10", false) + Version << 0;
    QTest::newRow("unparsable version") << QStringList{"-r", "<sim>", "-c", "version"} << none << "beta"
                                        << Remote + Version << 0;
}

void TestStartup::run()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, file);
    QFETCH(QString, agent);
    QFETCH(QByteArray, out);
    QFETCH(int, exitCode);

    ShellRunner runner;
    const auto sim = agent.isEmpty() ? nullptr : DevSim::startFree(SimPool, 6, {"--agent-version", agent});
    QVERIFY(agent.isEmpty() || sim);
    const QString path = runner.writeCommandFile("commands.txt", file);
    arguments.replaceInStrings("<file>", path).replaceInStrings("<home>", runner.home());
    arguments.replaceInStrings("<sim>", sim ? sim->address() : QString());
    const ShellResult result = runner.run(arguments);
    QVERIFY(result.finished);
    QCOMPARE(result.out, out.replace("<home>", runner.home().toUtf8()));
    QCOMPARE(result.exitCode, exitCode);
    // Option errors end before the shell starts: nothing of it is logged.
    const QString log = runner.log();
    QCOMPARE(log.contains("[warning] ****  STARTING KORVEX SHELL  ****\n"), out.contains("Welcome"));
    QCOMPARE(log.contains("[warning] Korvex shell version: Korvex Shell \"2.8.1\"\n"), out.contains("Welcome"));
    QCOMPARE(log.contains("[displayInfoVersions] Software version: \"2.8.1\""), out.startsWith(Remote));
}

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
