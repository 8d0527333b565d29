// Protocol client core: connection handling, one request/reply exchange,
// decoding of the receive buffer, and the mapping between replies and
// RequestResult codes / host values. Typed operations: deviceoperations.cpp.
#include "korvexclient.h"

#include <atomic>
#include <cerrno>

#include <sys/socket.h>

#include <QDebug>
#include <QEventLoop>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <google/protobuf/stubs/common.h>
#include <google/protobuf/stubs/logging.h>

#include "wire.h"

namespace {

const char InvalidRequestMessage[] = "Invalid request type in buildRequest. Sending dummy empty request";

// Everything up to the first zero byte: the agent reads these as C strings.
QByteArray cutAtZero(const QByteArray &bytes)
{
    const int zero = bytes.indexOf('\0');
    return zero < 0 ? bytes : bytes.left(zero);
}

bool fillValue(Korvex::Value *value, const QVariant &host)
{
    switch (static_cast<QMetaType::Type>(host.type())) {
    case QMetaType::Bool:
        value->set_type(Korvex::Value::Bool);
        value->set_boolvalue(host.toBool());
        return true;
    case QMetaType::Int:
        value->set_type(Korvex::Value::Int);
        value->set_intvalue(host.toInt());
        return true;
    case QMetaType::UInt:
        value->set_type(Korvex::Value::Int);
        value->set_intvalue(static_cast<qint32>(host.toUInt()));
        return true;
    case QMetaType::Double:
        // Older agents read the float, newer ones the double: send both.
        value->set_type(Korvex::Value::Float);
        value->set_floatvalue(static_cast<float>(host.toDouble()));
        value->set_doublevalue(host.toDouble());
        return true;
    case QMetaType::QString: {
        const QByteArray text = cutAtZero(host.toString().toUtf8());
        value->set_type(Korvex::Value::String);
        value->set_stringvalue(text.constData(), static_cast<size_t>(text.size()));
        return true;
    }
    case QMetaType::QByteArray: {
        const QByteArray bytes = cutAtZero(host.toByteArray());
        value->set_type(Korvex::Value::Bytes);
        value->set_bytesvalue(bytes.constData(), static_cast<size_t>(bytes.size()));
        return true;
    }
    default:
        return false;
    }
}

KorvexClient::RequestResult convertValue(const Korvex::Value &value, QVariant &host)
{
    switch (value.type()) {
    case Korvex::Value::Bool:
        if (!value.has_boolvalue())
            break;
        host = value.boolvalue();
        return KorvexClient::Ok;
    case Korvex::Value::Int:
        if (!value.has_intvalue())
            break;
        host = static_cast<int>(value.intvalue());
        return KorvexClient::Ok;
    case Korvex::Value::Float:
        if (!value.has_floatvalue())
            break;
        host = value.floatvalue();
        return KorvexClient::Ok;
    case Korvex::Value::String:
        if (!value.has_stringvalue())
            break;
        host = QString::fromUtf8(value.stringvalue().data(), static_cast<int>(value.stringvalue().size()));
        return KorvexClient::Ok;
    case Korvex::Value::Bytes:
        if (!value.has_bytesvalue())
            break;
        host = QByteArray(value.bytesvalue().data(), static_cast<int>(value.bytesvalue().size()));
        return KorvexClient::Ok;
    case Korvex::Value::Double:
        if (!value.has_doublevalue())
            break;
        host = value.doublevalue();
        return KorvexClient::Ok;
    }
    return KorvexClient::SerializationError;
}

// The schema default of description ("unknown") must never reach the user.
QString descriptionText(const Korvex::Status &status)
{
    if (!status.has_description())
        return QStringLiteral("");
    return QString::fromUtf8(status.description().data(), static_cast<int>(status.description().size()));
}

KorvexClient::RequestResult errorResult(Korvex::Status::Code code)
{
    switch (code) {
    case Korvex::Status::Ok:
        return KorvexClient::Ok;
    case Korvex::Status::GenericError:
        return KorvexClient::GenericError;
    case Korvex::Status::InvalidRequest:
        return KorvexClient::InvalidRequest;
    case Korvex::Status::NotImplemented:
        qWarning() << "Not implemented in your current Korvex system.";
        return KorvexClient::NotImplemented;
    default:
        return KorvexClient::SerializationError;
    }
}

// The library's global shutdown frees its reflection data; the generated
// encode and decode paths that the client uses stay valid, so a later client
// in the same process still works. Reflection must not be used afterwards.
void shutdownMessageLibrary()
{
    static std::atomic<bool> done{false};
    if (!done.exchange(true))
        google::protobuf::ShutdownProtobufLibrary();
}

} // namespace

