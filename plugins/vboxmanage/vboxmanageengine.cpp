// VirtualBox plug-in entry point and engine. A listing is "list vms" and
// "list runningvms" at once, the Korvex marker of the machines it has not seen
// lately (getextradata, no session needed), then one round over the devices:
// name, state and adapters of each, and the guest interfaces of the running
// ones beside them. A device is thus never in two VBoxManage sessions that
// could clash (shared sessions on a running machine do not), and other
// machines are in none.
#include "vboxmanageengine.h"

#include <QDebug>

#include "guestaddress.h"
#include "vboxkeys.h"

namespace {

// Background calls are bounded by their own time-out; this only adds a margin.
constexpr int DestroyWaitMs = VBoxManageRunner::DefaultTimeoutMs + VBoxManageRunner::StopGraceMs + 5000;

QStringList listQuery(const char *which)
{
    return {QStringLiteral("list"), QString::fromLatin1(which)};
}

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

bool hasGuest(MachineState state)
{
    return state == MachineState::On || state == MachineState::Paused;
}

QHash<QString, QString> korvexKeys(const QHash<QString, QString> &extraData)
{
    QHash<QString, QString> keys;
    for (auto it = extraData.cbegin(); it != extraData.cend(); ++it) {
        if (it.key().startsWith(QLatin1String(VBoxKeys::Prefix)))
            keys.insert(it.key(), it.value());
    }
    return keys;
}

bool isDevice(const QHash<QString, QString> &korvexData)
{
    return korvexData.contains(QString::fromLatin1(VBoxKeys::VmVersion));
}

// Name and state from showvminfo. A call that failed after printing its block
// (5.0 with a running machine, a restricted session on 7.x) still gives them;
// false when the state could not be read at all.
bool readState(VBoxMachineInfo &info, const QHash<QString, QString> &values)
{
    const auto state = values.constFind(QStringLiteral("VMState"));
    if (state == values.constEnd())
        return false;
    info.name = values.value(QStringLiteral("name"), info.name);
    info.state = VBoxOutput::machineState(*state);
    return true;
}

void readAddress(VBoxMachineInfo &info, const QHash<QString, QString> &values, const VBoxManageCall &interfaces)
{
    // Properties printed before a failure count, as a machine-readable block does.
    const QHash<QString, QString> properties = VBoxOutput::parseGuestProperties(interfaces.text());
    if (!interfaces.succeeded()) {
        qWarning().noquote() << "[VBox]" << interfaces.describe();
        if (properties.isEmpty())
            return;
    }
    const GuestAddress::Choice choice = GuestAddress::choose(values, properties);
    if (choice.reason != info.addressReason || choice.address != info.ipAddress) {
        if (choice.address.isEmpty())
            qDebug().noquote() << "[VBox]" << QStringLiteral("No address for \"%1\": %2").arg(info.name, choice.reason);
        else
            qDebug().noquote() << "[VBox]"
                               << QStringLiteral("Address of \"%1\": %2, %3").arg(info.name, choice.address,
                                                                                    choice.reason);
    }
    info.ipAddress = choice.address;
    info.addressReason = choice.reason;
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
    // --version answers without the VirtualBox service; the lists need it, and
    // serve the first listing.
    const QList<VBoxManageCall> calls =
        m_runner.runAll({{QStringLiteral("--version")}, listQuery("vms"), listQuery("runningvms")});
    const VBoxManageCall &version = calls.at(0);
    if (!version.succeeded()) {
        qCritical().noquote() << "[VBox]" << version.describe();
        status.state = EngineStatus::VBoxManageUnavailable;
        status.message = QStringLiteral("%1 is not usable: %2").arg(m_runner.program(), version.failure);
        return status;
    }
    // The wrapper script may print warnings first.
    m_version = VBoxOutput::lastLine(version.text());

    const VBoxManageCall &list = calls.at(1);
    if (!list.succeeded()) {
        status.state = EngineStatus::ServiceUnreachable;
        status.message = QStringLiteral("the VirtualBox service cannot be reached: %1. Check that \"%2\" works for "
                                        "this user.")
                             .arg(list.failure, (QStringList(list.program) + list.arguments).join(QLatin1Char(' ')));
        qCritical().noquote() << "[VBox]" << status.message;
        return status;
    }
    m_firstLists = MachineLists{list, calls.at(2)};
    status.state = EngineStatus::Ready;
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

VBoxManageEngine::MachineLists VBoxManageEngine::machineLists()
{
    if (m_firstLists) {
        const MachineLists lists = *m_firstLists;
        m_firstLists.reset();
        return lists;
    }
    const QList<VBoxManageCall> calls = m_runner.runAll({listQuery("vms"), listQuery("runningvms")});
    return {calls.at(0), calls.at(1)};
}

QList<VBoxMachine *> VBoxManageEngine::refreshMachines()
{
    std::lock_guard<std::mutex> locker(m_lock);
    const MachineLists lists = machineLists();
    if (!lists.all.succeeded()) {
        qCritical().noquote() << "[VBox]" << lists.all.describe();
        // A slow VirtualBox is no reason to forget the devices it had.
        return lists.all.finished ? QList<VBoxMachine *>() : m_listed;
    }
    const QList<VBoxOutput::MachineEntry> entries = VBoxOutput::parseMachineList(lists.all.text());
    // Without the running list, the guest interfaces are asked once the states are known.
    std::optional<QSet<QString>> running;
    if (lists.running.succeeded()) {
        running.emplace();
        for (const VBoxOutput::MachineEntry &entry : VBoxOutput::parseMachineList(lists.running.text()))
            running->insert(entry.uuid);
    } else {
        qWarning().noquote() << "[VBox]" << lists.running.describe();
    }

    QList<Listed> devices = findDevices(entries);
    readDevices(devices, running);

    QSet<QString> registered;
    for (const VBoxOutput::MachineEntry &entry : entries)
        registered.insert(entry.uuid);
    m_markers.save(registered);

    m_listed.clear();
    for (const Listed &device : qAsConst(devices)) {
        device.machine->update(device.info);
        m_listed << device.machine;
    }
    return m_listed;
}

QList<VBoxManageEngine::Listed> VBoxManageEngine::findDevices(const QList<VBoxOutput::MachineEntry> &entries)
{
    // The marker of a machine seen lately is known; the others are asked at once.
    QList<std::optional<QHash<QString, QString>>> markers;
    QList<QStringList> markerQueries;
    for (const VBoxOutput::MachineEntry &entry : entries) {
        markers << m_markers.lookup(entry.uuid, entry.name);
        if (!markers.last())
            markerQueries << markerQuery(entry.uuid);
    }
    const QList<VBoxManageCall> answers = m_runner.runAll(markerQueries);

    // A device that was listed before keeps its last known facts where a call
    // of this listing does not answer in time.
    QList<Listed> devices;
    for (int i = 0, a = 0; i < entries.size(); ++i) {
        const VBoxOutput::MachineEntry &entry = entries.at(i);
        VBoxMachine *known = m_machines.value(entry.uuid);
        VBoxMachineInfo info = known ? known->info() : VBoxMachineInfo();
        if (!markers.at(i)) {
            const VBoxManageCall &marker = answers.at(a++);
            if (marker.succeeded()) {
                markers[i] = korvexKeys(VBoxOutput::parseExtraData(marker.text()));
                m_markers.store(entry.uuid, entry.name, *markers.at(i));
            } else if (marker.finished || !known) {
                // Inaccessible machines (settings unreadable) answer no extra data.
                qDebug().noquote() << "[VBox]" << "Machine skipped:" << marker.describe();
                continue;
            } else {
                qWarning().noquote() << "[VBox]" << marker.describe();
                markers[i] = info.extraData;
            }
        }
        if (!isDevice(*markers.at(i)))
            continue;
        info.name = entry.name;
        info.extraData = *markers.at(i);
        devices << Listed{machine(entry.uuid), info};
    }
    return devices;
}

void VBoxManageEngine::readDevices(QList<Listed> &devices, const std::optional<QSet<QString>> &running)
{
    Sessions sessions;
    QList<QStringList> queries;
    for (const Listed &device : qAsConst(devices)) {
        sessions.hold(device.machine->session());
        queries << infoQuery(device.machine->uuid());
    }
    QHash<int, int> guestQuery; // device to the index of its guest query
    for (int i = 0; running && i < devices.size(); ++i) {
        if (running->contains(devices.at(i).machine->uuid())) {
            guestQuery.insert(i, queries.size());
            queries << guestNetQuery(devices.at(i).machine->uuid());
        }
    }
    const QList<VBoxManageCall> answers = m_runner.runAll(queries);

    QList<QHash<QString, QString>> values;
    QList<int> late; // running devices whose guest interfaces were not asked yet
    for (int i = 0; i < devices.size(); ++i) {
        VBoxMachineInfo &info = devices[i].info;
        values << VBoxOutput::parseMachineReadable(answers.at(i).text());
        if (!answers.at(i).succeeded())
            qWarning().noquote() << "[VBox]" << answers.at(i).describe();
        if (!readState(info, values.last()))
            continue;
        if (!hasGuest(info.state)) {
            info.ipAddress.clear();
            info.addressReason.clear();
        } else if (guestQuery.contains(i)) {
            readAddress(info, values.last(), answers.at(guestQuery.value(i)));
        } else {
            late << i;
        }
    }

    QList<QStringList> lateQueries;
    for (int i : qAsConst(late))
        lateQueries << guestNetQuery(devices.at(i).machine->uuid());
    const QList<VBoxManageCall> lateAnswers = m_runner.runAll(lateQueries);
    for (int l = 0; l < late.size(); ++l)
        readAddress(devices[late.at(l)].info, values.at(late.at(l)), lateAnswers.at(l));
}

extern "C" Q_DECL_EXPORT VMToolsEngine *getVMToolsEngine()
{
    return new VBoxManageEngine;
}
