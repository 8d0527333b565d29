// The shell's host environment end to end: where its home and log go, how the
// log is written when the disk or the home fails, the installation settings
// file, and korvex clearcache.
#include <QtTest>

#include "shellrunner.h"

namespace {

const QByteArray Version = "2.8.1 20161117-c0196b8\n";
const QString StartLine = "****  STARTING KORVEX SHELL  ****";
const QString EarlierLine = "a line of an earlier run";

} // namespace

class TestEnvironment : public QObject
{
    Q_OBJECT

private slots:
    void homeAndLog_data();
    void homeAndLog();
    void brokenInstallationSettings();
    void clearCache();
};

void TestEnvironment::homeAndLog_data()
{
    QTest::addColumn<QString>("environment"); // NAME=VALUE or NAME to unset, '|' between; <tmp>: a fresh directory
    QTest::addColumn<QString>("prepare");     // log-dir, log-full, earlier (a log), file (<tmp>/file), or nothing
    QTest::addColumn<QString>("home");        // where the log and the Korvex directory go; empty: aborts
    QTest::addColumn<QString>("errors");      // texts standard error holds, '|' between; <log>: the log's path
    QTest::addColumn<QString>("logLine");     // pattern of the start line in the log; empty: not checked
    QTest::addColumn<bool>("startOnStderr");

    const QString escaped = QRegularExpression::escape(StartLine) + "$";
    const QString told = "Logging activities to file: <log>\n";
    const QString failed = "Error while opening log file: <log>: ";
    const QString stamped = "^\\w{3} {1,2}\\d{1,2} \\d\\d:\\d\\d:\\d\\d \\[Korvex Shell\\] \\[warning\\] " + escaped;
    const QString bare = "^" + escaped;
    const QString pattern = "QT_MESSAGE_PATTERN=%{message}";

    QTest::newRow("default pattern") << "" << "" << "<tmp>" << told << stamped << false;
    QTest::newRow("empty pattern means default") << "QT_MESSAGE_PATTERN=" << "" << "<tmp>" << told << stamped << false;
    QTest::newRow("pattern from the environment") << pattern << "" << "<tmp>" << told << bare << false;
    QTest::newRow("empty KX_LOG_TO_STDERR copies") << pattern + "|KX_LOG_TO_STDERR=" << "" << "<tmp>" << told << bare
                                                   << true;
    QTest::newRow("appended to an earlier run's log") << pattern << "earlier" << "<tmp>" << told << bare << false;
    QTest::newRow("log not openable") << pattern << "log-dir" << "<tmp>" << failed << "" << true;
    // Writes to /dev/full fail with "no space left on device".
    QTest::newRow("disk full") << pattern << "log-full" << "<tmp>" << told << "" << false;
    QTest::newRow("missing parents created") << "KX_HOME=<tmp>/x/y" << "" << "<tmp>/x/y" << told << stamped << false;
    QTest::newRow("empty KX_HOME means default") << "KX_HOME=|HOME=<tmp>" << "" << "<tmp>/.Talvane" << told << stamped
                                                 << false;
    QTest::newRow("uncreatable KX_HOME is fatal") << "KX_HOME=<tmp>/file/sub" << "file" << ""
        << "KX_HOME is set to '<tmp>/file/sub', but this directory cannot be created." << "" << false;
    QTest::newRow("uncreatable default is used anyway") << "KX_HOME|HOME=<tmp>/file|" + pattern << "file"
        << "<tmp>/file/.Talvane" << failed + "|Failed to create \"<tmp>/file/.Talvane/Korvex\" things may go wrong"
        << "" << true;
}

