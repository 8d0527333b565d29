// Command files no one would write on purpose: binary bytes, invalid UTF-8,
// lines of a megabyte, and a file removed while the shell reads it. The shell
// must run every line with its usual outcome and exit with the sum.
#include <QtTest>

#include "devsim.h"
#include "shellrunner.h"

namespace {

const char DeviceAddress[] = "127.0.0.244";
const char VersionLine[] = "2.8.1 20161117-c0196b8";
const char NotFound[] = "Command not found: ";
constexpr int MegaByte = 1024 * 1024;
constexpr int BinaryLines = 300;
constexpr quint32 BinarySeed = 3;
// Enough lines that the shell reads most of the file after it is removed.
constexpr int LinesAfterRemoval = 20000;
constexpr int RemovalWaitMs = 30000;

// Random lines of bytes without letters, so no line can name a command,
// and without line ends, so each stays one line.
QByteArray binaryLines()
{
    QRandomGenerator random(BinarySeed);
    QByteArray file;
    for (int i = 0; i < BinaryLines; ++i) {
        const int length = random.bounded(200);
        for (int j = 0; j < length; ++j) {
            char byte;
            do
                byte = char(random.bounded(256));
            while (byte == '\n' || byte == '\r' || QChar::isLetter(uchar(byte)));
            file += byte;
        }
        file += '\n';
    }
    return file;
}

QList<QByteArray> outputLines(const QByteArray &out)
{
    QList<QByteArray> lines = out.split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

} // namespace

class TestHostileFiles : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void hostileLines_data();
    void hostileLines();
    void binaryBytes();
    void fileRemovedDuringTheRun();

private:
    DevSim m_sim{DeviceAddress};
};

void TestHostileFiles::initTestCase()
{
    QVERIFY(m_sim.start());
}

void TestHostileFiles::hostileLines_data()
{
    QTest::addColumn<QByteArray>("file");
    // The output after the banner, one entry per line: each line starts with it.
    QTest::addColumn<QList<QByteArray>>("output");
    QTest::addColumn<int>("exitCode");
    // A request the device must have received, as logged; empty for none.
    QTest::addColumn<QString>("request");

    QTest::newRow("invalid UTF-8")
        << QByteArray("battery setlevel \xff\n\xc3\x28\nphone sms 555 \xff\xfe\nversion \xed\xa0\x80\n")
        << QList<QByteArray>{"Syntax error: Parameter 1 should be of type Integer", NotFound,
                             "Syntax error: Command expects 0 parameters while 1 were given."}
        << ((-1 + 1 + 0 - 1) & 0xff)
        // Each undecodable byte arrives as U+FFFD, base64 of EF BF BD.
        << "stringValue: \"sms sendb64 555 77+977+9\\n\"";

    const QByteArray mega(MegaByte, 'b');
    QTest::newRow("lines of a megabyte")
        << "x" + mega + "\nbattery setlevel 9" + QByteArray(MegaByte, '9') + "\nphone sms 555 " + mega
               + "\nphone baseband " + mega + "\nversion\n"
        << QList<QByteArray>{NotFound + QByteArray("x") + mega, "Syntax error: Parameter 1 should be of type Integer",
                             "Message too long: can be at most 4000 characters long", VersionLine}
        << ((1 - 1 - 1 + 0 + 0) & 0xff) << "stringValue: \"" + QString(mega) + "\\n\"";
}

void TestHostileFiles::hostileLines()
{
    QFETCH(QByteArray, file);
    QFETCH(QList<QByteArray>, output);
    QFETCH(int, exitCode);
    QFETCH(QString, request);

    ShellRunner shell;
    const ShellResult result = shell.run({"-r", DeviceAddress, "-f", shell.writeCommandFile("hostile.txt", file)});

    QVERIFY(result.finished);
    QCOMPARE(result.exitCode, exitCode);
    const QList<QByteArray> lines = outputLines(result.out);
    QVERIFY(lines.size() >= output.size());
    const QList<QByteArray> body = lines.mid(lines.size() - output.size());
    for (int i = 0; i < output.size(); ++i)
        QVERIFY2(body.at(i).startsWith(output.at(i)), body.at(i).left(200).constData());
    if (!request.isEmpty()) {
        bool received = false;
        for (const QString &logged : m_sim.requests())
            received = received || logged.contains(request);
        QVERIFY(received);
    }
}

void TestHostileFiles::binaryBytes()
{
    ShellRunner shell;
    const ShellResult result = shell.run({"-r", DeviceAddress, "-f", shell.writeCommandFile("binary.bin", binaryLines())});

    QVERIFY(result.finished);
    QCOMPARE(result.exitCode, BinaryLines & 0xff);
    int unknown = 0;
    for (const QByteArray &line : outputLines(result.out))
        unknown += line.startsWith(NotFound) ? 1 : 0;
    QCOMPARE(unknown, BinaryLines);
}

void TestHostileFiles::fileRemovedDuringTheRun()
{
    // The removal comes while the shell pauses after the version line; an
    // open file stays readable to the end.
    ShellRunner shell;
    QByteArray content = "version\npause 1\n";
    for (int i = 0; i < LinesAfterRemoval; ++i)
        content += "nosuch " + QByteArray::number(i) + "\n";
    const QString path = shell.writeCommandFile("removed.txt", content);

    QProcess process;
    process.setProcessEnvironment(shell.environment());
    process.start(ShellRunner::shellBinary(), {"-r", DeviceAddress, "-f", path});
    QVERIFY(process.waitForStarted(10000));
    QByteArray out;
    QDeadlineTimer deadline(RemovalWaitMs);
    while (!out.contains(VersionLine) && !deadline.hasExpired() && process.state() == QProcess::Running) {
        process.waitForReadyRead(100);
        out += process.readAllStandardOutput();
    }
    QVERIFY2(out.contains(VersionLine), out.constData());
    QVERIFY(QFile::remove(path));

    QVERIFY(process.waitForFinished(RemovalWaitMs));
    out += process.readAllStandardOutput();
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), LinesAfterRemoval & 0xff);
    QCOMPARE(out.count(NotFound), LinesAfterRemoval);
    QVERIFY(out.endsWith(NotFound + QByteArray("nosuch ") + QByteArray::number(LinesAfterRemoval - 1) + "\n"));
}

QTEST_GUILESS_MAIN(TestHostileFiles)
#include "tst_hostilefiles.moc"
