// Readers of the VBoxManage outputs the plug-in relies on, and the mapping of
// VirtualBox machine states to the shell's machine states. Every reader goes by
// the structure of a line, never by its words: VBoxManage translates its
// messages, and a wrapper script may print warnings before them.
#pragma once

#include <QHash>
#include <QList>
#include <QString>

#include "vmtoolsengine.h"

namespace VBoxOutput {

struct MachineEntry
{
    QString name;
    QString uuid;
};

// "list vms": lines `"Name" {uuid}`.
QList<MachineEntry> parseMachineList(const QString &text);
// "getextradata <vm> enumerate": lines `<label>: <key>, <label>: <value>`.
QHash<QString, QString> parseExtraData(const QString &text);
// "showvminfo --machinereadable": `key="value"` lines; the first occurrence of a key wins.
QHash<QString, QString> parseMachineReadable(const QString &text);
// "guestproperty enumerate": the old `<label>: <name>, <label>: <value>, ...` lines
// or the table `<name> = '<value>' @ <time>`; property name to value.
QHash<QString, QString> parseGuestProperties(const QString &text);
// The last non-empty line, e.g. the version after any wrapper warning.
QString lastLine(const QString &text);
// Whether the snapshot tree of parsed machine-readable info has a snapshot of this name.
bool hasSnapshot(const QHash<QString, QString> &info, const QString &name);
// A VMState value of showvminfo as a MachineState.
MachineState machineState(const QString &vmState);

} // namespace VBoxOutput
