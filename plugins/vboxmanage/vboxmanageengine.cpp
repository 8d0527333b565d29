// VirtualBox plug-in entry point and engine. A listing is one "list vms", then
// rounds of calls that each run concurrently over the machines: the Korvex
// marker of every machine (no session needed), then name, state and adapters of
// the devices, then the guest interfaces of the running ones. A device is thus
// never in two VBoxManage sessions at once, and other machines in none.
#include "vboxmanageengine.h"

#include <QDebug>

#include "vboxkeys.h"
#include "vboxoutput.h"

namespace {

// Background calls are bounded by their own time-out; this only adds a margin.
constexpr int DestroyWaitMs = VBoxManageRunner::DefaultTimeoutMs + VBoxManageRunner::StopGraceMs + 5000;

QStringList markerQuery(const QString &uuid)
{
    return {QStringLiteral("getextradata"), uuid, QStringLiteral("enumerate")};
}

QStringList infoQuery(const QString &uuid)
{
    return {QStringLiteral("showvminfo"), uuid, QStringLiteral("--machinereadable")};
}

QStringList guestNetQuery(const QString &uuid)
{
    return {QStringLiteral("guestproperty"), QStringLiteral("enumerate"), uuid, QStringLiteral("--patterns"),
            QString::fromLatin1(VBoxKeys::GuestNetPattern)};
}

bool hasGuest(int state)
{
    return state == VMToolsMachineState::On || state == VMToolsMachineState::Paused;
}

// Sessions of the devices being listed, released when the listing ends.
class Sessions
{
public:
    Sessions() = default;
    Sessions(const Sessions &) = delete;
    Sessions &operator=(const Sessions &) = delete;
    ~Sessions()
    {
        for (std::mutex *session : m_held)
            session->unlock();
    }
    void hold(std::mutex &session)
    {
        session.lock();
        m_held << &session;
    }

private:
    QList<std::mutex *> m_held;
};

} // namespace

VBoxManageEngine::~VBoxManageEngine()
{
    if (!m_backgroundCalls.waitIdle(DestroyWaitMs))
        qCritical() << "[VBox]" << "Engine destroyed while VBoxManage calls are still running";
    qDeleteAll(m_machines);
}

VMToolsStatus VBoxManageEngine::status()
{
    VMToolsStatus status;
    const VBoxManageCall version = m_runner.run({QStringLiteral("--version")});
    if (!version.succeeded()) {
        qCritical().noquote() << "[VBox]" << version.describe();
        status.state = VBoxManageUnavailable;
        status.message = QStringLiteral("%1 is not usable: %2").arg(m_runner.program(), version.failure);
        return status;
    }
    // The wrapper script may print warnings first.
    m_version = VBoxOutput::lastLine(version.text());

    // --version answers without the VirtualBox service; everything else needs it.
    const VBoxManageCall list = m_runner.run({QStringLiteral("list"), QStringLiteral("vms")});
    if (!list.succeeded()) {
        status.state = ServiceUnreachable;
        status.message = QStringLiteral("the VirtualBox service cannot be reached: %1. Check that \"%2\" works for "
                                        "this user.")
                             .arg(list.failure, (QStringList(list.program) + list.arguments).join(QLatin1Char(' ')));
        qCritical().noquote() << "[VBox]" << status.message;
        return status;
    }
    m_firstList = list;
    status.state = Ready;
    status.message = m_version;
    return status;
}

QString VBoxManageEngine::version()
{
    if (m_version.isEmpty())
        status();
    return m_version;
}

QList<VirtualMachine *> VBoxManageEngine::listMachines()
{
    QList<VirtualMachine *> result;
    for (VBoxMachine *machine : refreshMachines())
        result << machine;
    return result;
}

VirtualMachine *VBoxManageEngine::findMachine(const QString &name)
{
    // Listed afresh: the machine may have been started or renamed since the last refresh.
    for (VBoxMachine *machine : refreshMachines()) {
        if (machine->name() == name)
            return machine;
    }
    return nullptr;
}

