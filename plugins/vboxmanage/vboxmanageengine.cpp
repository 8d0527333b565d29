// VirtualBox plug-in entry point and engine. A listing is one "list vms"
// followed by the per-machine queries of every machine, run concurrently.
#include "vboxmanageengine.h"

#include <QDebug>
#include <QMutexLocker>

#include "vboxkeys.h"
#include "vboxoutput.h"

namespace {

// Background calls are bounded by their own time-out; this only adds a margin.
constexpr int DestroyWaitMs = VBoxManageRunner::DefaultTimeoutMs + 5000;

enum MachineQuery { ExtraDataQuery, InfoQuery, IpQuery, QueriesPerMachine };

QList<QStringList> machineQueries(const QString &uuid)
{
    QList<QStringList> queries;
    queries << QStringList{QStringLiteral("getextradata"), uuid, QStringLiteral("enumerate")}
            << QStringList{QStringLiteral("showvminfo"), uuid, QStringLiteral("--machinereadable")}
            << QStringList{QStringLiteral("guestproperty"), QStringLiteral("get"), uuid,
                           QString::fromLatin1(VBoxKeys::IpProperty)};
    return queries;
}

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
    const VBoxManageCall call = m_runner.run({QStringLiteral("--version")});
    if (!call.succeeded()) {
        status.state = VBoxManageUnavailable;
        status.message = QStringLiteral("%1 is not usable: %2").arg(m_runner.program(), call.failure);
        return status;
    }
    m_version = call.text().trimmed();
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
    QMutexLocker locker(&m_lock);
    const VBoxManageCall list = m_runner.run({QStringLiteral("list"), QStringLiteral("vms")});
    if (!list.succeeded())
        return {};

    const QList<VBoxOutput::MachineEntry> entries = VBoxOutput::parseMachineList(list.text());
    QList<QStringList> queries;
    for (const VBoxOutput::MachineEntry &entry : entries)
        queries << machineQueries(entry.uuid);
    const QList<VBoxManageCall> answers = m_runner.runAll(queries);

    QList<VBoxMachine *> result;
    for (int i = 0; i < entries.size(); ++i) {
        const int first = i * QueriesPerMachine;
        const VBoxManageCall &extraData = answers.at(first + ExtraDataQuery);
        VBoxMachineInfo info;
        info.extraData = VBoxOutput::parseExtraData(extraData.text());
        if (!extraData.succeeded() || !info.extraData.contains(QString::fromLatin1(VBoxKeys::VmVersion)))
            continue;

        const QHash<QString, QString> details = VBoxOutput::parseMachineReadable(answers.at(first + InfoQuery).text());
        info.name = details.value(QStringLiteral("name"), entries.at(i).name);
        info.state = VBoxOutput::machineState(details.value(QStringLiteral("VMState")));
        const VBoxManageCall &ip = answers.at(first + IpQuery);
        if (ip.succeeded())
            info.ipAddress = VBoxOutput::parseGuestProperty(ip.text());

        VBoxMachine *vm = machine(entries.at(i).uuid);
        vm->update(info);
        result << vm;
    }
    return result;
}

extern "C" Q_DECL_EXPORT VMToolsEngine *getVMToolsEngine()
{
    return new VBoxManageEngine;
}
