// NMEA reader. A receiver writes several sentences per fix, all with the same
// time of day: consecutive sentences with the same time make one point (GGA
// brings the altitude). Sentences without a fix are dropped without counting;
// other sentence types are ignored once their checksum is right.
#include "nmeareader.h"

#include "textvalues.h"

#include <QRegularExpression>
#include <cmath>

namespace {

enum class Sentence { Rmc, Gga };

struct SentenceType
{
    const char *id;
    Sentence type;
};

const SentenceType SentenceTypes[] = {
    {"GPRMC", Sentence::Rmc},
    {"GNRMC", Sentence::Rmc},
    {"GPGGA", Sentence::Gga},
    {"GNGGA", Sentence::Gga},
};

// Both sentences start with the time of day.
constexpr int TimeField = 1;

// Where the other fields sit: latitude and its hemisphere, then longitude and
// its hemisphere; the fix flag; the altitude (GGA only).
struct Layout
{
    int latitude;
    int fix;
    int altitude; // -1 when the sentence has none
    int minimumFields;
};

const Layout RmcLayout = {3, 2, -1, 10};
const Layout GgaLayout = {2, 6, 9, 10};

constexpr int SecondsPerDay = 24 * 3600;
constexpr double MinutesPerDegree = 60;

// The part between '$' and '*' when the two hex digits after '*' are its checksum.
std::optional<QString> checkedBody(const QString &line)
{
    static const QRegularExpression shape(QStringLiteral("^\\$([^*$]*)\\*([0-9A-Fa-f]{2})$"));
    const QRegularExpressionMatch match = shape.match(line);
    if (!match.hasMatch())
        return std::nullopt;
    const QString body = match.captured(1);
    int sum = 0;
    for (const QChar c : body)
        sum ^= c.unicode();
    if (sum != match.captured(2).toInt(nullptr, 16))
        return std::nullopt;
    return body;
}

// "ddmm.mmmm" or "dddmm.mmmm" with its hemisphere letter, in signed degrees.
std::optional<double> angle(const QString &value, const QString &hemisphere, const QString &positive,
                            const QString &negative)
{
    const auto number = finiteNumber(value);
    if (!number || *number < 0 || (hemisphere != positive && hemisphere != negative))
        return std::nullopt;
    const double degrees = std::floor(*number / 100);
    const double minutes = *number - degrees * 100;
    if (minutes >= MinutesPerDegree)
        return std::nullopt;
    const double result = degrees + minutes / MinutesPerDegree;
    return hemisphere == negative ? -result : result;
}

// "hhmmss[.sss]" in seconds since midnight.
std::optional<double> timeOfDay(const QString &value)
{
    static const QRegularExpression shape(QStringLiteral("^(\\d\\d)(\\d\\d)(\\d\\d(\\.\\d+)?)$"));
    const QRegularExpressionMatch match = shape.match(value);
    if (!match.hasMatch())
        return std::nullopt;
    const int hours = match.captured(1).toInt();
    const int minutes = match.captured(2).toInt();
    const double seconds = match.captured(3).toDouble();
    if (hours > 23 || minutes > 59 || seconds >= 61)
        return std::nullopt;
    return hours * 3600 + minutes * 60 + seconds;
}

enum class Outcome { Point, NoFix, Bad };

// Reads one RMC or GGA sentence's fields into a point.
Outcome readFix(Sentence type, const QStringList &fields, TrackPoint &point)
{
    const Layout &layout = type == Sentence::Rmc ? RmcLayout : GgaLayout;
    if (fields.size() < layout.minimumFields)
        return Outcome::Bad;
    const QString &fix = fields[layout.fix];
    if (type == Sentence::Rmc ? fix != "A" : (fix.isEmpty() || fix == "0"))
        return Outcome::NoFix;
    const auto latitude = angle(fields[layout.latitude], fields[layout.latitude + 1], "N", "S");
    const auto longitude = angle(fields[layout.latitude + 2], fields[layout.latitude + 3], "E", "W");
    if (!latitude || !longitude)
        return Outcome::Bad;
    point.latitude = *latitude;
    point.longitude = *longitude;
    if (!fields[TimeField].isEmpty()) {
        point.time = timeOfDay(fields[TimeField]);
        if (!point.time)
            return Outcome::Bad;
    }
    if (layout.altitude >= 0 && !fields[layout.altitude].isEmpty()) {
        point.altitude = finiteNumber(fields[layout.altitude]);
        if (!point.altitude)
            return Outcome::Bad;
    }
    return Outcome::Point;
}

std::optional<Sentence> sentenceType(const QString &id)
{
    for (const SentenceType &known : SentenceTypes) {
        if (id == QLatin1String(known.id))
            return known.type;
    }
    return std::nullopt;
}

// Times of day become a running clock: a time earlier than the one before
// means midnight has passed.
void unwrapMidnights(QVector<TrackPoint> &points)
{
    double days = 0;
    std::optional<double> previous;
    for (TrackPoint &point : points) {
        if (!point.time)
            continue;
        if (previous && *point.time + days * SecondsPerDay < *previous)
            ++days;
        *point.time += days * SecondsPerDay;
        previous = point.time;
    }
}

} // namespace

ReadResult readNmea(QIODevice &device)
{
    ReadResult result;
    Track &track = result.track;
    QString lastTime; // time field of the last point, to merge sentences of one fix
    for (qint64 line = 1; !device.atEnd(); ++line) {
        const QString text = QString::fromLatin1(device.readLine()).trimmed();
        if (text.isEmpty())
            continue;
        const auto body = checkedBody(text);
        const QStringList fields = body ? body->split(',') : QStringList();
        const auto type = body ? sentenceType(fields[0]) : std::nullopt;
        if (body && !type)
            continue;
        TrackPoint point;
        point.line = line;
        const Outcome outcome = type ? readFix(*type, fields, point) : Outcome::Bad;
        if (outcome == Outcome::Bad) {
            if (track.badSentences++ == 0)
                track.firstBadLine = line;
            continue;
        }
        if (outcome == Outcome::NoFix)
            continue;
        const QString time = fields[TimeField];
        if (!track.points.isEmpty() && !time.isEmpty() && time == lastTime) {
            TrackPoint &same = track.points.last();
            if (!same.altitude)
                same.altitude = point.altitude;
            continue;
        }
        track.points.append(point);
        lastTime = time;
    }
    unwrapMidnights(track.points);
    return result;
}
