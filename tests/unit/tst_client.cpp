// KorvexClient: the reply mapping, and the typed operations' shapes (the
// request each sends, what each makes of the reply) against an in-process
// agent. The exchange itself is tried end to end (tst_remote).
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <functional>

#include "korvexclient.h"

using Korvex::Reply;
using Korvex::Status;

namespace {

// Agents take the first free address of the pool, so that copies of this test
// run from other build trees at the same time do not collide.
constexpr int AgentPoolFirst = 20;
constexpr int AgentPoolSize = 10;

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

// A reply of the given type; a status only with a code, a description only when given.
QByteArray reply(Reply::Type type, int code = -1, const char *description = nullptr)
{
    Reply message;
    message.set_type(type);
    if (code >= 0)
        message.mutable_status()->set_code(static_cast<Status::Code>(code));
    if (description)
        message.mutable_status()->set_description(description);
    return QByteArray::fromStdString(message.SerializePartialAsString());
}

QByteArray intReply(int value)
{
    return reply(Reply::Value, Status::Ok) + hex("1a 04 08 02 18") + char(value);
}

QByteArray stringReply(const QByteArray &text)
{
    return reply(Reply::Value, Status::Ok) + hex("1a") + char(text.size() + 4) + hex("08 04 2a") + char(text.size())
           + text;
}

// In-process agent: records what arrives and answers each arrival with its reply.
class FakeAgent
{
public:
    FakeAgent()
    {
        QObject::connect(&m_server, &QTcpServer::newConnection, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::readyRead, [this, socket] {
                    received << socket->readAll();
                    socket->write(reply);
                });
            }
        });
        for (int host = AgentPoolFirst; host < AgentPoolFirst + AgentPoolSize; ++host)
            if (m_server.listen(QHostAddress(QStringLiteral("127.0.0.%1").arg(host)), KorvexClient::AgentPort))
                break;
    }
    bool aim(KorvexClient &client) const
    {
        client.setAddress(m_server.serverAddress(), KorvexClient::AgentPort);
        return m_server.isListening();
    }

    QByteArray reply;
    QList<QByteArray> received;

private:
    QTcpServer m_server;
};

using Operation = std::function<int(KorvexClient &, QVariant &)>;

// A typed read whose out-argument starts as seed, so an untouched one shows.
template <typename T>
Operation read(KorvexClient::RequestResult (KorvexClient::*getter)(T &), T seed)
{
    return [getter, seed](KorvexClient &client, QVariant &out) {
        T value = seed;
        const int result = (client.*getter)(value);
        out = QVariant::fromValue(value);
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
        {"getDeviceId", read(&KorvexClient::getDeviceId, untouched)},
        {"getAndroidVersion", read(&KorvexClient::getAndroidVersion, untouched)},
        {"getCapabilities", read(&KorvexClient::getCapabilities, untouched)},
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
    void typedOperation_data();
    void typedOperation();
};

void TestClient::parseReply_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("result");
    QTest::addColumn<QVariant>("value"); // "kept" when nothing is delivered
    QTest::addColumn<QString>("logLine");

    const QVariant kept(QStringLiteral("kept"));
    const QVariant empty(QStringLiteral(""));
    const QString unserialize = QStringLiteral("[KorvexClient] [parseReply] Can't unserialize reply");
    const QByteArray value = reply(Reply::Value, Status::Ok);
    const QString notImplemented = QStringLiteral("Not implemented in your current Korvex system.");
    const Reply::Type error = Reply::Error;
    QTest::newRow("no type") << hex("12 02 10 00") << 4 << kept << unserialize;
    QTest::newRow("bare pong") << hex("08 02") << 1 << QVariant("PONG") << QString();
    QTest::newRow("int") << intReply(87) << 1 << QVariant(87) << QString();
    QTest::newRow("float") << value + hex("1a 07 08 03 25 00 00 c0 3f") << 1 << QVariant(1.5f) << QString();
    QTest::newRow("string") << stringReply("h\xc3\xa9") << 1 << QVariant(QStringLiteral("h\u00e9")) << QString();
    QTest::newRow("bytes") << value + hex("1a 07 08 05 32 03 61 00 62") << 1 << QVariant(QByteArray("a\0b", 3))
                           << QString();
    QTest::newRow("value type names an absent field") << value + hex("1a 02 08 04") << 4 << kept << QString();
    QTest::newRow("value reply without value") << value << 4 << kept << QString();
    QTest::newRow("error generic") << reply(error, Status::GenericError, "boom") << 2 << QVariant("boom") << QString();
    QTest::newRow("error without description") << reply(error, Status::InvalidRequest) << 5 << empty << QString();
    QTest::newRow("error not implemented") << reply(error, Status::NotImplemented) << 8 << empty << notImplemented;
    QTest::newRow("error with code ok") << reply(error, Status::Ok, "fine") << 1 << QVariant("fine") << QString();
    QTest::newRow("error with information") << reply(error, Status::OkWithInformation, "i") << 4 << QVariant("i")
                                            << QString();
    QTest::newRow("none without status") << reply(Reply::None) << 1 << kept << QString();
    QTest::newRow("none with information") << reply(Reply::None, Status::OkWithInformation, "n") << 7
                                           << QVariant("n") << QString();
    QTest::newRow("none with error code") << reply(Reply::None, Status::GenericError) << 1 << empty << QString();
    QTest::newRow("none with status without code") << hex("08 00 12 00") << 4 << kept << QString();
}

