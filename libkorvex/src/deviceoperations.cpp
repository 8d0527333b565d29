// Typed device operations of KorvexClient used by the shell's commands: each
// picks the request kind and parameter, runs one exchange and converts the
// value. They come in five shapes (typed read, read into a host value, write
// with or without interpreting the reply, ping), written once each below.
#include "korvexclient.h"

#include <QDebug>

namespace {

using Parameter = Korvex::Parameter;
using Request = Korvex::Request;

const char PhoneCallFormat[] = "gsm call %1\n";
const char SmsFormat[] = "sms sendb64 %1 %2\n";
const char BasebandFormat[] = "%1\n";
const char NoDeviceId[] = "[none]";
const char AccelerometerSeparator[] = "|";
constexpr int AccelerometerDigits = 6;

bool succeeded(int result)
{
    return result == KorvexClient::Ok || result == KorvexClient::OkWithInformation;
}

int exchange(KorvexClient &client, const Request &request, QByteArray &reply)
{
    return client.sendRequest(request, reply, KorvexClient::ReplyTimeoutMs);
}

// Typed read: the out-argument changes only when both the exchange and the
// reply succeeded.
template <typename T>
int readTyped(KorvexClient &client, Parameter::Type parameter, T &out)
{
    QByteArray reply;
    int result = exchange(client, client.buildRequest(Request::GetParam, parameter, QVariant()), reply);
    if (!succeeded(result))
        return result;
    QVariant value;
    result = client.parseReply(reply, value);
    if (succeeded(result))
        out = value.value<T>();
    return result;
}

// Write whose reply is interpreted into the caller's host value.
int writeWithReply(KorvexClient &client, const Request &request, QVariant &replyValue)
{
    QByteArray reply;
    const int result = exchange(client, request, reply);
    if (!succeeded(result))
        return result;
    return client.parseReply(reply, replyValue);
}

// Write whose reply is not looked at: an Error reply still counts as done.
int writeBlind(KorvexClient &client, Parameter::Type parameter, const QVariant &value)
{
    QByteArray reply;
    return exchange(client, client.buildRequest(Request::SetParam, parameter, value), reply);
}

int sendCommand(KorvexClient &client, const QString &command)
{
    QVariant ignored;
    return writeWithReply(client, client.buildRequest(Request::SendCommand, Parameter::KvexBasebandCmd, command),
                          ignored);
}

} // namespace

int KorvexClient::ping()
{
    QByteArray reply;
    const int result = exchange(*this, buildRequest(Request::Ping), reply);
    if (result != Ok) {
        qCritical() << "Fail to send Ping to device";
        return result;
    }
    QVariant pong;
    return parseReply(reply, pong);
}

// Generic operations.

int KorvexClient::getParam(QVariant &value, Korvex::Parameter::Type parameter)
{
    QByteArray reply;
    const int result = exchange(*this, buildRequest(Request::GetParam, parameter, QVariant()), reply);
    if (!succeeded(result)) {
        qCritical() << "Failed to send request";
        return result;
    }
    return parseReply(reply, value);
}

int KorvexClient::getDoubleParam(double &value, Korvex::Parameter::Type parameter)
{
    return readTyped(*this, parameter, value);
}

int KorvexClient::getStringParam(Korvex::Parameter::Type parameter, QString &text)
{
    return readTyped(*this, parameter, text);
}

int KorvexClient::setParam(const QVariant &value, Korvex::Parameter::Type parameter, QVariant &reply)
{
    return writeWithReply(*this, buildRequest(Request::SetParam, parameter, value), reply);
}

int KorvexClient::setParam(const QVariant &value, Korvex::Parameter::Type parameter)
{
    QVariant ignored;
    return setParam(value, parameter, ignored);
}

int KorvexClient::setStringParam(Korvex::Parameter::Type parameter, const QString &text, QVariant &reply)
{
    return setParam(QVariant(text), parameter, reply);
}

// Battery.

int KorvexClient::getBatteryLevel(int &level)
{
    return readTyped(*this, Parameter::BatteryLevel, level);
}

int KorvexClient::setBatteryLevel(int level, QVariant &reply)
{
    return setParam(QVariant(level), Parameter::BatteryLevel, reply);
}

int KorvexClient::getBatteryStatus(QString &status)
{
    return readTyped(*this, Parameter::BatteryStatus, status);
}

int KorvexClient::setBatteryStatus(const QString &status, QVariant &reply)
{
    return setParam(QVariant(status), Parameter::BatteryStatus, reply);
}

int KorvexClient::getBatteryMode(bool &manual)
{
    return readTyped(*this, Parameter::BatteryMode, manual);
}

