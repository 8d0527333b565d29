// Local device source: loads the virtualisation plug-in, runs the devices
// lister and restores factory backups through the plug-in's machines.
#include "virtualmachineengine.h"

#include <QCoreApplication>
#include <QDebug>
#include <QLibrary>
#include <QTextStream>
#include <QThread>
#include <QtConcurrent>

#include "console.h"
#include "vmtoolsengine.h"

namespace {

const char PluginName[] = "vboxmanage";
const char PluginDirectory[] = "/plugins/";
// Every machine of the plug-in is a virtual device.
constexpr int VirtualDeviceType = 1;

bool isUsable(const VMToolsStatus &status)
{
    return status.state == EngineStatus::Ready || status.state == EngineStatus::Degraded;
}

// Opens the plug-in and returns its engine when it is usable; the status is
// the engine's own once it has reported one.
VMToolsEngine *openPlugin(VMToolsStatus &status)
{
    const QString name = QString::fromLatin1(PluginName);
    qDebug() << "[VBox]" << "Loading" << name << "plugin";

    const QString directory = QCoreApplication::applicationDirPath() + PluginDirectory;
    // Never unloaded: the engine's code must stay mapped after the loader is gone.
    QLibrary library(directory + name);
    auto entryPoint = reinterpret_cast<GetVMToolsEngineFunction>(library.resolve(KORVEX_VMTOOLS_ENTRY_POINT));
    if (!entryPoint) {
        qCritical().noquote() << "[VBox]" << QStringLiteral("Fail to load %1 plugin from %2").arg(name, directory);
        qDebug().noquote() << "[VBox]" << library.errorString();
        return nullptr;
    }

    qDebug() << "[VBox]" << "Plugin" << name << "loaded";
    VMToolsEngine *engine = entryPoint();
    if (!engine) {
        qCritical() << "[VBox]" << "Unable to execute getVMToolsEngine from" << PluginName;
        return nullptr;
    }

    status = engine->status();
    if (!isUsable(status)) {
        qDebug().noquote() << "[VBox]" << status.message;
        delete engine;
        return nullptr;
    }
    qDebug() << "[VBox]" << "VM engine version:" << engine->version();
    return engine;
}

} // namespace

VirtualMachineEngine::VirtualMachineEngine(QObject *parent) : QObject(parent)
{
    connect(&m_pluginLoadWatcher, &QFutureWatcher<void>::finished, this, &VirtualMachineEngine::onFinishedPluginLoad);
    connect(&m_listerWatcher, &QFutureWatcher<void>::finished, this, &VirtualMachineEngine::onFinishedDevicesLister);
    m_pluginLoadWatcher.setFuture(QtConcurrent::run(this, &VirtualMachineEngine::loadPlugin));
}

VirtualMachineEngine::~VirtualMachineEngine()
{
    m_pluginLoadWatcher.disconnect(this);
    m_listerWatcher.disconnect(this);
    // The loader may still be running when the shell is torn down early.
    m_pluginLoadWatcher.waitForFinished();
    m_listerWatcher.waitForFinished();
    delete m_engine;
}

void VirtualMachineEngine::loadPlugin()
{
    if (m_engine) {
        qCritical() << "A virtual machine engine has already been loaded. Aborting.";
        return;
    }
    VMToolsStatus status;
    status.state = EngineStatus::NotLoaded;
    status.message.clear();
    m_engine = openPlugin(status);
    if (!m_engine)
        qCritical() << "Failed to load engine, state" << static_cast<int>(status.state);
}

void VirtualMachineEngine::onFinishedPluginLoad()
{
    if (m_engine) {
        emit pluginLoaded();
        refreshDevices(true);
    } else {
        qCritical() << "Unable to find Virtual Machine engine. Plugin loading aborted.";
    }
    emit initializationFinished();
}

void VirtualMachineEngine::refreshDevices(bool wait)
{
    QFuture<void> lister = QtConcurrent::run(this, &VirtualMachineEngine::listDevices);
    // The watcher belongs to the engine's thread; the shell's loop thread hands it over.
    auto watch = [this, lister] {
        if (m_listerWatcher.future() != lister)
            m_listerWatcher.setFuture(lister);
    };
    if (QThread::currentThread() == thread())
        watch();
    else
        QMetaObject::invokeMethod(this, watch, Qt::QueuedConnection);
    // With every pool thread busy (the shell's loop holds one), a lister that has
    // not started yet is run right here by waitForFinished instead of waiting.
    if (wait)
        lister.waitForFinished();
}

void VirtualMachineEngine::onFinishedDevicesLister()
{
    emit devicesListRefreshed();
}

void VirtualMachineEngine::listDevices()
{
    // Without an engine the list simply stays empty.
    if (!m_engine)
        return;
    QList<Device> devices;
    for (VirtualMachine *machine : m_engine->listMachines()) {
        devices << Device(machine->name(), QHostAddress(machine->ipAddress()), VirtualDeviceType,
                          machine->state(), machine);
    }
    sortDevices(devices);
    applyRefreshedList(devices);
}

int VirtualMachineEngine::restoreFactoryBackup(const QString &name)
{
    QTextStream &out = console();
    VirtualMachine *machine = m_engine ? m_engine->findMachine(name) : nullptr;
    if (!machine) {
        out << "Unable to find the virtual device: " << name << Qt::endl;
        return -1;
    }
    if (machine->state() == On) {
        out << "Virtual device to restore is ON: " << machine->name() << Qt::endl;
        out << "Stop the virtual device to continue" << Qt::endl;
        return -1;
    }

    const RestoreResult code = machine->restoreFactoryBackup();
    if (code == RestoreResult::Restored) {
        out << "Restoring the original backup completed" << Qt::endl;
        return 0;
    }
    out << "Restoring the original backup failed" << Qt::endl;
    if (code == RestoreResult::NoFactoryBackup)
        out << "Reason: initial backup not found" << Qt::endl;
    else
        out << "Reason: error with VirtualBox. Check the korvex-shell.log file" << Qt::endl;
    return -1;
}
