// Readers of the VBoxManage outputs the plug-in relies on, and the mapping of
// VirtualBox machine states to the shell's machine states.
#pragma once

#include <QHash>
#include <QList>
#include <QString>

namespace VBoxOutput {

struct MachineEntry
{
    QString name;
    QString uuid;
};

// "list vms": lines `"Name" {uuid}`.
QList<MachineEntry> parseMachineList(const QString &text);
// "getextradata <vm> enumerate": lines `Key: <key>, Value: <value>`.
QHash<QString, QString> parseExtraData(const QString &text);
// "showvminfo --machinereadable": `key="value"` lines; the first occurrence of a key wins.
QHash<QString, QString> parseMachineReadable(const QString &text);
// "guestproperty get": the value, or an empty text for "No value set!".
QString parseGuestProperty(const QString &text);
// "snapshot list --machinereadable": whether any snapshot of the tree has this name.
bool hasSnapshot(const QString &text, const QString &name);
// A VMState value of showvminfo as a VMToolsMachineState code.
int machineState(const QString &vmState);

} // namespace VBoxOutput
