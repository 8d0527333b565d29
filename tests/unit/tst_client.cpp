// KorvexClient: reply interpretation, request building, the typed operations,
// and the receive path (chunks, merged messages, device requests, garbage,
// late replies, connection reuse, requests from a pool thread) against an
// in-process agent on loopback.
#include <QPointer>
#include <QRandomGenerator>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtConcurrent>
#include <QtTest>

#include <functional>
#include <type_traits>

#include "korvexclient.h"

using Korvex::Parameter;
using Korvex::Reply;
using Korvex::Request;
using Korvex::Status;

namespace {

// Agents take the first free address of the pool, so that copies of this test
// run from other build trees at the same time do not collide.
constexpr int AgentPoolFirst = 20;
constexpr int AgentPoolSize = 10;
constexpr int ShortTimeoutMs = 300; // only where no reply is expected
constexpr int FuzzTimeoutMs = 50;
constexpr int WaitBoundMs = 15000;
const QString CannotParse = QStringLiteral("Cannot parse message from device");
const QString TimeoutLine = QStringLiteral("Timeout while waiting for request reply");

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

QByteArray encoded(const google::protobuf::MessageLite &message)
{
    return QByteArray::fromStdString(message.SerializePartialAsString());
}

QByteArray pongReply()
{
    return hex("08 02 12 02 10 00");
}

QByteArray noneReply(int code = -1, const char *description = nullptr)
{
    Reply reply;
    reply.set_type(Reply::None);
    if (code >= 0)
        reply.mutable_status()->set_code(static_cast<Status::Code>(code));
    if (description)
        reply.mutable_status()->set_description(description);
    return encoded(reply);
}

QByteArray errorReply(Status::Code code, const char *description = nullptr)
{
    Reply reply;
    reply.set_type(Reply::Error);
    reply.mutable_status()->set_code(code);
    if (description)
        reply.mutable_status()->set_description(description);
    return encoded(reply);
}

QByteArray valueReply(const QVariant &value)
{
    Reply reply;
    reply.set_type(Reply::Value);
    reply.mutable_status()->set_code(Status::Ok);
    Korvex::Value *field = reply.mutable_value();
    switch (static_cast<QMetaType::Type>(value.type())) {
    case QMetaType::Bool:
        field->set_type(Korvex::Value::Bool);
        field->set_boolvalue(value.toBool());
        break;
    case QMetaType::Int:
        field->set_type(Korvex::Value::Int);
        field->set_intvalue(value.toInt());
        break;
    case QMetaType::Float:
        field->set_type(Korvex::Value::Float);
        field->set_floatvalue(value.toFloat());
        break;
    case QMetaType::Double:
        field->set_type(Korvex::Value::Double);
        field->set_doublevalue(value.toDouble());
        break;
    case QMetaType::QByteArray:
        field->set_type(Korvex::Value::Bytes);
        field->set_bytesvalue(value.toByteArray().toStdString());
        break;
    default:
        field->set_type(Korvex::Value::String);
        field->set_stringvalue(value.toString().toStdString());
        break;
    }
    return encoded(reply);
}

// The value a request carries, as the agent reads it (doubles from the
// double field that goes with a Float).
QVariant carriedValue(const Request &request)
{
    if (!request.parameter().has_value())
        return {};
    const Korvex::Value &value = request.parameter().value();
    switch (value.type()) {
    case Korvex::Value::Bool:
        return value.boolvalue();
    case Korvex::Value::Int:
        return value.intvalue();
    case Korvex::Value::Float:
        return value.doublevalue();
    case Korvex::Value::String:
        return QString::fromStdString(value.stringvalue());
    default:
        return {};
    }
}

// Log lines of the process while alive (messages come from pool threads too).
class MessageCapture
{
public:
    MessageCapture()
    {
        s_current = this;
        m_previous = qInstallMessageHandler(handler);
    }
    ~MessageCapture()
    {
        qInstallMessageHandler(m_previous);
        s_current = nullptr;
    }
    QStringList lines() const
    {
        QMutexLocker locker(&m_lock);
        return m_lines;
    }
    int count(const QString &line) const { return lines().count(line); }

private:
    static void handler(QtMsgType, const QMessageLogContext &, const QString &message)
    {
        QMutexLocker locker(&s_current->m_lock);
        s_current->m_lines << message;
    }

