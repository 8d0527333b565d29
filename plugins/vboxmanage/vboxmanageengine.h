// The plug-in's engine: lists the Korvex machines of the local VirtualBox
// through VBoxManage and owns one VBoxMachine per device it has seen.
#pragma once

#include <QHash>
#include <QSet>
#include <QString>

#include <mutex>
#include <optional>

#include "markercache.h"
#include "vboxmachine.h"
#include "vboxmanagerunner.h"
#include "vboxoutput.h"
#include "vmtoolsengine.h"

class VBoxManageEngine final : public VMToolsEngine
{
public:
    VBoxManageEngine() = default;
    ~VBoxManageEngine() override;

    VMToolsStatus status() override;
    QString version() override;
    QList<VirtualMachine *> listMachines() override;
    VirtualMachine *findMachine(const QString &name) override;

private:
    // What "list vms" and "list runningvms" printed, asked at once.
    struct MachineLists
    {
        VBoxManageCall all;
        VBoxManageCall running;
    };
    // A device being listed and the facts this listing found.
    struct Listed
    {
        VBoxMachine *machine;
        VBoxMachineInfo info;
    };

    QList<VBoxMachine *> refreshMachines();
    MachineLists machineLists();
    QList<Listed> findDevices(const QList<VBoxOutput::MachineEntry> &entries);
    void readDevices(QList<Listed> &devices, const std::optional<QSet<QString>> &running);
    VBoxMachine *machine(const QString &uuid);

    VBoxManageRunner m_runner;
    CallTracker m_backgroundCalls;
    std::mutex m_lock; // one listing at a time
    QHash<QString, VBoxMachine *> m_machines; // devices by UUID, owned
    QList<VBoxMachine *> m_listed; // the devices of the last listing
    // The machine lists that proved the service reachable, used by the first listing.
    std::optional<MachineLists> m_firstLists;
    MarkerCache m_markers{MarkerCache::defaultPath()};
    QString m_version;
};
