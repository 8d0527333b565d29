// One local virtual device as the plug-in reports it, and its machine states.
#pragma once

#include <QHostAddress>
#include <QString>

class VirtualMachine;

enum MachineState : int { On = 1, Off = 2, Paused = 3, Process = 4, Aborted = 5 };

class Device
{
public:
    Device() = default;
    Device(const QString &name, const QHostAddress &address, int type, int state, VirtualMachine *machine);

    QString name() const { return m_name; }
    QHostAddress address() const { return m_address; }
    int type() const { return m_type; }
    int state() const { return m_state; }
    VirtualMachine *machine() const { return m_machine; }

    // Writes a device ID into the machine so that it survives reboots.
    void storeDeviceId(const QString &deviceId) const;

private:
    QString m_name;
    QHostAddress m_address;
    int m_type = 0; // 0 physical, anything else virtual
    int m_state = 0;
    VirtualMachine *m_machine = nullptr; // owned by the plug-in
};