    static MessageCapture *s_current;
    QtMessageHandler m_previous = nullptr;
    mutable QMutex m_lock;
    QStringList m_lines;
};
MessageCapture *MessageCapture::s_current = nullptr;

// In-process agent: records what arrives and answers each arrival with the
// next queued reply (none queued: silent).
class FakeAgent
{
public:
    FakeAgent() { QObject::connect(&m_server, &QTcpServer::newConnection, [this] { accept(); }); }

    bool listen()
    {
        for (int host = AgentPoolFirst; host < AgentPoolFirst + AgentPoolSize; ++host)
            if (m_server.listen(QHostAddress(QStringLiteral("127.0.0.%1").arg(host)), KorvexClient::AgentPort))
                return true;
        return false;
    }
    QHostAddress address() const { return m_server.serverAddress(); }
    void queue(const QByteArray &reply) { m_replies << reply; }
    void send(const QByteArray &bytes)
    {
        if (!m_sockets.isEmpty() && m_sockets.last()) {
            m_sockets.last()->write(bytes);
            m_sockets.last()->flush();
        }
    }
    void closeConnections()
    {
        for (const auto &socket : m_sockets)
            if (socket)
                socket->disconnectFromHost();
    }
    QList<QByteArray> received;
    int connections = 0;
    std::function<void()> onRequest; // runs after the queued reply went out

private:
    void accept()
    {
        while (QTcpSocket *socket = m_server.nextPendingConnection()) {
            ++connections;
            m_sockets << socket;
            QObject::connect(socket, &QTcpSocket::readyRead, [this, socket] {
                received << socket->readAll();
                if (!m_replies.isEmpty())
                    send(m_replies.takeFirst());
                if (onRequest)
                    onRequest();
            });
        }
    }

    QTcpServer m_server;
    QList<QPointer<QTcpSocket>> m_sockets;
    QList<QByteArray> m_replies;
};

Request decodeRequest(const QByteArray &bytes)
{
    Request request;
    request.ParseFromArray(bytes.constData(), bytes.size());
    return request;
}

bool isKnownResult(int result)
{
    static const QList<int> known{KorvexClient::Ok, KorvexClient::GenericError, KorvexClient::NetworkError,
                                  KorvexClient::SerializationError, KorvexClient::InvalidRequest,
                                  KorvexClient::OkWithInformation, KorvexClient::NotImplemented};
    return known.contains(result);
}

using Operation = std::function<int(KorvexClient &, QVariant &)>;

// A typed read whose out-argument starts as seed, so an untouched one shows;
// a null text is reported as no value, apart from an empty one.
template <typename T>
Operation read(int (KorvexClient::*getter)(T &), T seed)
{
    return [getter, seed](KorvexClient &client, QVariant &out) {
        T value = seed;
        const int result = (client.*getter)(value);
        out = QVariant::fromValue(value);
        if constexpr (std::is_same_v<T, QString>)
            out = value.isNull() ? QVariant() : out;
        return result;
    };
}

const QHash<QString, Operation> &operations()
{
    static const QString untouched = QStringLiteral("untouched");
    static const QHash<QString, Operation> table{
        {"ping", [](KorvexClient &c, QVariant &) { return c.ping(); }},
        {"getBatteryLevel", read(&KorvexClient::getBatteryLevel, -7)},
        {"setBatteryLevel", [](KorvexClient &c, QVariant &out) { return c.setBatteryLevel(42, out); }},
        {"setGpsStatus", [](KorvexClient &c, QVariant &) { return c.setGpsStatus(false); }},
        {"getGpsLatitude", read(&KorvexClient::getGpsLatitude, -1.0)},
        {"setGpsLatitude", [](KorvexClient &c, QVariant &out) { return c.setGpsLatitude(48.8584, out); }},
        {"setAccelerometer", [](KorvexClient &c, QVariant &out) { return c.setAccelerometer(out, 0, 9.80665, 0); }},
        {"getDeviceId", read(&KorvexClient::getDeviceId, untouched)},
        {"setDeviceId", [](KorvexClient &c, QVariant &out) { return c.setDeviceId(QString(), out); }},
        {"getAndroidVersion", read(&KorvexClient::getAndroidVersion, untouched)},
        {"getCapabilities", read(&KorvexClient::getCapabilities, untouched)},
        {"phoneCall", [](KorvexClient &c, QVariant &) { return c.phoneCall("555"); }},
        {"sendSms", [](KorvexClient &c, QVariant &) { return c.sendSms("555", QStringLiteral("h\u00e9llo")); }},
        {"sendBasebandCommand", [](KorvexClient &c, QVariant &) { return c.sendBasebandCommand("gsm status"); }},
    };
    return table;
}

} // namespace

