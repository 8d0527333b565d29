// Parsing of VBoxManage output. Lines may end in CR LF; unknown lines are skipped.
#include "vboxoutput.h"

#include <QRegularExpression>

#include "vmtoolsengine.h"

namespace VBoxOutput {
namespace {

struct StateName
{
    const char *vmState;
    MachineState state;
};

// Every short name that showvminfo prints from 5.2 to 7.1 ("unknown" and
// anything else stay Unknown). A crashed machine is Aborted; a stuck one
// prints "gurumeditation".
const StateName StateNames[] = {
    {"running", MachineState::On},
    {"poweroff", MachineState::Off},
    {"saved", MachineState::Off},
    {"teleported", MachineState::Off},
    {"paused", MachineState::Paused},
    {"aborted", MachineState::Aborted},
    {"aborted-saved", MachineState::Aborted},
    {"gurumeditation", MachineState::Aborted},
    {"starting", MachineState::Process},
    {"stopping", MachineState::Process},
    {"saving", MachineState::Process},
    {"restoring", MachineState::Process},
    {"teleporting", MachineState::Process},
    {"teleportingin", MachineState::Process},
    {"teleportingpausedvm", MachineState::Process},
    {"livesnapshotting", MachineState::Process},
    {"onlinesnapshotting", MachineState::Process},
    {"snapshotting", MachineState::Process},
    {"restoringsnapshot", MachineState::Process},
    {"deletingsnapshot", MachineState::Process},
    {"deletingsnapshotlive", MachineState::Process},
    {"deletingsnapshotlivepaused", MachineState::Process},
    {"settingup", MachineState::Process},
    {"faulttolerantsyncing", MachineState::Process},
};

QStringList lines(const QString &text)
{
    QStringList result = text.split(QLatin1Char('\n'));
    for (QString &line : result) {
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
    }
    return result;
}

// Machine-readable values escape quotes and backslashes (5.2 does not, but
// then a value with either is printed as is, which this leaves alone).
QString unescape(const QString &value)
{
    QString result;
    result.reserve(value.size());
    for (int i = 0; i < value.size(); ++i) {
        const QChar c = value.at(i);
        if (c == QLatin1Char('\\') && i + 1 < value.size()
            && (value.at(i + 1) == QLatin1Char('"') || value.at(i + 1) == QLatin1Char('\\')))
            result += value.at(++i);
        else
            result += c;
    }
    return result;
}

} // namespace

QList<MachineEntry> parseMachineList(const QString &text)
{
    static const QRegularExpression entry(QStringLiteral("^\"(.*)\" \\{([^}]+)\\}$"));
    QList<MachineEntry> result;
    for (const QString &line : lines(text)) {
        const QRegularExpressionMatch match = entry.match(line);
        if (match.hasMatch())
            result << MachineEntry{match.captured(1), match.captured(2)};
    }
    return result;
}

QHash<QString, QString> parseExtraData(const QString &text)
{
    // The labels are translated; the key is what lies between the first label
    // and the shortest ", <label>: " after it.
    // An empty value may have lost its blank to a wrapper that trims lines.
    static const QRegularExpression pair(QStringLiteral("^[^:,]+: (.+?), [^:,]+:(?: (.*))?$"));
    QHash<QString, QString> result;
    for (const QString &line : lines(text)) {
        const QRegularExpressionMatch match = pair.match(line);
        if (match.hasMatch() && !result.contains(match.captured(1)))
            result.insert(match.captured(1), match.captured(2));
    }
    return result;
}

QHash<QString, QString> parseMachineReadable(const QString &text)
{
    static const QRegularExpression pair(QStringLiteral("^\"?([^\"=]+)\"?=(.*)$"));
    QHash<QString, QString> result;
    for (const QString &line : lines(text)) {
        const QRegularExpressionMatch match = pair.match(line);
        if (!match.hasMatch() || result.contains(match.captured(1)))
            continue;
        QString value = match.captured(2);
        if (value.size() >= 2 && value.startsWith(QLatin1Char('"')) && value.endsWith(QLatin1Char('"')))
            value = unescape(value.mid(1, value.size() - 2));
        result.insert(match.captured(1), value);
    }
    return result;
}

QHash<QString, QString> parseGuestProperties(const QString &text)
{
    // 5.2 and 6.1: `Name: <name>, value: <value>, timestamp: <ns>, flags: <flags>`, where
    // the blank after an empty flags field is gone once a wrapper or log collector trims lines.
    static const QRegularExpression old(
        QStringLiteral("^[^:,]+: (\\S+), [^:,]+: (.*), [^:,]+: -?\\d+, [^:,]+:(?: .*)?$"));
    // 7.0 and later: `<name padded> = '<value>'`, then padding, `@ <time>` and the flags.
    static const QRegularExpression table(QStringLiteral("^(\\S+) *= '(.*)'(?: +@ [^']*)?$"));
    QHash<QString, QString> result;
    for (const QString &line : lines(text)) {
        QRegularExpressionMatch match = table.match(line);
        if (!match.hasMatch())
            match = old.match(line);
        if (match.hasMatch() && !result.contains(match.captured(1)))
            result.insert(match.captured(1), match.captured(2));
    }
    return result;
}

QString lastLine(const QString &text)
{
    const QStringList all = lines(text);
    for (auto it = all.crbegin(); it != all.crend(); ++it) {
        if (!it->trimmed().isEmpty())
            return it->trimmed();
    }
    return QString();
}

bool hasSnapshot(const QHash<QString, QString> &info, const QString &name)
{
    // Nested snapshots are SnapshotName-1, SnapshotName-1-2...; CurrentSnapshotName is not a node.
    static const QRegularExpression node(QStringLiteral("^SnapshotName(-\\d+)*$"));
    for (auto it = info.cbegin(); it != info.cend(); ++it) {
        if (it.value() == name && node.match(it.key()).hasMatch())
            return true;
    }
    return false;
}

MachineState machineState(const QString &vmState)
{
    for (const StateName &entry : StateNames) {
        if (vmState == QLatin1String(entry.vmState))
            return entry.state;
    }
    return MachineState::UnknownState;
}

} // namespace VBoxOutput