void TestClient::parseReply()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, result);
    QFETCH(QVariant, value);
    QFETCH(QString, logLine);

    if (!logLine.isEmpty())
        QTest::ignoreMessage(logLine.startsWith('[') ? QtCriticalMsg : QtWarningMsg, qPrintable(logLine));
    KorvexClient client;
    QVariant delivered(QStringLiteral("kept"));
    QCOMPARE(client.parseReply(bytes, delivered), result);
    QCOMPARE(delivered.type(), value.type());
    QCOMPARE(delivered, value);
}

void TestClient::typedOperation_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<int>("result");
    QTest::addColumn<QVariant>("out");

    const QVariant none;
    const QByteArray failed = reply(Reply::Error, Status::GenericError, "boom");
    QTest::newRow("ping answered with error") << "ping" << failed << 2 << none;
    QTest::newRow("failed read leaves out") << "getBatteryLevel" << failed << 2 << QVariant(-7);
    QTest::newRow("read with information") << "getBatteryLevel" << reply(Reply::None, 3, "12") << 7 << QVariant(12);
    QTest::newRow("write with reply") << "setBatteryLevel" << reply(Reply::Error, 2, "x") << 5 << QVariant("x");
    QTest::newRow("blind write ignores error") << "setGpsStatus" << failed << 1 << none;
    QTest::newRow("no device id") << "getDeviceId" << stringReply("[none]") << 1 << QVariant(QString());
    QTest::newRow("device id is case-sensitive") << "getDeviceId" << stringReply("[None]") << 1 << QVariant("[None]");
    QTest::newRow("version set whatever the result") << "getAndroidVersion" << failed << 2 << QVariant("boom");
    QTest::newRow("capabilities only on success") << "getCapabilities" << failed << 2 << QVariant("untouched");
}

void TestClient::typedOperation()
{
    QFETCH(QString, operation);
    QFETCH(QByteArray, reply);
    QFETCH(int, result);
    QFETCH(QVariant, out);

    FakeAgent agent;
    agent.reply = reply;
    KorvexClient client;
    QVERIFY(agent.aim(client));
    QVariant actual;
    QCOMPARE(operations().value(operation)(client, actual), result);
    QCOMPARE(actual, out);
    QCOMPARE(actual.isNull(), out.isNull());
    QCOMPARE(agent.received.size(), 1);
}

QTEST_GUILESS_MAIN(TestClient)
#include "tst_client.moc"