class TestClient : public QObject
{
    Q_OBJECT

private slots:
    void parseReply_data();
    void parseReply();
    void buildRequest_data();
    void buildRequest();
    void isValid_data();
    void isValid();
    void typedOperation_data();
    void typedOperation();

    void splitReplyDecodedAfterLastChunk();
    void twoRepliesInOneChunkAreMerged();
    void requestFromDevice();
    void garbageBlocksLaterMessages();
    void persistentReconnectsAfterClose();
    void requestsFromPoolThread();
    void randomBytesNeverCrash();
};

void TestClient::parseReply_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("result");
    QTest::addColumn<QVariant>("value"); // "kept" when nothing is delivered
    QTest::addColumn<QString>("logLine");

    const QVariant kept(QStringLiteral("kept"));
    QTest::newRow("no type") << hex("12 02 10 00") << 4 << kept
                             << "[KorvexClient] [parseReply] Can't unserialize reply";
    QTest::newRow("unknown type") << hex("08 09 12 02 10 00") << 4 << kept
                                  << "[KorvexClient] [parseReply] Can't unserialize reply";
    QTest::newRow("pong") << pongReply() << 1 << QVariant(QStringLiteral("PONG")) << QString();
    QTest::newRow("bare pong") << hex("08 02") << 1 << QVariant(QStringLiteral("PONG")) << QString();
    QTest::newRow("int") << valueReply(87) << 1 << QVariant(87) << QString();
    QTest::newRow("bool") << valueReply(true) << 1 << QVariant(true) << QString();
    QTest::newRow("float") << valueReply(1.5f) << 1 << QVariant(1.5f) << QString();
    QTest::newRow("double") << valueReply(48.8584) << 1 << QVariant(48.8584) << QString();
    QTest::newRow("string") << valueReply(QStringLiteral("h\u00e9")) << 1 << QVariant(QStringLiteral("h\u00e9"))
                            << QString();
    QTest::newRow("bytes") << valueReply(QByteArray("a\0b", 3)) << 1 << QVariant(QByteArray("a\0b", 3))
                           << QString();
    QTest::newRow("value type names an absent field") << hex("08 03 12 02 10 00 1a 02 08 04") << 4 << kept
                                                      << QString();
    QTest::newRow("value without type") << hex("08 03 12 02 10 00 1a 02 18 01") << 4 << kept << QString();
    QTest::newRow("value reply without value") << hex("08 03 12 02 10 00") << 4 << kept << QString();
    QTest::newRow("error without status") << hex("08 01") << 4 << kept << QString();
    QTest::newRow("error generic") << errorReply(Status::GenericError, "boom") << 2
                                   << QVariant(QStringLiteral("boom")) << QString();
    QTest::newRow("error without description") << errorReply(Status::InvalidRequest) << 5
                                               << QVariant(QStringLiteral("")) << QString();
    QTest::newRow("error not implemented") << errorReply(Status::NotImplemented) << 8
                                           << QVariant(QStringLiteral(""))
                                           << "Not implemented in your current Korvex system.";
    QTest::newRow("error with code ok") << errorReply(Status::Ok, "fine") << 1 << QVariant(QStringLiteral("fine"))
                                        << QString();
    QTest::newRow("error with information") << errorReply(Status::OkWithInformation, "info") << 4
                                            << QVariant(QStringLiteral("info")) << QString();
    QTest::newRow("none without status") << noneReply() << 1 << kept << QString();
    QTest::newRow("none with information") << noneReply(Status::OkWithInformation, "note") << 7
                                           << QVariant(QStringLiteral("note")) << QString();
    QTest::newRow("none with error code") << noneReply(Status::GenericError) << 1 << QVariant(QStringLiteral(""))
                                          << QString();
    QTest::newRow("none with status without code") << hex("08 00 12 00") << 4 << kept << QString();
}

void TestClient::parseReply()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, result);
    QFETCH(QVariant, value);
    QFETCH(QString, logLine);

    MessageCapture capture;
    KorvexClient client;
    QVariant delivered(QStringLiteral("kept"));
    QCOMPARE(client.parseReply(bytes, delivered), result);
    QCOMPARE(delivered.type(), value.type());
    QCOMPARE(delivered, value);
    QCOMPARE(capture.lines(), logLine.isEmpty() ? QStringList() : QStringList{logLine});
}

