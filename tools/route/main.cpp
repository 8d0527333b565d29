// korvex-route: writes on standard output a command file for korvex-shell -f
// that plays a recorded track as a moving GPS fix. Errors go to standard error
// with exit status 1, so a pipe into the shell never plays half a route.
#include "commandwriter.h"
#include "geojson.h"
#include "routeoptions.h"
#include "schedule.h"
#include "shelllimits.h"
#include "trackchoice.h"
#include "trackreader.h"

#include <QCoreApplication>
#include <QFile>
#include <QSaveFile>
#include <cstdio>

namespace {

constexpr int Failure = 1;

int fail(const QString &message)
{
    std::fprintf(stderr, "korvex-route: %s\n", qUtf8Printable(message));
    return Failure;
}

// Something left out of the route, said on standard error; the route plays.
void note(const QString &track, const QString &message)
{
    std::fprintf(stderr, "korvex-route: %s: %s\n", qUtf8Printable(track), qUtf8Printable(message));
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("korvex-route"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KORVEX_VERSION));

    RouteOptions options;
    const QString optionError = parseRouteOptions(QCoreApplication::arguments(), options);
    if (!optionError.isEmpty())
        return fail(optionError);

    ReadResult read = readTrackFile(options.track);
    Track &track = read.track;
    if (!read.error.isEmpty())
        return fail(options.track + ": " + read.error);
    if (track.skippedLines > 0)
        note(options.track, QStringLiteral("skipped %1 line(s) that are not valid NMEA sentences, the first on line %2")
                                .arg(track.skippedLines)
                                .arg(track.firstSkippedLine));
    const QString choiceError = choosePart(track, options.choice);
    if (!choiceError.isEmpty())
        return fail(options.track + ": " + choiceError);
    for (TrackPoint &point : track.points) {
        const QString error = fitPoint(point);
        if (!error.isEmpty())
            return fail(options.track + ": " + error);
    }
    if (!options.timing.speedKmh) {
        for (const QString &skipped : dropUntimedSegments(track))
            note(options.track, skipped);
    }
    const Schedule schedule = schedulePoints(track.points, options.timing);
    if (!schedule.error.isEmpty())
        return fail(options.track + ": " + schedule.error);

    if (!options.geoJsonPath.isEmpty()) {
        QSaveFile file(options.geoJsonPath);
        if (!file.open(QIODevice::WriteOnly) || file.write(geoJson(track.points, schedule.stops)) < 0 || !file.commit())
            return fail(QStringLiteral("%1: cannot write GeoJSON: %2").arg(options.geoJsonPath, file.errorString()));
    }
    QFile out;
    const QByteArray commands = commandFile(track.points, schedule.stops, options.accuracy);
    if (!out.open(stdout, QIODevice::WriteOnly) || out.write(commands) != commands.size() || !out.flush())
        return fail(QStringLiteral("cannot write the command file: %1").arg(out.errorString()));
    return 0;
}
