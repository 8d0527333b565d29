// NMEA reader. A receiver writes several sentences per fix, all with the same
// time of day: consecutive sentences with the same time make one point (GGA
// brings the altitude). Real logs carry noise (a logger's header, lines cut
// or garbled when the receiver or the logger restarted, bad checksums): those
// lines are skipped and counted. Sentences without a fix are dropped without
// counting; other sentence types, proprietary ones included, are ignored once
// their checksum is right.
#include "nmeareader.h"

#include "textvalues.h"

#include <QRegularExpression>
#include <cmath>

namespace {

enum class Sentence { Rmc, Gga };

struct SentenceType
{
    const char *formatter; // after the two letters of the talker
    Sentence type;
};

const SentenceType SentenceTypes[] = {
    {"RMC", Sentence::Rmc},
    {"GGA", Sentence::Gga},
};

constexpr int TalkerLength = 2;
// A log is told by a sentence within this many lines of its start.
constexpr int SniffedLines = 100;

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
    int wholeFields[2]; // as many as a whole sentence has, name included, by protocol version
};

const Layout RmcLayout = {3, 2, -1, 10, {12, 14}};
const Layout GgaLayout = {2, 6, 9, 10, {15, 15}};

const Layout &layoutOf(Sentence type)
{
    return type == Sentence::Rmc ? RmcLayout : GgaLayout;
}

constexpr int SecondsPerDay = 24 * 3600;
constexpr double MinutesPerDegree = 60;

// A line as text, whole: a NUL byte (left by a receiver's binary output) does
// not end it.
QString lineText(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.constData(), bytes.size()).trimmed();
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
    const Layout &layout = layoutOf(type);
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

// A proprietary sentence ("$P" and a maker's code) is never one of ours, even
// when its name ends like one ($PGRMC is a receiver's configuration).
std::optional<Sentence> sentenceType(const QString &id)
{
    if (id.size() != TalkerLength + 3 || id.startsWith('P'))
        return std::nullopt;
    for (const SentenceType &known : SentenceTypes) {
        if (id.midRef(TalkerLength) == QLatin1String(known.formatter))
            return known.type;
    }
    return std::nullopt;
}

// The fields of the sentence that ends the line, name first. Bytes before its
// '$' (a sentence cut short, a logger's time stamp) are not part of it. A
// checksum must be right; without one, as older receivers write, only an RMC
// or GGA sentence with all its fields counts, since a line cut short has fewer.
std::optional<QStringList> sentenceFields(const QString &line)
{
    static const QRegularExpression shape(QStringLiteral("\\$([^*$]*)(\\*([0-9A-Fa-f]{2}))?$"));
    const QRegularExpressionMatch match = shape.match(line);
    if (!match.hasMatch())
        return std::nullopt;
    const QString body = match.captured(1);
    const QStringList fields = body.split(',');
    if (match.capturedLength(2) > 0) {
        int sum = 0;
        for (const QChar c : body)
            sum ^= c.unicode();
        return sum == match.captured(3).toInt(nullptr, 16) ? std::optional<QStringList>(fields) : std::nullopt;
    }
    const auto type = sentenceType(fields[0]);
    if (!type)
        return std::nullopt;
    const Layout &layout = layoutOf(*type);
    if (fields.size() < layout.wholeFields[0] || fields.size() > layout.wholeFields[1])
        return std::nullopt;
    return fields;
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
        while (previous && *point.time + days * SecondsPerDay < *previous)
            ++days;
        *point.time += days * SecondsPerDay;
        previous = point.time;
    }
}

} // namespace

bool looksLikeNmea(const QByteArray &start)
{
    const QList<QByteArray> lines = start.split('\n');
    for (int i = 0; i < std::min(int(lines.size()), SniffedLines); ++i) {
        if (sentenceFields(lineText(lines[i])))
            return true;
    }
    return false;
}

ReadResult readNmea(QIODevice &device)
{
    ReadResult result;
    Track &track = result.track;
    track.trackNames = QStringList{QString()};
    int withoutFix = 0;
    std::optional<double> lastTime; // time of the last point, to merge sentences of one fix
    for (qint64 line = 1; !device.atEnd(); ++line) {
        const QString text = lineText(device.readLine());
        if (text.isEmpty())
            continue;
        const auto sentence = sentenceFields(text);
        const QStringList fields = sentence.value_or(QStringList());
        const auto type = sentence ? sentenceType(fields[0]) : std::nullopt;
        if (sentence && !type)
            continue;
        TrackPoint point;
        point.line = line;
        const Outcome outcome = type ? readFix(*type, fields, point) : Outcome::Bad;
        if (outcome == Outcome::Bad) {
            if (track.skippedLines++ == 0)
                track.firstSkippedLine = line;
            continue;
        }
        if (outcome == Outcome::NoFix) {
            ++withoutFix;
            continue;
        }
        if (!track.points.isEmpty() && point.time && point.time == lastTime) {
            TrackPoint &same = track.points.last();
            if (!same.altitude)
                same.altitude = point.altitude;
            continue;
        }
        track.points.append(point);
        lastTime = point.time;
    }
    if (track.points.isEmpty())
        result.error = QStringLiteral("no usable fix: %1 RMC or GGA sentence(s) without a fix, %2 line(s) that are "
                                      "not valid NMEA sentences")
                           .arg(withoutFix)
                           .arg(track.skippedLines);
    unwrapMidnights(track.points);
    return result;
}
