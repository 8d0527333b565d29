// Options: parsed by QCommandLineParser, values checked against one table.
#include "routeoptions.h"

#include "shelllimits.h"
#include "textvalues.h"

#include <QCommandLineParser>
#include <climits>
#include <cmath>
#include <functional>

namespace {

struct ValueOption
{
    const char *name;
    const char *valueName;
    const char *help;
    const char *expected; // completes "--NAME expects "
    std::function<bool(double)> accepts;
    std::function<void(RouteOptions &, double)> store;
};

const ValueOption ValueOptions[] = {
    {"speed", "KMH", "Ignore the track's times and move at KMH km/h along the track.", "a speed above 0 km/h",
     [](double v) { return v > 0; }, [](RouteOptions &o, double v) { o.timing.speedKmh = v; }},
    {"rate", "X", "Play X times faster (below 1: slower).", "a factor above 0",
     [](double v) { return v > 0; }, [](RouteOptions &o, double v) { o.timing.rate = v; }},
    {"loop", "N", "Play the route N times.", "a whole number of times from 1",
     [](double v) { return v >= 1 && v <= INT_MAX && v == std::floor(v); },
     [](RouteOptions &o, double v) { o.timing.loops = static_cast<int>(v); }},
    {"accuracy", "METRES", "Also set the fix accuracy, 0 to 200 metres.", "a number of metres from 0 to 200",
     [](double v) { return inRange(Coordinate::Accuracy, v); },
     [](RouteOptions &o, double v) { o.accuracy = v; }},
    {"segment", "N", "Play only segment N (from 1) of the track.", "a whole number from 1",
     [](double v) { return v >= 1 && v <= INT_MAX && v == std::floor(v); },
     [](RouteOptions &o, double v) { o.choice.segment = static_cast<int>(v); }},
    {"max-pause", "SECONDS", "Shorten every longer pause (a night, a stop) to SECONDS of playing time.",
     "a number of seconds from 1", [](double v) { return v >= 1; },
     [](RouteOptions &o, double v) { o.timing.maxPause = v; }},
};

// Options whose value is a text.
struct TextOption
{
    const char *name;
    const char *valueName;
    const char *help;
    std::function<void(RouteOptions &, const QString &)> store;
};

const TextOption TextOptions[] = {
    {"track", "N|NAME", "Play only track N (from 1, in file order) or the track named NAME.",
     [](RouteOptions &o, const QString &v) { o.choice.track = v; }},
    {"geojson", "FILE", "Also write the route as played to FILE as GeoJSON.",
     [](RouteOptions &o, const QString &v) { o.geoJsonPath = v; }},
};

} // namespace

QString parseRouteOptions(const QStringList &arguments, RouteOptions &options)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Writes a Korvex Shell command file that plays a recorded track (GPX, KML or NMEA)\n"
                       "as GPS fixes. Numbers are read with a dot. Example:\n"
                       "  korvex-route track.gpx | korvex-shell -r 192.168.56.101 -f /dev/stdin\n"
                       "The shell keeps Ctrl-C for its prompt: stop a playback with Ctrl-Z, then kill %%."));
    parser.addHelpOption();
    parser.addVersionOption();
    for (const ValueOption &option : ValueOptions)
        parser.addOption({QString::fromLatin1(option.name), QString::fromLatin1(option.help), option.valueName});
    for (const TextOption &option : TextOptions)
        parser.addOption({QString::fromLatin1(option.name), QString::fromLatin1(option.help), option.valueName});
    parser.addPositionalArgument(QStringLiteral("TRACK"), QStringLiteral("The track file."));
    parser.process(arguments);

    for (const ValueOption &option : ValueOptions) {
        const QString name = QString::fromLatin1(option.name);
        if (!parser.isSet(name))
            continue;
        const QString text = parser.value(name);
        const auto value = finiteNumber(text);
        if (!value || !option.accepts(*value))
            return QStringLiteral("--%1 expects %2, not \"%3\"").arg(name, option.expected, text);
        option.store(options, *value);
    }
    for (const TextOption &option : TextOptions) {
        const QString name = QString::fromLatin1(option.name);
        if (!parser.isSet(name))
            continue;
        if (parser.value(name).isEmpty())
            return QStringLiteral("--%1 expects %2, not an empty text").arg(name, option.valueName);
        option.store(options, parser.value(name));
    }
    if (parser.positionalArguments().size() != 1)
        return QStringLiteral("expects one track file (see --help)");
    options.track = parser.positionalArguments().first();
    return {};
}
