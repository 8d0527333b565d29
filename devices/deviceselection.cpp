// Selection state of the local device list: ordering, selection by id,
// automatic selection and the re-selection after each refresh.
#include "virtualmachineengine.h"

#include <QTextStream>
#include <algorithm>

#include "console.h"

namespace {

const char *const SeveralRunningBanner[] = {
    "|---------------------------------------------------------------|",
    "| Several Korvex virtual devices are running.                   |",
    "| Please, select a device manually with command: devices select |",
    "|---------------------------------------------------------------|",
};

const char *const NoneRunningBanner[] = {
    "|----------------------------------------------------------------------|",
    "| No Korvex virtual device running found                               |",
    "| Please, run at least one Korvex virtual device to use this shell     |",
    "|----------------------------------------------------------------------|",
};

const char InvalidIdMessage[] = "Invalid device Id";
const char OffPrefix[] = "Korvex virtual device ";
const char OffSuffix[] = " is off. Please select a new virtual device with command : devices select";

void printBanner(const char *const (&lines)[4])
{
    QTextStream &out = console();
    out << Qt::endl;
    for (const char *line : lines)
        out << line << Qt::endl;
    out << Qt::endl;
}

} // namespace

void VirtualMachineEngine::sortDevices(QList<Device> &devices)
{
    std::stable_sort(devices.begin(), devices.end(), [](const Device &a, const Device &b) {
        return a.name().toLower() < b.name().toLower();
    });
}

bool VirtualMachineEngine::selectDevice(int id)
{
    if (id < 0 || id >= m_devices.size()) {
        console() << InvalidIdMessage << Qt::endl;
        return false;
    }
    const Device &device = m_devices.at(id);
    if (device.state() != On) {
        console() << OffPrefix << id << OffSuffix << Qt::endl;
        return false;
    }
    m_client.setAddress(device.address(), KorvexClient::AgentPort);
    m_selectedIndex = id;
    return true;
}

bool VirtualMachineEngine::autoSelect()
{
    int running = 0;
    int lastRunning = -1;
    for (int i = 0; i < m_devices.size(); ++i) {
        if (m_devices.at(i).state() == On) {
            ++running;
            lastRunning = i;
        }
    }
    if (running == 1)
        return selectDevice(lastRunning);
    printBanner(running > 1 ? SeveralRunningBanner : NoneRunningBanner);
    return false;
}

// An index equal to the count is never left by the selection paths; it is
// tolerated here (<=, not <) and answered with a default record by
// selectedDevice(). Kept on purpose: tightening it would change which
// message a command gets if such an index ever appeared.
bool VirtualMachineEngine::hasSelection() const
{
    return m_selectedIndex != -1 && m_selectedIndex <= m_devices.size();
}

Device VirtualMachineEngine::selectedDevice() const
{
    if (m_selectedIndex == -1 || m_selectedIndex > m_devices.size())
        return Device();
    return m_devices.value(m_selectedIndex);
}

bool VirtualMachineEngine::isSelectedDeviceOn() const
{
    if (m_selectedIndex == -1)
        return false;
    return selectedDevice().state() == On;
}

// The selection follows the position, not the name: after the list changed the
// same id may name another machine. Kept on purpose: command files select by
// id once and rely on ids staying put across refreshes.
void VirtualMachineEngine::applyRefreshedList(QList<Device> devices)
{
    if (m_selectedIndex >= devices.size())
        m_selectedIndex = -1;
    m_devices = devices;
    if (m_selectedIndex != -1 && m_selectedIndex <= m_devices.size())
        selectDevice(m_selectedIndex);
    else
        autoSelect();
}