void TestClient::buildRequest_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("parameter");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("refused"); // logs the invalid-request line

    const int set = Request::SetParam;
    const int level = Parameter::BatteryLevel;
    QTest::newRow("get ignores the value")
        << int(Request::GetParam) << level << QVariant(3) << hex("08 02 12 02 08 04") << false;
    QTest::newRow("bool") << set << int(Parameter::GpsStatus) << QVariant(true)
                          << hex("08 03 12 08 08 06 12 04 08 01 10 01") << false;
    QTest::newRow("negative int") << set << level << QVariant(-1)
                                  << hex("08 03 12 11 08 04 12 0d 08 02 18 ff ff ff ff ff ff ff ff ff 01") << false;
    QTest::newRow("unsigned int wraps") << set << level << QVariant(4294967295u)
                                        << hex("08 03 12 11 08 04 12 0d 08 02 18 ff ff ff ff ff ff ff ff ff 01")
                                        << false;
    QTest::newRow("string cut at zero") << set << int(Parameter::AndroidId) << QVariant(QString::fromUtf8("ab\0cd", 5))
                                        << hex("08 03 12 0a 08 12 12 06 08 04 2a 02 61 62") << false;
    QTest::newRow("bytes cut at zero") << set << int(Parameter::AndroidId) << QVariant(QByteArray("ab\0cd", 5))
                                       << hex("08 03 12 0a 08 12 12 06 08 05 32 02 61 62") << false;
    QTest::newRow("64-bit int") << set << level << QVariant(qlonglong(5)) << hex("08 03 12 04 08 04 12 00")
                                << true;
    QTest::newRow("float") << set << level << QVariant(1.5f) << hex("08 03 12 04 08 04 12 00") << true;
    QTest::newRow("null") << set << level << QVariant() << hex("08 03 12 04 08 04 12 00") << true;
    QTest::newRow("archive kept whole") << int(Request::CheckArchive) << int(Parameter::FileName)
                                        << QVariant(QString::fromUtf8("a\0b", 3))
                                        << hex("08 04 12 0b 08 0f 12 07 08 04 2a 03 61 00 62") << false;
    QTest::newRow("archive not a string") << int(Request::FlashArchive) << int(Parameter::FileName) << QVariant(1)
                                          << hex("08 05 12 04 08 0f 12 00") << true;
    QTest::newRow("command from a number") << int(Request::SendCommand) << int(Parameter::KvexBasebandCmd)
                                           << QVariant(42) << hex("08 07 12 0a 08 1d 12 06 08 04 2a 02 34 32")
                                           << false;
    QTest::newRow("push data") << int(Request::PushData) << level << QVariant(1) << QByteArray() << true;
    QTest::newRow("none") << int(Request::None) << level << QVariant(1) << QByteArray() << true;
}

void TestClient::buildRequest()
{
    QFETCH(int, kind);
    QFETCH(int, parameter);
    QFETCH(QVariant, value);
    QFETCH(QByteArray, bytes);
    QFETCH(bool, refused);

    MessageCapture capture;
    KorvexClient client;
    const Request request = client.buildRequest(static_cast<Request::Type>(kind),
                                                static_cast<Parameter::Type>(parameter), value);
    QByteArray actual(static_cast<int>(request.ByteSizeLong()), '\0');
    request.SerializePartialToArray(actual.data(), actual.size());
    QCOMPARE(actual.toHex(' '), bytes.toHex(' '));
    const QStringList expectedLog{"Invalid request type in buildRequest. Sending dummy empty request"};
    QCOMPARE(capture.lines(), refused ? expectedLog : QStringList());
}

void TestClient::isValid_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<int>("port");
    QTest::addColumn<bool>("valid");
    QTest::newRow("loopback") << "127.0.0.1" << 22666 << true;
    QTest::newRow("any") << "0.0.0.0" << 22666 << false;
    QTest::newRow("port 0") << "127.0.0.1" << 0 << false;
    QTest::newRow("null") << QString() << 22666 << false;
}

void TestClient::isValid()
{
    QFETCH(QString, address);
    QFETCH(int, port);
    QFETCH(bool, valid);
    KorvexClient client;
    QVERIFY(!client.isValid());
    client.setAddress(QHostAddress(address), port);
    QCOMPARE(client.isValid(), valid);
}

