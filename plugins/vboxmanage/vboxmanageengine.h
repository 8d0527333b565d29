// The plug-in's engine: lists the Korvex machines of the local VirtualBox
// through VBoxManage and owns one VBoxMachine per machine it has seen.
#pragma once

#include <QHash>
#include <QMutex>
#include <QString>

#include "vboxmachine.h"
#include "vboxmanagerunner.h"
#include "vmtoolsengine.h"

class VBoxManageEngine final : public VMToolsEngine
{
public:
    // Status codes besides the usable 0.
    enum StatusCode { Ready = 0, VBoxManageUnavailable = 2 };

    VBoxManageEngine() = default;
    ~VBoxManageEngine() override;

    VMToolsStatus status() override;
    QString version() override;
    QList<VirtualMachine *> listMachines() override;
    VirtualMachine *findMachine(const QString &name) override;

private:
    QList<VBoxMachine *> refreshMachines();
    VBoxMachine *machine(const QString &uuid);

    VBoxManageRunner m_runner;
    CallTracker m_backgroundCalls;
    QMutex m_lock; // one listing at a time
    QHash<QString, VBoxMachine *> m_machines; // by UUID, owned
    QString m_version;
};
