// Log file, home directory and cache clearing seen through the real binary.
#include "shellrunner.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QtTest>

namespace {

const QString StartLine = QStringLiteral("****  STARTING KORVEX SHELL  ****");
const QStringList VersionCommand = {"-c", "version"};

void writeFile(const QString &path, const QByteArray &content = "x")
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(path));
    file.write(content);
}

QString readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(file.readAll()) : QString();
}

QStringList lines(const QString &text)
{
    return text.split('\n', Qt::SkipEmptyParts);
}

} // namespace

class TestLogging : public QObject
{
    Q_OBJECT

private slots:
    void startUpLines_data();
    void startUpLines();
    void unwritableLogFallsBackToStderr();
    void uncreatableHomeStopsTheShell();
    void clearCache();
    void clearCacheRejectsArguments();
};

void TestLogging::startUpLines_data()
{
    QTest::addColumn<QStringList>("environment"); // NAME=VALUE
    QTest::addColumn<QString>("expectedLine");   // regular expression of one log line
    QTest::addColumn<bool>("onStderr");

    const QString escaped = QRegularExpression::escape(StartLine);
    QTest::newRow("default pattern")
        << QStringList() << "^\\S+ \\d{1,2} \\d\\d:\\d\\d:\\d\\d \\[Korvex Shell\\] \\[warning\\] " + escaped + "$"
        << false;
    QTest::newRow("pattern from the environment")
        << QStringList{"QT_MESSAGE_PATTERN=%{message}"} << "^" + escaped + "$" << false;
    QTest::newRow("empty KX_LOG_TO_STDERR copies to stderr")
        << QStringList{"QT_MESSAGE_PATTERN=%{message}", "KX_LOG_TO_STDERR="} << "^" + escaped + "$" << true;
}

void TestLogging::startUpLines()
{
    QFETCH(QStringList, environment);
    QFETCH(QString, expectedLine);
    QFETCH(bool, onStderr);
    ShellRunner shell;
    for (const QString &entry : environment)
        shell.environment().insert(entry.section('=', 0, 0), entry.section('=', 1));

    const ShellResult result = shell.run(VersionCommand);

    QVERIFY(result.finished);
    const QRegularExpression line(expectedLine);
    const QString log = shell.log();
    QVERIFY2(!lines(log).filter(line).isEmpty(), qPrintable(log));
    const QString err = QString::fromLocal8Bit(result.err);
    QVERIFY2(err.startsWith("Logging activities to file: " + shell.logPath() + "\n"), qPrintable(err));
    QCOMPARE(!lines(err).filter(line).isEmpty(), onStderr);
}

void TestLogging::unwritableLogFallsBackToStderr()
{
    ShellRunner shell;
    QVERIFY(QDir().mkpath(shell.logPath()));

    const ShellResult result = shell.run(VersionCommand);

    QVERIFY(result.finished);
    const QString err = QString::fromLocal8Bit(result.err);
    QVERIFY2(err.startsWith("Error while opening log file: " + shell.logPath() + ": "), qPrintable(err));
    QVERIFY2(err.contains(StartLine), qPrintable(err));
    QVERIFY(!err.contains("Logging activities to file: "));
}

void TestLogging::uncreatableHomeStopsTheShell()
{
    ShellRunner shell;
    writeFile(shell.home() + "/file");
    const QString home = shell.home() + "/file/sub";
    shell.environment().insert("KX_HOME", home);

    const ShellResult result = shell.run(VersionCommand);

    QVERIFY(!result.finished);
    const QString message = "KX_HOME is set to '" + home + "', but this directory cannot be created.";
    QVERIFY2(result.err.contains(message.toLocal8Bit()), result.err.constData());
}

void TestLogging::clearCache()
{
    ShellRunner shell;
    const QString base = shell.home();
    const QStringList removed = {"notes.txt", "sub/notes.txt", "sub/deep/firmware.bin", "vm.ova", "old.log",
                                 "Korvex/cache/network/response.dat", "Korvex/templates/phone/template.xml"};
    const QStringList kept = {"image.img", "sub/image.img", "Korvex/cache/other.dat"};
    for (const QString &path : removed + kept)
        writeFile(base + "/" + path);

    const ShellResult result = shell.run({"-c", "korvex clearcache"});

    QVERIFY(result.finished);
    QCOMPARE(result.exitCode, 0);
    QVERIFY2(result.out.contains("Korvex cache cleared \n"), result.out.constData());
    for (const QString &path : removed)
        QVERIFY2(!QFileInfo::exists(base + "/" + path), qPrintable(path));
    for (const QString &path : kept)
        QVERIFY2(QFileInfo::exists(base + "/" + path), qPrintable(path));
    QVERIFY(!QFileInfo::exists(base + "/Korvex/cache/network"));
    QVERIFY(!QFileInfo::exists(base + "/Korvex/templates"));

    // The log was deleted with the rest and started afresh.
    QVERIFY(QFileInfo::exists(shell.logPath()));
    QVERIFY2(!shell.log().contains(StartLine), qPrintable(shell.log()));
    const QString announce = "Logging activities to file: " + shell.logPath() + "\n";
    QCOMPARE(QString::fromLocal8Bit(result.err).count(announce), 2);
}

void TestLogging::clearCacheRejectsArguments()
{
    ShellRunner shell;
    writeFile(shell.home() + "/notes.txt");

    const ShellResult result = shell.run({"-c", "korvex clearcache now"});

    QVERIFY(result.finished);
    QVERIFY(!result.out.contains("Korvex cache cleared"));
    QVERIFY(QFileInfo::exists(shell.home() + "/notes.txt"));
    QVERIFY(shell.log().contains(StartLine));
}

QTEST_GUILESS_MAIN(TestLogging)
#include "tst_logging.moc"
