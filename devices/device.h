// One local virtual device as the plug-in reports it.
#pragma once

#include <QHostAddress>
#include <QString>

#include "vmtoolsengine.h"

class Device
{
public:
    Device() = default;
    Device(const QString &name, const QHostAddress &address, int type, MachineState state, VirtualMachine *machine);

    QString name() const { return m_name; }
    QHostAddress address() const { return m_address; }
    int type() const { return m_type; }
    MachineState state() const { return m_state; }
    VirtualMachine *machine() const { return m_machine; }

    // Writes a device ID into the machine so that it survives reboots.
    void storeDeviceId(const QString &deviceId) const;

private:
    QString m_name;
    QHostAddress m_address;
    int m_type = 0; // 0 physical, anything else virtual
    MachineState m_state = UnknownState;
    VirtualMachine *m_machine = nullptr; // owned by the plug-in
};