KorvexClient::KorvexClient(QObject *parent) : QObject(parent)
{
    GOOGLE_PROTOBUF_VERIFY_VERSION;
}

KorvexClient::~KorvexClient()
{
    shutdownMessageLibrary();
    dropForeignSocket();
    delete m_socket;
}

void KorvexClient::setAddress(const QHostAddress &address, int port)
{
    std::lock_guard<std::mutex> locker(m_targetLock);
    m_address = address;
    m_port = port;
}

QHostAddress KorvexClient::address() const
{
    std::lock_guard<std::mutex> locker(m_targetLock);
    return m_address;
}

int KorvexClient::port() const
{
    std::lock_guard<std::mutex> locker(m_targetLock);
    return m_port;
}

bool KorvexClient::isValid() const
{
    std::lock_guard<std::mutex> locker(m_targetLock);
    return !m_address.isNull() && m_address != QHostAddress::AnyIPv4 && m_address != QHostAddress::Any
           && m_address != QHostAddress::AnyIPv6 && m_port != 0;
}

void KorvexClient::setPersistent(bool persistent)
{
    m_persistent = persistent;
}

// The socket belongs to the thread whose requests use it, which handles its
// notifications with no hop through another thread and no hand-over between
// requests. Another thread cannot take it over: it goes back to its own
// thread to be deleted there (at once if that thread runs its loop, else when
// the thread ends), unhooked from this client first.
void KorvexClient::dropForeignSocket()
{
    if (!m_socket || m_socket->thread() == QThread::currentThread())
        return;
    m_socket->disconnect(this);
    m_socket->deleteLater();
    m_socket = nullptr;
}

void KorvexClient::closeConnection()
{
    dropForeignSocket();
    delete m_socket;
    m_socket = nullptr;
}

bool KorvexClient::initConnection(QString &error)
{
    dropForeignSocket();
    if (m_persistent) {
        if (stillConnected())
            return true;
        qCritical() << "[initConnection] Persistant connection but not connected. Will reconnect to"
                    << address().toString();
    }

    delete m_socket;
    m_socket = new QTcpSocket();
    m_socket->setReadBufferSize(ReadBufferSize);
    m_socket->connectToHost(address(), static_cast<quint16>(port()), QIODevice::ReadWrite);
    if (!m_socket->waitForConnected(ConnectTimeoutMs)) {
        error = m_socket->errorString();
        return false;
    }
    // Small messages with no framing: do not let Nagle hold them back.
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    // Bytes are read and decoded on the socket's thread, the requesting one:
    // a round trip through the client's thread would add two thread wake-ups
    // to every exchange and about double its time.
    connect(m_socket, &QTcpSocket::readyRead, this, &KorvexClient::messageFromDevice, Qt::DirectConnection);
    return true;
}

