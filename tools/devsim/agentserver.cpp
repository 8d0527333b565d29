// The simulated agent.
#include "agentserver.h"

#include <QTcpSocket>
#include <QTimer>

#include "wire.h"

namespace {

using Korvex::Reply;
using Korvex::Request;
using Korvex::Status;

// Bytes read without completing a request are reported after this pause.
constexpr int UndecodableGraceMs = 300;
constexpr int SplitGapMs = 50;
// A zero tag is invalid whatever follows, so this never decodes as a message.
const char GarbageBytes[] = "\x00\xde\xad\xbe\xef";
constexpr int GarbageSize = sizeof(GarbageBytes) - 1;

QByteArray encode(const Reply &reply)
{
    return QByteArray::fromStdString(Wire::encode(reply));
}

Reply plain(Reply::Type type)
{
    Reply reply;
    reply.set_type(type);
    reply.mutable_status()->set_code(Status::Ok);
    return reply;
}

Reply error(Status::Code code, const char *description)
{
    Reply reply;
    reply.set_type(Reply::Error);
    reply.mutable_status()->set_code(code);
    reply.mutable_status()->set_description(description);
    return reply;
}

} // namespace

AgentServer::AgentServer(const SimOptions &options, const QHostAddress &address, const QString &tag,
                         RequestLog &log, QObject *parent)
    : QObject(parent), m_options(options), m_address(address), m_tag(tag), m_log(log)
{
    connect(&m_server, &QTcpServer::newConnection, this, &AgentServer::accept);
    // Checked when the options were read.
    QString error;
    m_randomFaults.configure(options.faultRate, options.seed, options.faultKinds, error);
}

bool AgentServer::listen(QString &error)
{
    if (m_server.listen(m_address, m_options.port))
        return true;
    error = m_server.errorString();
    return false;
}

void AgentServer::log(const QString &line)
{
    m_log.write(m_tag + line);
}

void AgentServer::accept()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        Connection connection;
        connection.id = ++m_connectionCount;
        connection.undecodable = new QTimer(socket);
        connection.undecodable->setSingleShot(true);
        connection.undecodable->setInterval(UndecodableGraceMs);
        connect(connection.undecodable, &QTimer::timeout, this, [this, socket] { dropUndecodable(socket); });
        m_connections.insert(socket, connection);
        log(QStringLiteral("connect %1").arg(connection.id));

        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { receive(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] { closed(socket); });
    }
}

void AgentServer::receive(QTcpSocket *socket)
{
    if (!m_connections.contains(socket))
        return;
    m_connections[socket].buffer.append(socket->readAll());
    // Handling a request may close the connection and forget it, so the
    // record is looked up again after each one.
    while (m_connections.contains(socket)) {
        Connection &connection = m_connections[socket];
        Request request;
        if (connection.buffer.isEmpty() || !Wire::decodeWhole(request, connection.buffer)) {
            if (connection.buffer.isEmpty())
                connection.undecodable->stop();
            else
                connection.undecodable->start();
            return;
        }
        connection.buffer.remove(0, static_cast<int>(request.ByteSizeLong()));
        handle(socket, request);
    }
}

void AgentServer::dropUndecodable(QTcpSocket *socket)
{
    if (!m_connections.contains(socket) || m_connections[socket].buffer.isEmpty())
        return;
    Connection &connection = m_connections[socket];
    log(QStringLiteral("undecodable %1 %2").arg(connection.id).arg(QString::fromLatin1(connection.buffer.toHex())));
    connection.buffer.clear();
}

void AgentServer::closed(QTcpSocket *socket)
{
    if (!m_connections.contains(socket))
        return;
    dropUndecodable(socket);
    log(QStringLiteral("disconnect %1").arg(m_connections.value(socket).id));
    m_connections.remove(socket);
    socket->deleteLater();
}

