// korvex-route: writes on standard output a command file for korvex-shell -f
// that plays a recorded track as a moving GPS fix. Errors go to standard error
// with exit status 1, so a pipe into the shell never plays half a route.
#include "commandwriter.h"
#include "routeoptions.h"
#include "schedule.h"
#include "shelllimits.h"
#include "trackreader.h"

#include <QCoreApplication>
#include <QFile>
#include <cstdio>

namespace {

constexpr int Failure = 1;

int fail(const QString &message)
{
    std::fprintf(stderr, "korvex-route: %s\n", qUtf8Printable(message));
    return Failure;
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
    if (track.badSentences > 0)
        std::fprintf(stderr, "korvex-route: %s: skipped %d bad NMEA sentence(s), the first on line %lld\n",
                     qUtf8Printable(options.track), track.badSentences, track.firstBadLine);
    if (!read.error.isEmpty())
        return fail(options.track + ": " + read.error);
    for (TrackPoint &point : track.points) {
        const QString error = fitPoint(point);
        if (!error.isEmpty())
            return fail(options.track + ": " + error);
    }
    const Schedule schedule = schedulePoints(track.points, options.timing);
    if (!schedule.error.isEmpty())
        return fail(options.track + ": " + schedule.error);

    QFile out;
    const QByteArray commands = commandFile(track.points, schedule.stops, options.accuracy);
    if (!out.open(stdout, QIODevice::WriteOnly) || out.write(commands) != commands.size() || !out.flush())
        return fail(QStringLiteral("cannot write the command file: %1").arg(out.errorString()));
    return 0;
}
