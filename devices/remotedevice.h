// Remote device source (option -r): tests the agent port once on a worker
// thread, points its protocol client at the address and reports readiness.
#pragma once

#include <QFutureWatcher>
#include <QHostAddress>
#include <QObject>
#include <QString>

#include "korvexclient.h"

class RemoteDevice : public QObject
{
    Q_OBJECT

public:
    RemoteDevice(const QHostAddress &address, quint16 port, QObject *parent = nullptr);
    ~RemoteDevice() override;

    QHostAddress address() const { return m_address; }
    quint16 port() const { return m_port; }
    QString name() const { return m_name; }
    KorvexClient *client() { return &m_client; }

signals:
    void initializationFinished();

private slots:
    void onSetConnection();

private:
    void setConnection();

    QHostAddress m_address;
    quint16 m_port;
    QString m_name;
    QFutureWatcher<void> m_connectionWatcher;
    KorvexClient m_client;
};
