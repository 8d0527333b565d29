// One local virtual device record.
#include "device.h"

#include "vmtoolsengine.h"

Device::Device(const QString &name, const QHostAddress &address, int type, MachineState state,
               VirtualMachine *machine)
    : m_name(name), m_address(address), m_type(type), m_state(state), m_machine(machine)
{
}

void Device::storeDeviceId(const QString &deviceId) const
{
    if (m_machine)
        m_machine->storeDeviceId(deviceId);
}