void TestClient::typedOperation_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<int>("sentKind");
    QTest::addColumn<int>("sentParameter");
    QTest::addColumn<QVariant>("sentValue");
    QTest::addColumn<int>("result");
    QTest::addColumn<QVariant>("out");

    const int get = Request::GetParam;
    const int set = Request::SetParam;
    const int command = Request::SendCommand;
    const int baseband = Parameter::KvexBasebandCmd;
    const QVariant none;
    const QByteArray ok = noneReply(Status::Ok);
    const QByteArray failed = errorReply(Status::GenericError, "boom");

    QTest::newRow("ping") << "ping" << pongReply() << int(Request::Ping) << 0 << none << 1 << none;
    QTest::newRow("ping answered with a value") << "ping" << valueReply(5) << int(Request::Ping) << 0 << none << 1
                                                << none;
    QTest::newRow("ping answered with error") << "ping" << failed << int(Request::Ping) << 0 << none << 2 << none;
    QTest::newRow("read int") << "getBatteryLevel" << valueReply(87) << get << int(Parameter::BatteryLevel)
                              << none << 1 << QVariant(87);
    QTest::newRow("failed read leaves out") << "getBatteryLevel" << failed << get << int(Parameter::BatteryLevel)
                                            << none << 2 << QVariant(-7);
    QTest::newRow("read with information") << "getBatteryLevel" << noneReply(Status::OkWithInformation, "12")
                                           << get << int(Parameter::BatteryLevel) << none << 7 << QVariant(12);
    QTest::newRow("write with reply") << "setBatteryLevel" << errorReply(Status::InvalidRequest, "bad") << set
                                      << int(Parameter::BatteryLevel) << QVariant(42) << 5
                                      << QVariant(QStringLiteral("bad"));
    QTest::newRow("blind write ignores error") << "setGpsStatus" << failed << set << int(Parameter::GpsStatus)
                                               << QVariant(false) << 1 << none;
    QTest::newRow("read float as double") << "getGpsLatitude" << valueReply(1.5f) << get
                                          << int(Parameter::GpsLatitude) << none << 1 << QVariant(1.5);
    QTest::newRow("write double") << "setGpsLatitude" << ok << set << int(Parameter::GpsLatitude)
                                  << QVariant(48.8584) << 1 << QVariant(QStringLiteral(""));
    QTest::newRow("accelerometer") << "setAccelerometer" << ok << set << int(Parameter::Accelerometer)
                                   << QVariant(QStringLiteral("0|9.80665|0")) << 1 << QVariant(QStringLiteral(""));
    QTest::newRow("no device id") << "getDeviceId" << valueReply(QStringLiteral("[none]")) << get
                                  << int(Parameter::DeviceId) << none << 1 << none;
    QTest::newRow("device id") << "getDeviceId" << valueReply(QStringLiteral("[None]")) << get
                               << int(Parameter::DeviceId) << none << 1 << QVariant(QStringLiteral("[None]"));
    QTest::newRow("empty device id sent as none") << "setDeviceId" << ok << set << int(Parameter::DeviceId)
                                                  << QVariant(QStringLiteral("[none]")) << 1
                                                  << QVariant(QStringLiteral(""));
    QTest::newRow("version set whatever the result") << "getAndroidVersion" << failed << get
                                                     << int(Parameter::AndroidVersion) << none << 2
                                                     << QVariant(QStringLiteral("boom"));
    QTest::newRow("version null without value") << "getAndroidVersion" << hex("08 03 12 02 10 00 1a 02 08 04")
                                                << get << int(Parameter::AndroidVersion) << none << 4 << none;
    QTest::newRow("capabilities") << "getCapabilities" << valueReply(QStringLiteral("battery gps")) << get
                                  << int(Parameter::Capabilities) << none << 1
                                  << QVariant(QStringLiteral("battery gps"));
    QTest::newRow("capabilities failed") << "getCapabilities" << failed << get << int(Parameter::Capabilities)
                                         << none << 2 << QVariant(QStringLiteral("untouched"));
    QTest::newRow("call") << "phoneCall" << ok << command << baseband << QVariant(QStringLiteral("gsm call 555\n"))
                          << 1 << none;
    QTest::newRow("sms") << "sendSms" << ok << command << baseband
                         << QVariant(QStringLiteral("sms sendb64 555 aMOpbGxv\n")) << 1 << none;
    QTest::newRow("baseband") << "sendBasebandCommand" << failed << command << baseband
                              << QVariant(QStringLiteral("gsm status\n")) << 2 << none;
}

