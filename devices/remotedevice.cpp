// Remote device source (option -r): tests once, on a pool thread, whether the
// agent port accepts a connection, logs the outcome, points the client at the
// agent and reports readiness on the shell's thread.
#include "remotedevice.h"

#include <QDebug>
#include <QTcpSocket>
#include <QtConcurrent>

RemoteDevice::RemoteDevice(const QHostAddress &address, quint16 port, QObject *parent)
    : QObject(parent), m_address(address), m_port(port),
      m_name(address.toString() + ":" + QString::number(port))
{
    connect(&m_connectionWatcher, &QFutureWatcher<void>::finished, this, &RemoteDevice::onSetConnection);
    m_connectionWatcher.setFuture(QtConcurrent::run(this, &RemoteDevice::setConnection));
}

RemoteDevice::~RemoteDevice()
{
    m_connectionWatcher.waitForFinished();
}

// The test connection only informs the log: the shell starts either way and
// the commands report an unreachable device themselves.
void RemoteDevice::setConnection()
{
    qDebug() << "Remote device used:" << m_name;
    qDebug() << "Try connection with remote device...";

    QTcpSocket socket;
    socket.connectToHost(m_address, m_port, QIODevice::ReadWrite);
    if (socket.waitForConnected(KorvexClient::ConnectTimeoutMs)) {
        qDebug() << "Connection success";
    } else {
        qCritical() << "Unable to connect to " << m_name << ":" << socket.error();
        qCritical() << "Check if remote device is on.";
    }

    m_client.setAddress(m_address, KorvexClient::AgentPort);
}

void RemoteDevice::onSetConnection()
{
    emit initializationFinished();
}