VBoxMachine *VBoxManageEngine::machine(const QString &uuid)
{
    VBoxMachine *&entry = m_machines[uuid];
    if (!entry)
        entry = new VBoxMachine(uuid, m_runner, m_backgroundCalls);
    return entry;
}

QList<VBoxMachine *> VBoxManageEngine::refreshMachines()
{
    std::lock_guard<std::mutex> locker(m_lock);
    VBoxManageCall list;
    if (m_firstList) {
        list = *m_firstList;
        m_firstList.reset();
    } else {
        list = m_runner.run({QStringLiteral("list"), QStringLiteral("vms")});
    }
    if (!list.succeeded()) {
        qCritical().noquote() << "[VBox]" << list.describe();
        // A slow VirtualBox is no reason to forget the devices it had.
        return list.finished ? QList<VBoxMachine *>() : m_listed;
    }
    const QList<VBoxOutput::MachineEntry> entries = VBoxOutput::parseMachineList(list.text());

    QList<QStringList> markerQueries;
    for (const VBoxOutput::MachineEntry &entry : entries)
        markerQueries << markerQuery(entry.uuid);
    const QList<VBoxManageCall> markers = m_runner.runAll(markerQueries);

    // A device that was listed before keeps its last known facts where a call
    // of this listing does not answer in time.
    QList<VBoxMachine *> devices;
    QList<VBoxMachineInfo> infos;
    for (int i = 0; i < entries.size(); ++i) {
        const VBoxManageCall &marker = markers.at(i);
        VBoxMachine *known = m_machines.value(entries.at(i).uuid);
        VBoxMachineInfo info = known ? known->info() : VBoxMachineInfo();
        if (marker.succeeded()) {
            info.extraData = VBoxOutput::parseExtraData(marker.text());
            if (!info.extraData.contains(QString::fromLatin1(VBoxKeys::VmVersion)))
                continue;
        } else if (marker.finished || !known) {
            // Inaccessible machines (settings unreadable) answer no extra data.
            qDebug().noquote() << "[VBox]" << "Machine skipped:" << marker.describe();
            continue;
        } else {
            qWarning().noquote() << "[VBox]" << marker.describe();
        }
        info.name = entries.at(i).name;
        devices << machine(entries.at(i).uuid);
        infos << info;
    }

    Sessions sessions;
    QList<QStringList> infoQueries;
    for (VBoxMachine *device : devices) {
        sessions.hold(device->session());
        infoQueries << infoQuery(device->uuid());
    }
    const QList<VBoxManageCall> details = m_runner.runAll(infoQueries);
    QList<QHash<QString, QString>> values;
    QList<QStringList> guestQueries;
    QList<int> guests;
    for (int i = 0; i < devices.size(); ++i) {
        values << VBoxOutput::parseMachineReadable(details.at(i).text());
        if (details.at(i).succeeded()) {
            infos[i].name = values.at(i).value(QStringLiteral("name"), infos.at(i).name);
            infos[i].state = VBoxOutput::machineState(values.at(i).value(QStringLiteral("VMState")));
        } else {
            qWarning().noquote() << "[VBox]" << details.at(i).describe();
        }
        if (!hasGuest(infos.at(i).state)) {
            infos[i].ipAddress.clear();
        } else if (details.at(i).succeeded()) {
            guestQueries << guestNetQuery(devices.at(i)->uuid());
            guests << i;
        }
    }

    const QList<VBoxManageCall> interfaces = m_runner.runAll(guestQueries);
    for (int g = 0; g < guests.size(); ++g) {
        const int i = guests.at(g);
        if (interfaces.at(g).succeeded()) {
            infos[i].ipAddress = VBoxOutput::reachableAddress(
                values.at(i), VBoxOutput::parseGuestProperties(interfaces.at(g).text()));
        } else {
            qWarning().noquote() << "[VBox]" << interfaces.at(g).describe();
        }
    }

    for (int i = 0; i < devices.size(); ++i)
        devices.at(i)->update(infos.at(i));
    m_listed = devices;
    return devices;
}

extern "C" Q_DECL_EXPORT VMToolsEngine *getVMToolsEngine()
{
    return new VBoxManageEngine;
}