void TestClient::typedOperation()
{
    QFETCH(QString, operation);
    QFETCH(QByteArray, reply);
    QFETCH(int, sentKind);
    QFETCH(int, sentParameter);
    QFETCH(QVariant, sentValue);
    QFETCH(int, result);
    QFETCH(QVariant, out);

    FakeAgent agent;
    QVERIFY(agent.listen());
    agent.queue(reply);
    KorvexClient client;
    client.setAddress(agent.address(), KorvexClient::AgentPort);

    QVariant actual;
    QCOMPARE(operations().value(operation)(client, actual), result);
    QCOMPARE(actual, out);
    QCOMPARE(actual.isNull(), out.isNull());

    QCOMPARE(agent.received.size(), 1);
    const Request request = decodeRequest(agent.received.first());
    QCOMPARE(int(request.type()), sentKind);
    QCOMPARE(int(request.parameter().type()), sentParameter);
    QCOMPARE(carriedValue(request), sentValue);
}

void TestClient::splitReplyDecodedAfterLastChunk()
{
    MessageCapture capture;
    FakeAgent agent;
    QVERIFY(agent.listen());
    const QByteArray reply = valueReply(87);
    agent.queue(reply.left(3));
    // The rest goes out only once the client has seen the first chunk.
    QTimer rest;
    QObject::connect(&rest, &QTimer::timeout, [&] {
        if (capture.count(CannotParse) == 1) {
            rest.stop();
            agent.send(reply.mid(3));
        }
    });
    agent.onRequest = [&] { rest.start(10); };

    KorvexClient client;
    client.setAddress(agent.address(), KorvexClient::AgentPort);
    int level = 0;
    QCOMPARE(client.getBatteryLevel(level), int(KorvexClient::Ok));
    QCOMPARE(level, 87);
    QCOMPARE(capture.lines(), QStringList{CannotParse});
}

void TestClient::twoRepliesInOneChunkAreMerged()
{
    FakeAgent agent;
    QVERIFY(agent.listen());
    const QByteArray first = valueReply(87);
    const QByteArray second = valueReply(88);
    agent.queue(first + second);
    agent.queue(pongReply());

    KorvexClient client;
    client.setAddress(agent.address(), KorvexClient::AgentPort);
    int level = 0;
    QCOMPARE(client.getBatteryLevel(level), int(KorvexClient::Ok));
    QCOMPARE(level, 88); // the later scalar wins

    // Only one message's worth was dropped: the rest leads the next reply.
    QByteArray bytes;
    QCOMPARE(client.sendRequest(client.buildRequest(Request::Ping), bytes, KorvexClient::ReplyTimeoutMs),
             int(KorvexClient::Ok));
    QCOMPARE(bytes.toHex(' '), (second + pongReply()).toHex(' '));
}

void TestClient::requestFromDevice()
{
    MessageCapture capture;
    FakeAgent agent;
    QVERIFY(agent.listen());
    agent.queue(hex("08 02")); // a Pong without status reads as a GetParam request

    KorvexClient client;
    client.setAddress(agent.address(), KorvexClient::AgentPort);
    QVERIFY(!client.takeLastRequest());
    QSignalSpy requests(&client, &KorvexClient::requestFromDevice);
    QByteArray bytes;
    QCOMPARE(client.sendRequest(client.buildRequest(Request::Ping), bytes, ShortTimeoutMs),
             int(KorvexClient::NetworkError));
    QCOMPARE(requests.count(), 1);
    QScopedPointer<Request> request(client.takeLastRequest());
    QVERIFY(request);
    QCOMPARE(request->type(), Request::GetParam);
    QCOMPARE(capture.lines(), QStringList{TimeoutLine});
}

void TestClient::garbageBlocksLaterMessages()
{
    MessageCapture capture;
    FakeAgent agent;
    QVERIFY(agent.listen());
    agent.queue(hex("00 de ad"));
    agent.queue(pongReply());

    KorvexClient client;
    client.setAddress(agent.address(), KorvexClient::AgentPort);
    QByteArray bytes;
    for (int attempt = 0; attempt < 2; ++attempt)
        QCOMPARE(client.sendRequest(client.buildRequest(Request::Ping), bytes, ShortTimeoutMs),
                 int(KorvexClient::NetworkError));
    QCOMPARE(agent.connections, 2); // the buffer outlives the connection
    QCOMPARE(capture.count(CannotParse), 2);
    QCOMPARE(capture.count(TimeoutLine), 2);
}

