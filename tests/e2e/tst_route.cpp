// korvex-route: the command file written for small tracks of every format, the
// errors of bad tracks, and a route piped into the real shell on a simulated
// device under a locale whose decimal mark is a comma.
#include <QRegularExpression>
#include <QtTest>

#include "devsim.h"
#include "shellrunner.h"

namespace {

const QString Address = "127.0.0.57";
const QString Tracks = QStringLiteral(KORVEX_SOURCE_DIR "/tests/route/");

struct RouteRun
{
    QByteArray out;
    QString err;
    int exitCode = -1;
};

// Runs korvex-route in the track folder, so messages name tracks as given.
RouteRun route(const QString &arguments)
{
    QProcess process;
    process.setWorkingDirectory(Tracks);
    process.start(QStringLiteral(KORVEX_ROUTE_BIN), arguments.split(' '));
    if (!process.waitForFinished(30000))
        return {};
    return {process.readAllStandardOutput(), QString::fromUtf8(process.readAllStandardError()).trimmed(),
            process.exitCode()};
}

QByteArray contentOf(const QString &name)
{
    QFile file(Tracks + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("missing " + name.toUtf8());
}

} // namespace

class TestRoute : public QObject
{
    Q_OBJECT

private slots:
    void commandFile_data();
    void commandFile();
    void badInput_data();
    void badInput();
    void playedByTheShell();
};

void TestRoute::commandFile_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QString>("expected"); // the command file, kept beside the track
    QTest::addColumn<QString>("diagnostics");
    QTest::newRow("GPX 1.1 times, zone, point within a second dropped") << "timed.gpx" << "timed.cmds" << "";
    QTest::newRow("GPX 1.0 route points paced by speed") << "--speed 36 route.gpx" << "route.cmds" << "";
    QTest::newRow("KML LineString looped, with accuracy")
        << "--speed 360 --loop 2 --accuracy 12.5 line.kml" << "line.cmds" << "";
    QTest::newRow("KML gx:Track over midnight and the antimeridian") << "track.kml" << "track.cmds" << "";
    QTest::newRow("NMEA RMC and GGA merged, bad sentences counted")
        << "log.nmea" << "log.cmds"
        << "korvex-route: log.nmea: skipped 2 bad NMEA sentence(s), the first on line 4";
}

void TestRoute::commandFile()
{
    QFETCH(QString, arguments);
    QFETCH(QString, expected);
    QFETCH(QString, diagnostics);
    const RouteRun run = route(arguments);
    QCOMPARE(run.err, diagnostics);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(QString::fromUtf8(run.out), QString::fromUtf8(contentOf(expected)));
}

void TestRoute::badInput_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QString>("message");
    QTest::newRow("unreadable") << "absent.gpx" << "absent.gpx: cannot read the file: No such file or directory";
    QTest::newRow("unknown format")
        << "unknown.txt" << "unknown.txt: unknown track format (expected GPX, KML or an NMEA log)";
    QTest::newRow("no point") << "empty.kml" << "empty.kml: no track point found";
    QTest::newRow("broken XML") << "broken.gpx" << "broken.gpx: line 4: broken XML: Opening and ending tag mismatch.";
    QTest::newRow("outside the shell's range") << "outside.gpx" << "outside.gpx: line 4: latitude 90 is outside [-90; 90)";
    QTest::newRow("no times, no speed") << "route.gpx" << "route.gpx: the track has no times: give --speed KMH to pace it";
    QTest::newRow("no loop") << "--loop 0 route.gpx" << "--loop expects a whole number of times from 1, not \"0\"";
}

void TestRoute::badInput()
{
    QFETCH(QString, arguments);
    QFETCH(QString, message);
    const RouteRun run = route(arguments);
    QCOMPARE(run.err, "korvex-route: " + message);
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.out, QByteArray());
}

void TestRoute::playedByTheShell()
{
    DevSim device(Address);
    QVERIFY(device.start());
    const RouteRun played = route("--rate 5 timed.gpx");
    QCOMPARE(played.exitCode, 0);
    ShellRunner shell;
    shell.environment().insert("LC_ALL", "de_DE.UTF-8");
    const ShellResult result = shell.run({"-r", Address, "-f", "/dev/stdin"}, played.out);
    QVERIFY(result.finished);
    QCOMPARE(result.exitCode, 0);

    static const QRegularExpression fix("SetParam parameter \\{ type: Gps(Latitude|Longitude) .* doubleValue: (\\S+)");
    QStringList positions;
    for (const QString &request : device.requests()) {
        const QRegularExpressionMatch match = fix.match(request);
        if (match.hasMatch())
            positions << match.captured(2);
    }
    QCOMPARE(positions.join(' '), "48.856614 2.3522219 48.857 2.353 48.858 2.353");
}

QTEST_GUILESS_MAIN(TestRoute)
#include "tst_route.moc"
