// One VirtualBox machine as the plug-in hands it to the shell. The engine keeps
// one object per machine UUID for its whole life, so handles held by the shell
// stay valid across refreshes; each refresh updates the cached facts.
#pragma once

#include <QHash>
#include <QString>

#include <condition_variable>
#include <mutex>

#include "vmtoolsengine.h"

class VBoxManageRunner;

// Counts VBoxManage calls that the shell started in the background, so that
// the engine is not destroyed under them.
class CallTracker
{
public:
    void begin();
    void end();
    // True when no call is left before the time-out.
    bool waitIdle(int timeoutMs);

private:
    // Standard locks, which thread checkers see (Qt's own are not instrumented).
    std::mutex m_lock;
    std::condition_variable m_idle;
    int m_count = 0;
};

struct VBoxMachineInfo
{
    QString name;
    MachineState state = MachineState::UnknownState;
    QString ipAddress;
    QString addressReason; // how ipAddress was chosen, logged when it changes
    QHash<QString, QString> extraData; // the Korvex keys
};

class VBoxMachine final : public VirtualMachine
{
public:
    VBoxMachine(const QString &uuid, const VBoxManageRunner &runner, CallTracker &tracker);
    ~VBoxMachine() = default;

    QString uuid() const { return m_uuid; }
    VBoxMachineInfo info() const;
    void update(const VBoxMachineInfo &info);
    // Held around every VBoxManage call that opens a session on the machine:
    // two at once on a powered-off machine make one of them fail.
    std::mutex &session() { return m_session; }

    QString name() const override;
    MachineState state() const override;
    QString androidVersion() const override;
    QString vmVersion() const override;
    QString platform() const override;
    void storeDeviceId(const QString &deviceId) override;
    QString ipAddress() const override;
    RestoreResult restoreFactoryBackup() override;

private:
    QString extraData(const char *key) const;

    const QString m_uuid;
    const VBoxManageRunner &m_runner;
    CallTracker &m_tracker;
    std::mutex m_session;
    mutable std::mutex m_lock; // the shell reads from its thread while a refresh may update
    VBoxMachineInfo m_info;
};
