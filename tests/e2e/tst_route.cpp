// korvex-route: the command file written for small tracks of every format (as
// real receivers and apps write them, noise and gaps included), the errors of
// bad tracks, the GeoJSON of a route, and a route piped into the real shell on
// a simulated device: played under a locale whose decimal mark is a comma, and
// stopped by ending the shell.
#include <QRegularExpression>
#include <QtTest>

#include <csignal>

#include "devsim.h"
#include "shellrunner.h"

namespace {

const QString Address = "127.0.0.57";
const QString StopAddress = "127.0.0.58";
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

// The latitudes and longitudes the device was given, in order.
QString positionsSent(const DevSim &device)
{
    static const QRegularExpression fix("SetParam parameter \\{ type: Gps(Latitude|Longitude) .* doubleValue: (\\S+)");
    QStringList positions;
    for (const QString &request : device.requests()) {
        const QRegularExpressionMatch match = fix.match(request);
        if (match.hasMatch())
            positions << match.captured(2);
    }
    return positions.join(' ');
}

} // namespace

class TestRoute : public QObject
{
    Q_OBJECT

private slots:
    void convert_data();
    void convert();
    void geoJson();
    void playedByTheShell();
    void stoppedByEndingTheShell();
};

void TestRoute::convert_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QString>("expected");    // the command file, kept beside the track; none: refused, status 1
    QTest::addColumn<QString>("diagnostics"); // on standard error, after "korvex-route: "
    QTest::newRow("GPX 1.1 times, zone, point within a second dropped") << "timed.gpx" << "timed.cmds" << "";
    QTest::newRow("GPX 1.0 route points paced by speed") << "--speed 36 route.gpx" << "route.cmds" << "";
    QTest::newRow("KML LineString looped, with accuracy")
        << "--speed 360 --loop 2 --accuracy 12.5 line.kml" << "line.cmds" << "";
    QTest::newRow("KML gx:Track over midnight and the antimeridian") << "track.kml" << "track.cmds" << "";
    QTest::newRow("NMEA RMC and GGA merged, bad sentences counted")
        << "log.nmea" << "log.cmds"
        << "log.nmea: skipped 2 line(s) that are not valid NMEA sentences, the first on line 4";
    QTest::newRow("NMEA header, cut and binary lines, proprietary, no checksum, three talkers, midnight")
        << "noisy.nmea" << "noisy.cmds"
        << "noisy.nmea: skipped 6 line(s) that are not valid NMEA sentences, the first on line 1";
    QTest::newRow("GPX <ele/> and <time/> absent, the untimed point placed by distance")
        << "empty.gpx" << "empty.cmds" << "";
    QTest::newRow("KML empty gx:coord left out with its when, empty when") << "paused.kml" << "paused.cmds" << "";
    QTest::newRow("GPX timed tracks beside an untimed one, night capped")
        << "--max-pause 60 dump.gpx" << "dump.cmds"
        << "dump.gpx: skipped track 2 \"Planned\": it has no times (play it with --speed KMH)";
    QTest::newRow("GPX untimed track chosen by name, paced")
        << "--track Planned --speed 36 dump.gpx" << "planned.cmds" << "";
    QTest::newRow("GPX one segment chosen") << "--track 1 --segment 2 dump.gpx" << "segment.cmds" << "";
    QTest::newRow("unreadable") << "absent.gpx" << "" << "absent.gpx: cannot read the file: No such file or directory";
    QTest::newRow("unknown format")
        << "unknown.txt" << "" << "unknown.txt: unknown track format (expected GPX, KML or an NMEA log)";
    QTest::newRow("no point") << "empty.kml" << "" << "empty.kml: no track point found";
    QTest::newRow("broken XML")
        << "broken.gpx" << "" << "broken.gpx: line 4: broken XML: Opening and ending tag mismatch.";
    QTest::newRow("outside the shell's range")
        << "outside.gpx" << "" << "outside.gpx: line 4: latitude 90 is outside [-90; 90)";
    QTest::newRow("no times, no speed")
        << "route.gpx" << "" << "route.gpx: the track has no times: give --speed KMH to pace it";
    QTest::newRow("no loop")
        << "--loop 0 route.gpx" << "" << "--loop expects a whole number of times from 1, not \"0\"";
    QTest::newRow("NMEA without a fix")
        << "nofix.nmea" << ""
        << "nofix.nmea: no usable fix: 2 RMC or GGA sentence(s) without a fix, 2 line(s) that are not valid NMEA "
           "sentences";
    const QString tracks = "1 \"Day one\", 2 \"Planned\"";
    QTest::newRow("no such track")
        << "--track 3 dump.gpx" << "" << "dump.gpx: no track \"3\" in the file; its tracks: " + tracks;
    QTest::newRow("segment of which track")
        << "--segment 1 dump.gpx" << "" << "dump.gpx: --segment needs --track: the file has 2 tracks: " + tracks;
}

void TestRoute::convert()
{
    QFETCH(QString, arguments);
    QFETCH(QString, expected);
    QFETCH(QString, diagnostics);
    const RouteRun run = route(arguments);
    QCOMPARE(run.err, diagnostics.isEmpty() ? QString() : "korvex-route: " + diagnostics);
    QCOMPARE(run.exitCode, expected.isEmpty() ? 1 : 0);
    QCOMPARE(QString::fromUtf8(run.out), QString::fromUtf8(expected.isEmpty() ? QByteArray() : contentOf(expected)));
}

// The route as played: the path, then each stop with its offset, the night capped.
void TestRoute::geoJson()
{
    QTemporaryDir dir;
    const RouteRun run = route("--max-pause 60 --geojson " + dir.filePath("dump.geojson") + " dump.gpx");
    QCOMPARE(run.exitCode, 0);
    QFile written(dir.filePath("dump.geojson"));
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(written.readAll()), QString::fromUtf8(contentOf("dump.geojson")));
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
    QCOMPARE(positionsSent(device), "48.856614 2.3522219 48.857 2.353 48.858 2.353");
}

// The shell keeps Ctrl-C for its prompt: a playback is stopped by ending the
// shell with SIGTERM. It ends at once, and the device keeps the fix it had.
void TestRoute::stoppedByEndingTheShell()
{
    DevSim device(StopAddress);
    QVERIFY(device.start());
    ShellRunner runner;
    QProcess router;
    QProcess shell;
    shell.setProcessEnvironment(runner.environment());
    router.setWorkingDirectory(Tracks);
    router.setStandardOutputProcess(&shell);
    shell.start(QStringLiteral(KORVEX_SHELL_BIN), {"-r", StopAddress, "-f", "/dev/stdin"});
    router.start(QStringLiteral(KORVEX_ROUTE_BIN), {"timed.gpx"});
    // The next fix is 5 s away.
    QTRY_COMPARE_WITH_TIMEOUT(positionsSent(device), "48.856614 2.3522219", 60000);
    ::kill(pid_t(shell.processId()), SIGTERM);
    QVERIFY(shell.waitForFinished(10000));
    QCOMPARE(shell.exitStatus(), QProcess::CrashExit);
    QCOMPARE(shell.exitCode(), SIGTERM);
    QCOMPARE(positionsSent(device), "48.856614 2.3522219");
}

QTEST_GUILESS_MAIN(TestRoute)
#include "tst_route.moc"
