// The simulated agent: accepts connections, decodes requests with the same
// whole-buffer rule as the shell, answers from the device state and plays
// the configured fault.
#pragma once

#include <QHash>
#include <QObject>
#include <QTcpServer>

#include "devicestate.h"
#include "randomfaults.h"
#include "requestlog.h"
#include "simoptions.h"

class QTcpSocket;
class QTimer;

class AgentServer : public QObject
{
    Q_OBJECT

public:
    // tag starts each of its log lines: empty for a single device.
    AgentServer(const SimOptions &options, const QHostAddress &address, const QString &tag, RequestLog &log,
                QObject *parent = nullptr);

    bool listen(QString &error);
    DeviceState &state() { return m_state; }

private:
    struct Connection
    {
        int id = 0;
        QByteArray buffer;
        QTimer *undecodable = nullptr; // gives a partial request time to complete
    };

    void accept();
    void receive(QTcpSocket *socket);
    void dropUndecodable(QTcpSocket *socket);
    void closed(QTcpSocket *socket);
    void handle(QTcpSocket *socket, const Korvex::Request &request);
    Fault faultFor(const Korvex::Request &request, int connectionId);
    Korvex::Reply answer(const Korvex::Request &request, bool apply);
    QByteArray faultyReply(const Fault &fault, const Korvex::Reply &normal) const;
    void deliver(QTcpSocket *socket, const QByteArray &bytes, const Fault &fault);
    void write(QTcpSocket *socket, const QByteArray &bytes, const Fault &fault);
    void log(const QString &line);

    const SimOptions &m_options;
    const QHostAddress m_address;
    const QString m_tag;
    DeviceState m_state;
    RequestLog &m_log;
    QTcpServer m_server;
    QHash<QTcpSocket *, Connection> m_connections;
    int m_connectionCount = 0;
    int m_faultsPlayed = 0;
    RandomFaults m_randomFaults;
};