void TestEnvironment::homeAndLog()
{
    QFETCH(QString, environment);
    QFETCH(QString, prepare);
    QFETCH(QString, home);
    QFETCH(QString, errors);
    QFETCH(QString, logLine);
    QFETCH(bool, startOnStderr);

    ShellRunner runner;
    const QString tmp = runner.home();
    for (const QString &entry : environment.replace("<tmp>", tmp).split('|', Qt::SkipEmptyParts)) {
        if (entry.contains('='))
            runner.environment().insert(entry.section('=', 0, 0), entry.section('=', 1));
        else
            runner.environment().remove(entry);
    }
    home.replace("<tmp>", tmp);
    const QString log = home + "/korvex-shell.log";
    if (prepare == "log-dir")
        QVERIFY(QDir().mkpath(log));
    else if (prepare == "log-full")
        QVERIFY(QFile::link("/dev/full", log));
    else if (prepare == "file")
        runner.writeCommandFile("file", "x");
    else if (prepare == "earlier")
        runner.writeCommandFile("korvex-shell.log", (EarlierLine + "\n").toUtf8());

    const ShellResult result = runner.run({"-c", "version"});

    const QString err = QString::fromLocal8Bit(result.err);
    for (const QString &text : errors.replace("<log>", log).replace("<tmp>", tmp).split('|'))
        QVERIFY2(err.contains(text), qPrintable(err));
    QCOMPARE(err.contains(StartLine), startOnStderr);
    if (home.isEmpty()) {
        QVERIFY(!result.finished);
        return;
    }
    QVERIFY(result.finished);
    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.out.endsWith("Welcome to Korvex Shell\n" + Version));
    QVERIFY(QFileInfo(home + "/Korvex").isDir() || prepare == "file");
    if (!logLine.isEmpty()) {
        QFile file(log);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QStringList lines = QString::fromLocal8Bit(file.readAll()).split('\n');
        QVERIFY2(!lines.filter(QRegularExpression(logLine)).isEmpty(), qPrintable(lines.join('\n')));
        QCOMPARE(lines.first() == EarlierLine, prepare == "earlier");
        // No installation settings file lies beside the shell: nothing to warn about.
        QVERIFY(lines.filter("Cannot init install path settings").isEmpty());
    }
}

// The installation file lies beside the executable: run a copy of it.
void TestEnvironment::brokenInstallationSettings()
{
    ShellRunner runner;
    const QString directory = runner.home() + "/install";
    QVERIFY(QDir().mkpath(directory));
    QVERIFY(QFile::copy(ShellRunner::shellBinary(), directory + "/korvex-shell"));
    QVERIFY(QFile::setPermissions(directory + "/korvex-shell", QFile::ReadOwner | QFile::ExeOwner));
    runner.writeCommandFile("install/korvex.ini", "[General\nhost.only.interface=vboxnet0\n");
    QProcess process;
    process.setProcessEnvironment(runner.environment());
    process.start(directory + "/korvex-shell", {"-c", "version"});
    QVERIFY(process.waitForFinished(30000));
    QVERIFY(process.readAllStandardOutput().endsWith(Version));
    QVERIFY2(runner.log().contains("Cannot init install path settings (status=2) " + directory + "/korvex.ini\n"),
             qPrintable(runner.log()));
}

void TestEnvironment::clearCache()
{
    ShellRunner runner;
    const QString base = runner.home();
    const QStringList removed = {"notes.txt", "sub/notes.txt", "sub/deep/firmware.bin", "vm.ova", "old.log",
                                 "Korvex/cache/network/response.dat", "Korvex/templates/phone/template.xml"};
    const QStringList kept = {"image.img", "sub/notes.txt.keep", "Korvex/cache/other.dat", "folder.txt/a.img"};
    for (const QString &path : removed + kept)
        runner.writeCommandFile(path, "x");

    const ShellResult refused = runner.run({"-c", "korvex clearcache now"});
    QCOMPARE(refused.exitCode, 255);
    QVERIFY(QFileInfo::exists(base + "/notes.txt"));

    const ShellResult result = runner.run({"-c", "korvex clearcache"});
    QVERIFY(result.finished);
    QCOMPARE(result.exitCode, 0);
    QVERIFY2(result.out.endsWith("Welcome to Korvex Shell\nKorvex cache cleared \n"), result.out.constData());
    for (const QString &path : removed)
        QVERIFY2(!QFileInfo::exists(base + "/" + path), qPrintable(path));
    for (const QString &path : kept)
        QVERIFY2(QFileInfo::exists(base + "/" + path), qPrintable(path));
    QVERIFY(!QFileInfo::exists(base + "/Korvex/cache/network"));
    QVERIFY(!QFileInfo::exists(base + "/Korvex/templates"));
    // The log went with the rest and started afresh.
    QVERIFY(QFileInfo::exists(runner.logPath()) && !runner.log().contains(StartLine));
    QCOMPARE(QString::fromLocal8Bit(result.err).count("Logging activities to file: " + runner.logPath() + "\n"), 2);
    // Nothing left to clear is no error.
    QVERIFY(runner.run({"-c", "korvex clearcache"}).out.endsWith("Korvex cache cleared \n"));
}

QTEST_GUILESS_MAIN(TestEnvironment)
#include "tst_environment.moc"
