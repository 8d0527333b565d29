// Remote device source (placeholder: points the client at the address and starts).
#include "remotedevice.h"

#include <QtConcurrent>

RemoteDevice::RemoteDevice(const QHostAddress &address, quint16 port, QObject *parent)
    : QObject(parent), m_address(address), m_port(port),
      m_name(address.toString() + ":" + QString::number(port))
{
    connect(&m_connectionWatcher, &QFutureWatcher<void>::finished, this, &RemoteDevice::onSetConnection);
    m_connectionWatcher.setFuture(QtConcurrent::run(this, &RemoteDevice::setConnection));
}

RemoteDevice::~RemoteDevice() { m_connectionWatcher.waitForFinished(); }

void RemoteDevice::setConnection() { m_client.setAddress(m_address, KorvexClient::AgentPort); }

void RemoteDevice::onSetConnection() { emit initializationFinished(); }
