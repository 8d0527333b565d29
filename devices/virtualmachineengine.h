// Local device source: loads the virtualisation plug-in on a worker thread,
// lists the Korvex virtual devices, keeps the sorted list and the selection,
// and owns the protocol client that talks to the selected device.
#pragma once

#include <QFutureWatcher>
#include <QList>
#include <QObject>

#include "device.h"
#include "korvexclient.h"

class VMToolsEngine;

class VirtualMachineEngine : public QObject
{
    Q_OBJECT

public:
    explicit VirtualMachineEngine(QObject *parent = nullptr);
    ~VirtualMachineEngine() override;

    KorvexClient *client() { return &m_client; }

    QList<Device> devices() const { return m_devices; }
    int selectedIndex() const { return m_selectedIndex; }
    bool selectDevice(int id);
    bool autoSelect();
    bool hasSelection() const;
    Device selectedDevice() const;
    bool isSelectedDeviceOn() const;

    void refreshDevices(bool wait);
    int restoreFactoryBackup(const QString &name);

    // Replaces the list by a freshly built one and re-selects (by position) or auto-selects.
    void applyRefreshedList(QList<Device> devices);
    static void sortDevices(QList<Device> &devices);

signals:
    void pluginLoaded();
    void initializationFinished();
    void devicesListRefreshed();

private slots:
    void onFinishedPluginLoad();
    void onFinishedDevicesLister();

private:
    void loadPlugin();
    void listDevices();

    VMToolsEngine *m_engine = nullptr;
    QFutureWatcher<void> m_pluginLoadWatcher;
    QFutureWatcher<void> m_listerWatcher;
    QList<Device> m_devices;
    int m_selectedIndex = -1;
    KorvexClient m_client;
};
