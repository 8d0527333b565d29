// Wire encoding of the agent protocol: the byte sequences deployed agents
// expect for each request and reply, and which byte sequences count as a
// complete Reply or Request under the whole-buffer decoding rule.
#include <QtEndian>
#include <QtTest>

#include <cstring>

#include "korvexclient.h"

Q_DECLARE_METATYPE(Korvex::Request::Type)
Q_DECLARE_METATYPE(Korvex::Parameter::Type)

namespace {

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

QByteArray encoded(const google::protobuf::MessageLite &message)
{
    return QByteArray::fromStdString(message.SerializeAsString());
}

template <typename Message>
bool decodesAs(const QByteArray &bytes)
{
    Message message;
    return message.ParsePartialFromArray(bytes.constData(), bytes.size()) && message.IsInitialized();
}

template <typename T>
QByteArray littleEndian(T value)
{
    QByteArray bytes(sizeof(T), '\0');
    qToLittleEndian(value, bytes.data());
    return bytes;
}

} // namespace

class TestWire : public QObject
{
    Q_OBJECT

private slots:
    void requestBytes_data();
    void requestBytes();
    void replyBytes();
    void decoding_data();
    void decoding();
};

void TestWire::requestBytes_data()
{
    QTest::addColumn<Korvex::Request::Type>("kind");
    QTest::addColumn<Korvex::Parameter::Type>("parameter");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("bytes");

    const double latitude = 48.8584;
    const QByteArray latitudeBytes = hex("08 03 12 14 08 07 12 10 08 03 25")
                                     + littleEndian(static_cast<float>(latitude)) + hex("39")
                                     + littleEndian(latitude);

    QTest::newRow("ping") << Korvex::Request::Ping << Korvex::Parameter::None << QVariant() << hex("08 01");
    QTest::newRow("get battery level")
        << Korvex::Request::GetParam << Korvex::Parameter::BatteryLevel << QVariant() << hex("08 02 12 02 08 04");
    QTest::newRow("set battery level 50") << Korvex::Request::SetParam << Korvex::Parameter::BatteryLevel
                                          << QVariant(50) << hex("08 03 12 08 08 04 12 04 08 02 18 32");
    QTest::newRow("set latitude") << Korvex::Request::SetParam << Korvex::Parameter::GpsLatitude
                                  << QVariant(latitude) << latitudeBytes;
    QTest::newRow("send command") << Korvex::Request::SendCommand << Korvex::Parameter::KvexBasebandCmd
                                  << QVariant(QStringLiteral("gsm call 555\n"))
                                  << hex("08 07 12 15 08 1d 12 11 08 04 2a 0d") + QByteArray("gsm call 555\n");
}

void TestWire::requestBytes()
{
    QFETCH(Korvex::Request::Type, kind);
    QFETCH(Korvex::Parameter::Type, parameter);
    QFETCH(QVariant, value);
    QFETCH(QByteArray, bytes);

    KorvexClient client;
    const Korvex::Request request = client.buildRequest(kind, parameter, value);
    QCOMPARE(encoded(request).toHex(' '), bytes.toHex(' '));
    QCOMPARE(static_cast<int>(request.ByteSizeLong()), bytes.size());
}

void TestWire::replyBytes()
{
    Korvex::Reply pong;
    pong.set_type(Korvex::Reply::Pong);
    pong.mutable_status()->set_code(Korvex::Status::Ok);
    QCOMPARE(encoded(pong).toHex(' '), hex("08 02 12 02 10 00").toHex(' '));

    Korvex::Reply value;
    value.set_type(Korvex::Reply::Value);
    value.mutable_status()->set_code(Korvex::Status::Ok);
    value.mutable_value()->set_type(Korvex::Value::Int);
    value.mutable_value()->set_intvalue(87);
    QCOMPARE(encoded(value).toHex(' '), hex("08 03 12 02 10 00 1a 04 08 02 18 57").toHex(' '));
}

void TestWire::decoding_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("isReply");
    QTest::addColumn<bool>("isRequest");

    QTest::newRow("pong") << hex("08 02 12 02 10 00") << true << false;
    QTest::newRow("value reply") << hex("08 03 12 02 10 00 1a 04 08 02 18 57") << true << false;
    QTest::newRow("pong without status is a GetParam request") << hex("08 02") << false << true;
    QTest::newRow("status code under number 1") << hex("08 02 12 02 08 00") << false << true;
    QTest::newRow("value without its type") << hex("08 03 12 02 10 00 1a 02 18 57") << false << false;
    QTest::newRow("first half of a value reply") << hex("08 03 12 02 10 00 1a 04") << false << false;
    QTest::newRow("first chunk ending on a field boundary") << hex("08 03 12 02 10 00") << true << false;
    QTest::newRow("ping request") << hex("08 01") << false << true;
    QTest::newRow("empty") << QByteArray() << false << false;
    QTest::newRow("zero tag") << hex("00 08 02 12 02 10 00") << false << false;
    QTest::newRow("truncated varint") << hex("08 ff") << false << false;
}

void TestWire::decoding()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, isReply);
    QFETCH(bool, isRequest);

    QCOMPARE(decodesAs<Korvex::Reply>(bytes), isReply);
    QCOMPARE(decodesAs<Korvex::Request>(bytes), isRequest);

    // What decodes in the canonical encoding encodes back to the same bytes.
    Korvex::Reply reply;
    if (isReply && reply.ParseFromArray(bytes.constData(), bytes.size()))
        QCOMPARE(encoded(reply).toHex(' '), bytes.toHex(' '));
}

QTEST_GUILESS_MAIN(TestWire)
#include "tst_wire.moc"