int KorvexClient::setBatteryMode(bool manual)
{
    return writeBlind(*this, Parameter::BatteryMode, QVariant(manual));
}

// GPS.

int KorvexClient::getGpsStatus(bool &enabled)
{
    return readTyped(*this, Parameter::GpsStatus, enabled);
}

int KorvexClient::setGpsStatus(bool enabled)
{
    return writeBlind(*this, Parameter::GpsStatus, QVariant(enabled));
}

int KorvexClient::getGpsLatitude(double &value)
{
    return getDoubleParam(value, Parameter::GpsLatitude);
}

int KorvexClient::setGpsLatitude(double value, QVariant &reply)
{
    return setParam(QVariant(value), Parameter::GpsLatitude, reply);
}

int KorvexClient::getGpsLongitude(double &value)
{
    return getDoubleParam(value, Parameter::GpsLongitude);
}

int KorvexClient::setGpsLongitude(double value, QVariant &reply)
{
    return setParam(QVariant(value), Parameter::GpsLongitude, reply);
}

int KorvexClient::getGpsAltitude(double &value)
{
    return getDoubleParam(value, Parameter::GpsAltitude);
}

int KorvexClient::setGpsAltitude(double value, QVariant &reply)
{
    return setParam(QVariant(value), Parameter::GpsAltitude, reply);
}

int KorvexClient::getGpsAccuracy(double &value)
{
    return getDoubleParam(value, Parameter::GpsAccuracy);
}

int KorvexClient::setGpsAccuracy(double value, QVariant &reply)
{
    return setParam(QVariant(value), Parameter::GpsAccuracy, reply);
}

int KorvexClient::getGpsBearing(double &value)
{
    return getDoubleParam(value, Parameter::GpsBearing);
}

int KorvexClient::setGpsBearing(double value, QVariant &reply)
{
    return setParam(QVariant(value), Parameter::GpsBearing, reply);
}

// Rotation, capabilities and versions.

int KorvexClient::setAccelerometer(QVariant &reply, double x, double y, double z)
{
    const QStringList parts{QString::number(x, 'g', AccelerometerDigits),
                            QString::number(y, 'g', AccelerometerDigits),
                            QString::number(z, 'g', AccelerometerDigits)};
    return setParam(QVariant(parts.join(AccelerometerSeparator)), Parameter::Accelerometer, reply);
}

int KorvexClient::getCapabilities(QString &capabilities)
{
    QVariant value;
    const int result = getParam(value, Parameter::Capabilities);
    if (!succeeded(result)) {
        qCritical() << "Error getting capabilities";
        return result;
    }
    capabilities = value.toString();
    qDebug() << "Received capabilities:" << capabilities;
    return result;
}

int KorvexClient::getAndroidVersion(QString &version)
{
    QVariant value;
    const int result = getParam(value, Parameter::AndroidVersion);
    version = value.toString();
    return result;
}

int KorvexClient::getAgentVersion(QString &version)
{
    QVariant value;
    const int result = getParam(value, Parameter::KorvexVersion);
    version = value.toString();
    return result;
}

// Identity.

int KorvexClient::getDeviceId(QString &deviceId)
{
    const int result = getStringParam(Parameter::DeviceId, deviceId);
    if (result == Ok && deviceId == QLatin1String(NoDeviceId))
        deviceId = QString();
    return result;
}

int KorvexClient::setDeviceId(const QString &deviceId, QVariant &reply)
{
    return setStringParam(Parameter::DeviceId, deviceId.isEmpty() ? QString(NoDeviceId) : deviceId, reply);
}

int KorvexClient::getAndroidId(QString &androidId)
{
    return getStringParam(Parameter::AndroidId, androidId);
}

int KorvexClient::setAndroidId(const QString &androidId, QVariant &reply)
{
    return setStringParam(Parameter::AndroidId, androidId, reply);
}

int KorvexClient::setClipboard(const QString &text)
{
    return writeBlind(*this, Parameter::Clipboard, QVariant(text));
}

// Phone: commands for the emulated baseband.

int KorvexClient::phoneCall(const QString &number)
{
    return sendCommand(*this, QString(PhoneCallFormat).arg(number));
}

int KorvexClient::sendSms(const QString &number, const QString &message)
{
    const QString encoded = QString::fromLatin1(message.toUtf8().toBase64());
    // Filled one placeholder at a time, %1 first.
    return sendCommand(*this, QString(SmsFormat).arg(number).arg(encoded));
}

int KorvexClient::sendBasebandCommand(const QString &command)
{
    return sendCommand(*this, QString(BasebandFormat).arg(command));
}
