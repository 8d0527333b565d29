// A VirtualBox machine: cached facts from the last listing, and the two
// operations that change the machine (device ID, factory snapshot).
#include "vboxmachine.h"

#include <QDebug>

#include "vboxkeys.h"
#include "vboxmanagerunner.h"
#include "vboxoutput.h"

void CallTracker::begin()
{
    std::lock_guard<std::mutex> locker(m_lock);
    ++m_count;
}

void CallTracker::end()
{
    std::lock_guard<std::mutex> locker(m_lock);
    if (--m_count == 0)
        m_idle.notify_all();
}

bool CallTracker::waitIdle(int timeoutMs)
{
    std::unique_lock<std::mutex> locker(m_lock);
    return m_idle.wait_for(locker, std::chrono::milliseconds(timeoutMs), [this] { return m_count == 0; });
}

VBoxMachine::VBoxMachine(const QString &uuid, const VBoxManageRunner &runner, CallTracker &tracker)
    : m_uuid(uuid), m_runner(runner), m_tracker(tracker)
{
}

VBoxMachineInfo VBoxMachine::info() const
{
    std::lock_guard<std::mutex> locker(m_lock);
    return m_info;
}

void VBoxMachine::update(const VBoxMachineInfo &info)
{
    std::lock_guard<std::mutex> locker(m_lock);
    m_info = info;
}

QString VBoxMachine::name() const
{
    std::lock_guard<std::mutex> locker(m_lock);
    return m_info.name;
}

MachineState VBoxMachine::state() const
{
    std::lock_guard<std::mutex> locker(m_lock);
    return m_info.state;
}

QString VBoxMachine::ipAddress() const
{
    std::lock_guard<std::mutex> locker(m_lock);
    return m_info.ipAddress;
}

QString VBoxMachine::extraData(const char *key) const
{
    std::lock_guard<std::mutex> locker(m_lock);
    return m_info.extraData.value(QString::fromLatin1(key));
}

QString VBoxMachine::androidVersion() const { return extraData(VBoxKeys::AndroidVersion); }
QString VBoxMachine::vmVersion() const { return extraData(VBoxKeys::VmVersion); }
QString VBoxMachine::platform() const { return extraData(VBoxKeys::Platform); }

void VBoxMachine::storeDeviceId(const QString &deviceId)
{
    m_tracker.begin();
    {
        std::lock_guard<std::mutex> session(m_session);
        const VBoxManageCall call = m_runner.run({QStringLiteral("guestproperty"), QStringLiteral("set"), m_uuid,
                                                  QString::fromLatin1(VBoxKeys::DeviceIdProperty), deviceId});
        if (call.succeeded())
            qDebug() << "[VBox]" << "Device ID stored in" << name();
        else
            qCritical().noquote() << "[VBox]" << call.describe();
    }
    m_tracker.end();
}

RestoreResult VBoxMachine::restoreFactoryBackup()
{
    std::lock_guard<std::mutex> session(m_session);
    // The snapshot tree of the machine-readable info is not translated, unlike
    // the answer of "snapshot list" for a machine without snapshots.
    const VBoxManageCall info = m_runner.run(
        {QStringLiteral("showvminfo"), m_uuid, QStringLiteral("--machinereadable")});
    if (!info.succeeded()) {
        qCritical().noquote() << "[VBox]" << info.describe();
        return RestoreResult::VirtualBoxError;
    }
    const QString snapshot = QString::fromLatin1(VBoxKeys::FactorySnapshot);
    if (!VBoxOutput::hasSnapshot(VBoxOutput::parseMachineReadable(info.text()), snapshot)) {
        qWarning() << "[VBox]" << "No snapshot named" << snapshot << "in" << name();
        return RestoreResult::NoFactoryBackup;
    }

    // VBoxManage gives its reason (a machine still paused, say) on its error output.
    const VBoxManageCall restore =
        m_runner.run({QStringLiteral("snapshot"), m_uuid, QStringLiteral("restore"), snapshot},
                     VBoxManageRunner::RestoreTimeoutMs);
    if (!restore.succeeded()) {
        qCritical().noquote() << "[VBox]" << restore.describe();
        return RestoreResult::VirtualBoxError;
    }
    qDebug() << "[VBox]" << "Snapshot" << snapshot << "restored in" << name();
    return RestoreResult::Restored;
}