void AgentServer::handle(QTcpSocket *socket, const Korvex::Request &request)
{
    const int id = m_connections.value(socket).id;
    log(QStringLiteral("request %1 %2").arg(id).arg(QString::fromStdString(request.ShortDebugString())));

    const Fault fault = faultFor(request, id);
    const bool faulty = fault.any();
    const Reply normal = answer(request, !(faulty && fault.refuses()));
    deliver(socket, faulty ? faultyReply(fault, normal) : encode(normal), fault);
}

// The fault this request gets; one where any() is false for none.
Fault AgentServer::faultFor(const Korvex::Request &request, int connectionId)
{
    const Fault &fixed = m_options.fault;
    // The shell reads the agent version at start-up; leave it alone so that
    // faults hit the commands under test.
    const bool versionRead = request.type() == Request::GetParam && request.has_parameter()
                             && request.parameter().type() == Korvex::Parameter::KorvexVersion;
    if ((versionRead && !fixed.all) || (fixed.count >= 0 && m_faultsPlayed >= fixed.count))
        return Fault();

    Fault fault = fixed;
    if (m_randomFaults.enabled()) {
        QString description;
        fault = m_randomFaults.draw(description);
        if (fault.any())
            log(QStringLiteral("fault %1 %2").arg(connectionId).arg(description));
    }
    if (fault.any())
        ++m_faultsPlayed;
    return fault;
}

Korvex::Reply AgentServer::answer(const Korvex::Request &request, bool apply)
{
    switch (request.type()) {
    case Request::Ping:
        return plain(Reply::Pong);
    case Request::GetParam: {
        if (!request.has_parameter() || !m_state.has(request.parameter().type()))
            return error(Status::InvalidRequest, "Unknown parameter");
        Reply reply = plain(Reply::Value);
        *reply.mutable_value() = m_state.value(request.parameter().type());
        return reply;
    }
    case Request::SetParam:
        if (!request.has_parameter() || !request.parameter().has_value()
            || !request.parameter().value().has_type())
            return error(Status::InvalidRequest, "Missing value");
        if (apply)
            m_state.store(request.parameter());
        return plain(Reply::None);
    case Request::SendCommand:
    case Request::CheckArchive:
    case Request::FlashArchive:
        return plain(Reply::None);
    case Request::PushData:
        return error(Status::NotImplemented, "Not implemented");
    default:
        return error(Status::InvalidRequest, "Invalid request");
    }
}

QByteArray AgentServer::faultyReply(const Fault &fault, const Korvex::Reply &normal) const
{
    if (fault.rawReply)
        return fault.rawBytes;
    if (fault.garbage)
        return QByteArray(GarbageBytes, GarbageSize);
    if (fault.error) {
        Reply reply;
        reply.set_type(Reply::Error);
        reply.mutable_status()->set_code(fault.errorCode);
        if (fault.errorHasDescription)
            reply.mutable_status()->set_description(fault.errorDescription.toStdString());
        return encode(reply);
    }
    if (fault.info) {
        Reply reply = plain(Reply::None);
        reply.mutable_status()->set_code(Status::OkWithInformation);
        reply.mutable_status()->set_description(fault.infoText.toStdString());
        return encode(reply);
    }
    return encode(normal);
}

void AgentServer::deliver(QTcpSocket *socket, const QByteArray &bytes, const Fault &fault)
{
    if (fault.silent)
        return;
    auto act = [this, socket, bytes, fault] {
        if (fault.close)
            socket->disconnectFromHost();
        else
            write(socket, bytes, fault);
    };
    if (fault.delayMs > 0)
        QTimer::singleShot(fault.delayMs, socket, act);
    else
        act();
}

void AgentServer::write(QTcpSocket *socket, const QByteArray &bytes, const Fault &fault)
{
    if (!fault.split || bytes.size() < 2) {
        socket->write(bytes);
        return;
    }
    const int first = fault.splitAt > 0 ? qMin(fault.splitAt, bytes.size() - 1) : bytes.size() / 2;
    socket->write(bytes.left(first));
    socket->flush();
    const QByteArray rest = bytes.mid(first);
    QTimer::singleShot(SplitGapMs, socket, [socket, rest] { socket->write(rest); });
}