// Between requests no thread watches the socket, so a close by the device (a
// restart) or a reply that came after its time-out is still waiting in the
// kernel: look now, so that a closed connection is replaced before the
// request is written into it and a late reply does not answer this request.
bool KorvexClient::stillConnected()
{
    if (!m_socket || m_socket->state() != QAbstractSocket::ConnectedState)
        return false;
    char byte;
    ssize_t peeked = ::recv(m_socket->socketDescriptor(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    if (peeked > 0) {
        m_socket->waitForReadyRead(0);
        peeked = ::recv(m_socket->socketDescriptor(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    }
    // 0: the device closed its end; an error other than "nothing yet": the connection broke.
    if (peeked == 0 || (peeked < 0 && errno != EAGAIN && errno != EWOULDBLOCK))
        return false;
    return m_socket->state() == QAbstractSocket::ConnectedState;
}

KorvexClient::RequestResult KorvexClient::sendRequest(const Korvex::Request &request, QByteArray &reply,
                                                     int timeoutMs)
{
    RequestResult result = sendRequest(request, timeoutMs);
    if (result == Ok)
        reply = m_lastReply;
    return result;
}

KorvexClient::RequestResult KorvexClient::sendRequest(const Korvex::Request &request, int timeoutMs)
{
    QString error;
    if (!initConnection(error)) {
        qCritical() << "Unable to connect to" << address().toString() << ":" << port() << error;
        return NetworkError;
    }

    const QByteArray bytes = QByteArray::fromStdString(Wire::encode(request));
    const qint64 size = bytes.size();

    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    bool replied = false;
    connect(this, &KorvexClient::replyFromDevice, &loop, [&loop, &replied] {
        replied = true;
        loop.quit();
    });
    // A connection the device closes cannot bring the reply any more.
    connect(m_socket, &QAbstractSocket::disconnected, &loop, &QEventLoop::quit);

    if (m_socket->write(bytes) != size) {
        qCritical() << "Unable to send request:" << m_socket->errorString();
        return NetworkError;
    }
    // Sent now rather than once the loop finds the socket writable: one
    // round of the loop less for every request.
    m_socket->flush();

    if (timeoutMs > 0)
        timer.start(timeoutMs);
    // A connection that broke while sending has already said so.
    if (m_socket->state() == QAbstractSocket::ConnectedState)
        loop.exec();

    if (timeoutMs > 0 && !timer.isActive()) {
        qWarning() << "Timeout while waiting for request reply";
        return NetworkError;
    }
    if (!replied) {
        qWarning() << "Connection closed by the device while waiting for request reply";
        return NetworkError;
    }
    return Ok;
}

void KorvexClient::messageFromDevice()
{
    // Called directly by the ready-read of the current socket, on its thread
    // (sender() is not set across threads, and only that socket is connected).
    if (m_socket)
        receiveChunk(m_socket->readAll());
}

void KorvexClient::receiveChunk(const QByteArray &chunk)
{
    m_receiveBuffer.append(chunk);
    google::protobuf::LogSilencer silence;

    Korvex::Reply reply;
    if (Wire::decodeWhole(reply, m_receiveBuffer)) {
        m_lastReply = m_receiveBuffer;
        m_reply.Swap(&reply);
        m_receiveBuffer.remove(0, static_cast<int>(m_reply.ByteSizeLong()));
        emit replyFromDevice();
        return;
    }

    Korvex::Request request;
    if (Wire::decodeWhole(request, m_receiveBuffer)) {
        m_lastRequest = m_receiveBuffer;
        m_receiveBuffer.remove(0, static_cast<int>(request.ByteSizeLong()));
        emit requestFromDevice();
        return;
    }

    // The buffer is kept whole, and so blocks every later message: kept on
    // purpose, a device that sends bytes nobody can read is reported once
    // per arrival rather than answered with a guess at where a message starts.
    qWarning() << "Cannot parse message from device";
}

KorvexClient::RequestResult KorvexClient::parseReply(const QByteArray &bytes, QVariant &value)
{
    Korvex::Reply reply;
    {
        google::protobuf::LogSilencer silence;
        reply.ParsePartialFromArray(bytes.constData(), bytes.size());
    }
    return parseReply(reply, value);
}

KorvexClient::RequestResult KorvexClient::parseReply(const Korvex::Reply &reply, QVariant &value)
{
    if (!reply.has_type()) {
        qCritical() << "[KorvexClient]" << "[parseReply]" << "Can't unserialize reply";
        return SerializationError;
    }

    switch (reply.type()) {
    case Korvex::Reply::Pong:
        value = QStringLiteral("PONG");
        return Ok;
    case Korvex::Reply::Value:
        if (!reply.has_value() || !reply.value().has_type())
            return SerializationError;
        return convertValue(reply.value(), value);
    case Korvex::Reply::Error:
        if (!reply.has_status() || !reply.status().has_code())
            return SerializationError;
        value = descriptionText(reply.status());
        return errorResult(reply.status().code());
    case Korvex::Reply::None:
        if (!reply.has_status())
            return Ok;
        if (!reply.status().has_code())
            return SerializationError;
        value = descriptionText(reply.status());
        return reply.status().code() == Korvex::Status::OkWithInformation ? OkWithInformation : Ok;
    }
    return SerializationError;
}

Korvex::Request KorvexClient::buildRequest(Korvex::Request::Type kind, Korvex::Parameter::Type parameter,
                                           const QVariant &value)
{
    Korvex::Request request;
    switch (kind) {
    case Korvex::Request::Ping:
        request.set_type(kind);
        break;
    case Korvex::Request::GetParam:
        request.set_type(kind);
        request.mutable_parameter()->set_type(parameter);
        break;
    case Korvex::Request::SetParam:
        request.set_type(kind);
        request.mutable_parameter()->set_type(parameter);
        if (!fillValue(request.mutable_parameter()->mutable_value(), value))
            qCritical() << InvalidRequestMessage;
        break;
    case Korvex::Request::CheckArchive:
    case Korvex::Request::FlashArchive: {
        request.set_type(kind);
        request.mutable_parameter()->set_type(parameter);
        Korvex::Value *archive = request.mutable_parameter()->mutable_value();
        if (value.type() != QVariant::String) {
            qCritical() << InvalidRequestMessage;
            break;
        }
        // A path is sent whole, zero bytes included.
        const QByteArray path = value.toString().toUtf8();
        archive->set_type(Korvex::Value::String);
        archive->set_stringvalue(path.constData(), static_cast<size_t>(path.size()));
        break;
    }
    case Korvex::Request::SendCommand: {
        request.set_type(kind);
        request.mutable_parameter()->set_type(parameter);
        const QByteArray command = cutAtZero(value.toString().toUtf8());
        Korvex::Value *text = request.mutable_parameter()->mutable_value();
        text->set_type(Korvex::Value::String);
        text->set_stringvalue(command.constData(), static_cast<size_t>(command.size()));
        break;
    }
    default:
        qCritical() << InvalidRequestMessage;
        break;
    }
    return request;
}

Korvex::Request KorvexClient::buildRequest(Korvex::Request::Type kind)
{
    return buildRequest(kind, Korvex::Parameter::None, QVariant());
}

Korvex::Request KorvexClient::buildRequest(Korvex::Request::Type kind, const QVariant &value)
{
    return buildRequest(kind, Korvex::Parameter::None, value);
}

Korvex::Request *KorvexClient::takeLastRequest()
{
    auto *request = new Korvex::Request();
    google::protobuf::LogSilencer silence;
    if (Wire::decodeWhole(*request, m_lastRequest))
        return request;
    delete request;
    return nullptr;
}

QString KorvexClient::resultText(int code)
{
    switch (code) {
    case GenericError:
        return QStringLiteral("Generic error: see logs from Android system.");
    case NetworkError:
        return QStringLiteral("Network error: device unreachable.");
    case SerializationError:
        return QStringLiteral("Serialization error: failed to serialize request.");
    case InvalidRequest:
        return QStringLiteral("Invalid request: bad argument or bad format");
    default:
        return QStringLiteral("Unknown error. Result code: ") + QString::number(code);
    }
}
