// A VirtualBox machine: cached facts from the last listing, and the two
// operations that change the machine (device ID, factory snapshot).
#include "vboxmachine.h"

#include <QDeadlineTimer>
#include <QDebug>
#include <QMutexLocker>

#include "vboxkeys.h"
#include "vboxmanagerunner.h"
#include "vboxoutput.h"

namespace {

// VBoxManage's answer to a snapshot listing of a machine without snapshots.
const char NoSnapshotsAnswer[] = "does not have any snapshots";

} // namespace

void CallTracker::begin()
{
    QMutexLocker locker(&m_lock);
    ++m_count;
}

void CallTracker::end()
{
    QMutexLocker locker(&m_lock);
    if (--m_count == 0)
        m_idle.wakeAll();
}

bool CallTracker::waitIdle(int timeoutMs)
{
    QMutexLocker locker(&m_lock);
    QDeadlineTimer deadline(timeoutMs);
    while (m_count > 0) {
        if (!m_idle.wait(&m_lock, deadline))
            return false;
    }
    return true;
}

VBoxMachine::VBoxMachine(const QString &uuid, const VBoxManageRunner &runner, CallTracker &tracker)
    : m_uuid(uuid), m_runner(runner), m_tracker(tracker)
{
}

void VBoxMachine::update(const VBoxMachineInfo &info)
{
    QMutexLocker locker(&m_lock);
    m_info = info;
}

QString VBoxMachine::name() const
{
    QMutexLocker locker(&m_lock);
    return m_info.name;
}

int VBoxMachine::state() const
{
    QMutexLocker locker(&m_lock);
    return m_info.state;
}

QString VBoxMachine::ipAddress() const
{
    QMutexLocker locker(&m_lock);
    return m_info.ipAddress;
}

QString VBoxMachine::extraData(const char *key) const
{
    QMutexLocker locker(&m_lock);
    return m_info.extraData.value(QString::fromLatin1(key));
}

QString VBoxMachine::androidVersion() const { return extraData(VBoxKeys::AndroidVersion); }
QString VBoxMachine::vmVersion() const { return extraData(VBoxKeys::VmVersion); }
QString VBoxMachine::platform() const { return extraData(VBoxKeys::Platform); }

void VBoxMachine::storeDeviceId(const QString &deviceId)
{
    m_tracker.begin();
    const VBoxManageCall call = m_runner.run({QStringLiteral("guestproperty"), QStringLiteral("set"), m_uuid,
                                              QString::fromLatin1(VBoxKeys::DeviceIdProperty), deviceId});
    if (call.succeeded())
        qDebug() << "[VBox]" << "Device ID stored in" << name();
    m_tracker.end();
}

int VBoxMachine::restoreFactoryBackup()
{
    const QString snapshot = QString::fromLatin1(VBoxKeys::FactorySnapshot);
    const VBoxManageCall list = m_runner.run(
        {QStringLiteral("snapshot"), m_uuid, QStringLiteral("list"), QStringLiteral("--machinereadable")});
    const bool answered = list.succeeded() || (list.finished && list.text().contains(QLatin1String(NoSnapshotsAnswer)));
    if (!answered)
        return VirtualBoxError;
    if (!VBoxOutput::hasSnapshot(list.text(), snapshot)) {
        qWarning() << "[VBox]" << "No snapshot named" << snapshot << "in" << name();
        return NoFactorySnapshot;
    }

    const VBoxManageCall restore =
        m_runner.run({QStringLiteral("snapshot"), m_uuid, QStringLiteral("restore"), snapshot},
                     VBoxManageRunner::RestoreTimeoutMs);
    if (!restore.succeeded())
        return VirtualBoxError;
    qDebug() << "[VBox]" << "Snapshot" << snapshot << "restored in" << name();
    return Restored;
}
