// Interface between the shell and its virtualisation plug-in, a shared library
// in <application dir>/plugins/ exporting "getVMToolsEngine". The virtual
// tables below are the binary contract: keep the order of the operations.
#pragma once

#include <QList>
#include <QString>

// Codes that VirtualMachine::state() reports; the shell's MachineState uses the
// same values.
namespace VMToolsMachineState {
enum : int { Unknown = 0, On = 1, Off = 2, Paused = 3, Process = 4, Aborted = 5 };
}

struct VMToolsStatus
{
    int state = 1;   // 0 or 3: usable; anything else: the engine is rejected
    QString message;
};

class VirtualMachine
{
public:
    virtual QString name() const = 0;
    virtual int state() const = 0; // VMToolsMachineState
    virtual QString androidVersion() const = 0;
    virtual QString vmVersion() const = 0;
    virtual QString platform() const = 0;
    virtual void storeDeviceId(const QString &deviceId) = 0;
    virtual QString ipAddress() const = 0;
    // 0 done, 1 no initial backup, anything else a VirtualBox error.
    virtual int restoreFactoryBackup() = 0;

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
