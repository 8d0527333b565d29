// Parsing of VBoxManage output. Lines may end in CR LF; unknown lines are skipped.
#include "vboxoutput.h"

#include <QRegularExpression>

#include "vmtoolsengine.h"

namespace VBoxOutput {
namespace {

struct StateName
{
    const char *vmState;
    int state;
};

const StateName StateNames[] = {
    {"running", VMToolsMachineState::On},
    {"poweroff", VMToolsMachineState::Off},
    {"saved", VMToolsMachineState::Off},
    {"teleported", VMToolsMachineState::Off},
    {"paused", VMToolsMachineState::Paused},
    {"starting", VMToolsMachineState::Process},
    {"stopping", VMToolsMachineState::Process},
    {"saving", VMToolsMachineState::Process},
    {"restoring", VMToolsMachineState::Process},
    {"restoringsnapshot", VMToolsMachineState::Process},
    {"deletingsnapshot", VMToolsMachineState::Process},
    {"deletingsnapshotlive", VMToolsMachineState::Process},
    {"deletingsnapshotpaused", VMToolsMachineState::Process},
    {"livesnapshotting", VMToolsMachineState::Process},
    {"onlinesnapshotting", VMToolsMachineState::Process},
    {"settingup", VMToolsMachineState::Process},
    {"teleporting", VMToolsMachineState::Process},
    {"teleportingin", VMToolsMachineState::Process},
    {"teleportingpausedvm", VMToolsMachineState::Process},
    {"aborted", VMToolsMachineState::Aborted},
    {"gurumeditation", VMToolsMachineState::Aborted},
    {"stuck", VMToolsMachineState::Aborted},
};

const char ExtraDataKey[] = "Key: ";
const char ExtraDataSeparator[] = ", Value: ";
const char GuestPropertyValue[] = "Value: ";

QStringList lines(const QString &text)
{
    QStringList result = text.split(QLatin1Char('\n'));
    for (QString &line : result) {
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
    }
    return result;
}

// Recent versions escape quotes and backslashes inside machine-readable values.
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
    static const QRegularExpression entry(QStringLiteral("^\"(.*)\" \\{([^}]+)\\}\\s*$"));
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
    QHash<QString, QString> result;
    for (const QString &line : lines(text)) {
        if (!line.startsWith(QLatin1String(ExtraDataKey)))
            continue;
        const int separator = line.indexOf(QLatin1String(ExtraDataSeparator));
        if (separator < 0)
            continue;
        const int keyStart = int(qstrlen(ExtraDataKey));
        result.insert(line.mid(keyStart, separator - keyStart),
                      line.mid(separator + int(qstrlen(ExtraDataSeparator))));
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

QString parseGuestProperty(const QString &text)
{
    for (const QString &line : lines(text)) {
        if (line.startsWith(QLatin1String(GuestPropertyValue)))
            return line.mid(int(qstrlen(GuestPropertyValue))).trimmed();
    }
    return QString();
}

bool hasSnapshot(const QString &text, const QString &name)
{
    // Nested snapshots are SnapshotName-1, SnapshotName-1-2...; CurrentSnapshotName is not a node.
    static const QRegularExpression node(QStringLiteral("^SnapshotName(-\\d+)*$"));
    const QHash<QString, QString> values = parseMachineReadable(text);
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        if (it.value() == name && node.match(it.key()).hasMatch())
            return true;
    }
    return false;
}

int machineState(const QString &vmState)
{
    for (const StateName &entry : StateNames) {
        if (vmState == QLatin1String(entry.vmState))
            return entry.state;
    }
    return VMToolsMachineState::Unknown;
}

} // namespace VBoxOutput
