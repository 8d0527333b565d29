// Local device source (placeholder: no plug-in yet, starts with an empty list).
#include "virtualmachineengine.h"

#include <QtConcurrent>

#include "vmtoolsengine.h"

VirtualMachineEngine::VirtualMachineEngine(QObject *parent) : QObject(parent)
{
    connect(&m_pluginLoadWatcher, &QFutureWatcher<void>::finished, this, &VirtualMachineEngine::onFinishedPluginLoad);
    connect(&m_listerWatcher, &QFutureWatcher<void>::finished, this, &VirtualMachineEngine::onFinishedDevicesLister);
    m_pluginLoadWatcher.setFuture(QtConcurrent::run(this, &VirtualMachineEngine::loadPlugin));
}

VirtualMachineEngine::~VirtualMachineEngine() { delete m_engine; }

bool VirtualMachineEngine::selectDevice(int) { return false; }
bool VirtualMachineEngine::autoSelect() { return false; }
bool VirtualMachineEngine::hasSelection() const { return m_selectedIndex != -1 && m_selectedIndex <= m_devices.size(); }
Device VirtualMachineEngine::selectedDevice() const { return Device(); }
bool VirtualMachineEngine::isSelectedDeviceOn() const { return false; }
void VirtualMachineEngine::refreshDevices(bool) {}
int VirtualMachineEngine::restoreFactoryBackup(const QString &) { return -1; }
void VirtualMachineEngine::applyRefreshedList(QList<Device> devices) { m_devices = devices; }
void VirtualMachineEngine::sortDevices(QList<Device> &) {}
void VirtualMachineEngine::onFinishedPluginLoad() { emit initializationFinished(); }
void VirtualMachineEngine::onFinishedDevicesLister() { emit devicesListRefreshed(); }
void VirtualMachineEngine::loadPlugin() {}
void VirtualMachineEngine::listDevices() {}