void TestClient::persistentReconnectsAfterClose()
{
    MessageCapture capture;
    FakeAgent agent;
    QVERIFY(agent.listen());
    agent.onRequest = [&] { agent.closeConnections(); };
    KorvexClient client;
    client.setAddress(agent.address(), KorvexClient::AgentPort);
    client.setPersistent(true);

    QByteArray bytes;
    QCOMPARE(client.sendRequest(client.buildRequest(Request::Ping), bytes, ShortTimeoutMs),
             int(KorvexClient::NetworkError));
    agent.onRequest = nullptr;
    agent.queue(pongReply());
    QCOMPARE(client.ping(), int(KorvexClient::Ok));
    QCOMPARE(agent.connections, 2);

    const QString reconnect =
        "[initConnection] Persistant connection but not connected. Will reconnect to \""
        + agent.address().toString() + "\"";
    QCOMPARE(capture.count(reconnect), 2); // the first connection logs it too
}

// The shell's model: the client lives on the main thread, requests come from
// a pool thread, the main thread runs the event loop.
void TestClient::requestsFromPoolThread()
{
    MessageCapture capture;
    FakeAgent agent;
    QVERIFY(agent.listen());
    {
        KorvexClient client;
        client.setAddress(agent.address(), KorvexClient::AgentPort);
        client.setPersistent(true);

        // Silent on the first two requests; the Pong for the first one comes
        // after it timed out and ends the wait of the second.
        agent.queue(QByteArray());
        agent.queue(QByteArray());
        agent.queue(valueReply(87));
        agent.onRequest = [&] {
            if (agent.received.size() == 1)
                QTimer::singleShot(ShortTimeoutMs * 2, [&] { agent.send(pongReply()); });
        };
        QFuture<QList<int>> future = QtConcurrent::run([&client] {
            QByteArray bytes;
            const int timedOut = client.sendRequest(client.buildRequest(Request::Ping), bytes, ShortTimeoutMs);
            int level = -1;
            const int late = client.getBatteryLevel(level); // a Pong carries no level
            const int read = client.getBatteryLevel(level);
            return QList<int>{timedOut, late, read, level};
        });
        QTRY_VERIFY_WITH_TIMEOUT(future.isFinished(), WaitBoundMs);
        QCOMPARE(future.result(), (QList<int>{KorvexClient::NetworkError, KorvexClient::Ok, KorvexClient::Ok, 87}));

        // The same persistent socket now serves the main thread.
        agent.queue(pongReply());
        QCOMPARE(client.ping(), int(KorvexClient::Ok));
        QCOMPARE(agent.connections, 1);
    }
    for (const QString &line : capture.lines())
        QVERIFY2(!line.contains("thread"), qPrintable(line));
}

void TestClient::randomBytesNeverCrash()
{
    QRandomGenerator random(20161117);
    auto randomBytes = [&random](int maxSize) {
        QByteArray bytes(random.bounded(1, maxSize), '\0');
        for (char &byte : bytes)
            byte = static_cast<char>(random.bounded(256));
        return bytes;
    };

    MessageCapture capture; // keeps the expected warnings out of the output
    KorvexClient interpreter;
    for (int i = 0; i < 5000; ++i) {
        QVariant value;
        QVERIFY(isKnownResult(interpreter.parseReply(randomBytes(40), value)));
    }

    FakeAgent agent;
    QVERIFY(agent.listen());
    for (int i = 0; i < 20; ++i) {
        KorvexClient client;
        client.setAddress(agent.address(), KorvexClient::AgentPort);
        // Valid replies around the noise make some buffers decode.
        agent.queue(random.bounded(2) ? randomBytes(64) + pongReply() : pongReply().left(2) + randomBytes(8));
        QByteArray bytes;
        const int result = client.sendRequest(client.buildRequest(Request::Ping), bytes, FuzzTimeoutMs);
        QVERIFY(result == KorvexClient::Ok || result == KorvexClient::NetworkError);
        QVariant value;
        QVERIFY(isKnownResult(client.parseReply(bytes, value)));
    }
}

QTEST_GUILESS_MAIN(TestClient)
#include "tst_client.moc"
