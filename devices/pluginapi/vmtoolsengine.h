// Interface between the shell and its virtualisation plug-in, a shared library
// in <application dir>/plugins/ exporting "getVMToolsEngine". The virtual
// tables below are the binary contract: keep the order of the operations.
#pragma once

#include <QList>
#include <QString>

// The enums below are 32-bit ints on the wire of this interface: their
// values are part of the contract, their names are for the code on both sides.

// What VirtualMachine::state() reports, and the state of the shell's devices.
// Only a machine that is On can be selected, and factory reset refuses it.
enum MachineState : int { UnknownState = 0, On = 1, Off = 2, Paused = 3, Process = 4, Aborted = 5 };

// What VMToolsEngine::status() reports. Ready and Degraded are usable; any
// other code rejects the engine. The shell itself reports NotLoaded when no
// engine got far enough to give a status.
enum class EngineStatus : int {
    Ready = 0,
    NotLoaded = 1,
    VBoxManageUnavailable = 2,
    Degraded = 3,
    ServiceUnreachable = 4,
};

// What VirtualMachine::restoreFactoryBackup() reports; any code other than
// the first two is a VirtualBox error.
enum class RestoreResult : int { Restored = 0, NoFactoryBackup = 1, VirtualBoxError = 2 };

struct VMToolsStatus
{
    EngineStatus state = EngineStatus::NotLoaded;
    QString message;
};

class VirtualMachine
{
public:
    virtual QString name() const = 0;
    virtual MachineState state() const = 0;
    virtual QString androidVersion() const = 0;
    virtual QString vmVersion() const = 0;
    virtual QString platform() const = 0;
    virtual void storeDeviceId(const QString &deviceId) = 0;
    virtual QString ipAddress() const = 0;
    virtual RestoreResult restoreFactoryBackup() = 0;

protected:
    ~VirtualMachine() = default; // owned by the plug-in
};

class VMToolsEngine
{
public:
    virtual ~VMToolsEngine() = default;
    virtual VMToolsStatus status() = 0;
    virtual QString version() = 0;
    virtual QList<VirtualMachine *> listMachines() = 0;
    virtual VirtualMachine *findMachine(const QString &name) = 0;
};

extern "C" {
typedef VMToolsEngine *(*GetVMToolsEngineFunction)();
}
#define KORVEX_VMTOOLS_ENTRY_POINT "getVMToolsEngine"
