// Typed device operations of KorvexClient used by the shell's commands: each
// picks the request kind and parameter and one of the five shapes (typed
// read, read into a host value, write with or without interpreting the reply,
// ping), written once each below; one exchange each, the reply mapped once.
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

} // namespace

// The shapes.

// Typed read: the out-argument changes only when both the exchange and the
// reply succeeded.
template <typename T>
int KorvexClient::read(Parameter::Type parameter, T &out)
{
    int result = transact(buildRequest(Request::GetParam, parameter, QVariant()), ReplyTimeoutMs);
    if (!succeeded(result))
        return result;
    QVariant value;
    result = interpret(m_reply, value);
    if (succeeded(result))
        out = value.value<T>();
    return result;
}

// Write whose reply is interpreted into the caller's host value.
int KorvexClient::write(const Request &request, QVariant &replyValue)
{
    const int result = transact(request, ReplyTimeoutMs);
    return succeeded(result) ? interpret(m_reply, replyValue) : result;
}

// Write whose reply is not looked at: an Error reply still counts as done.
int KorvexClient::writeBlind(Parameter::Type parameter, const QVariant &value)
{
    return transact(buildRequest(Request::SetParam, parameter, value), ReplyTimeoutMs);
}

int KorvexClient::sendCommand(const QString &command)
{
    QVariant ignored;
    return write(buildRequest(Request::SendCommand, Parameter::KvexBasebandCmd, command), ignored);
}

int KorvexClient::ping()
{
    const int result = transact(buildRequest(Request::Ping), ReplyTimeoutMs);
    if (result != Ok) {
        qCritical() << "Fail to send Ping to device";
        return result;
    }
    QVariant pong;
    return interpret(m_reply, pong);
}

// Generic operations.

int KorvexClient::getParam(QVariant &value, Korvex::Parameter::Type parameter)
{
    const int result = transact(buildRequest(Request::GetParam, parameter, QVariant()), ReplyTimeoutMs);
    if (!succeeded(result)) {
        qCritical() << "Failed to send request";
        return result;
    }
    return interpret(m_reply, value);
}

int KorvexClient::getDoubleParam(double &value, Korvex::Parameter::Type parameter)
{
    return read(parameter, value);
}

int KorvexClient::getStringParam(Korvex::Parameter::Type parameter, QString &text)
{
    return read(parameter, text);
}

int KorvexClient::setParam(const QVariant &value, Korvex::Parameter::Type parameter, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, parameter, value), reply);
}

int KorvexClient::setParam(const QVariant &value, Korvex::Parameter::Type parameter)
{
    QVariant ignored;
    return write(buildRequest(Request::SetParam, parameter, value), ignored);
}

int KorvexClient::setStringParam(Korvex::Parameter::Type parameter, const QString &text, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, parameter, text), reply);
}

// Battery.

int KorvexClient::getBatteryLevel(int &level)
{
    return read(Parameter::BatteryLevel, level);
}

int KorvexClient::setBatteryLevel(int level, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::BatteryLevel, level), reply);
}

int KorvexClient::getBatteryStatus(QString &status)
{
    return read(Parameter::BatteryStatus, status);
}

int KorvexClient::setBatteryStatus(const QString &status, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::BatteryStatus, status), reply);
}

int KorvexClient::getBatteryMode(bool &manual)
{
    return read(Parameter::BatteryMode, manual);
}

int KorvexClient::setBatteryMode(bool manual)
{
    return writeBlind(Parameter::BatteryMode, QVariant(manual));
}

// GPS.

int KorvexClient::getGpsStatus(bool &enabled)
{
    return read(Parameter::GpsStatus, enabled);
}

int KorvexClient::setGpsStatus(bool enabled)
{
    return writeBlind(Parameter::GpsStatus, QVariant(enabled));
}

int KorvexClient::getGpsLatitude(double &value)
{
    return read(Parameter::GpsLatitude, value);
}

int KorvexClient::setGpsLatitude(double value, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::GpsLatitude, value), reply);
}

int KorvexClient::getGpsLongitude(double &value)
{
    return read(Parameter::GpsLongitude, value);
}

int KorvexClient::setGpsLongitude(double value, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::GpsLongitude, value), reply);
}

int KorvexClient::getGpsAltitude(double &value)
{
    return read(Parameter::GpsAltitude, value);
}

int KorvexClient::setGpsAltitude(double value, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::GpsAltitude, value), reply);
}

int KorvexClient::getGpsAccuracy(double &value)
{
    return read(Parameter::GpsAccuracy, value);
}

int KorvexClient::setGpsAccuracy(double value, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::GpsAccuracy, value), reply);
}

int KorvexClient::getGpsBearing(double &value)
{
    return read(Parameter::GpsBearing, value);
}

int KorvexClient::setGpsBearing(double value, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::GpsBearing, value), reply);
}

// Rotation, capabilities and versions.

int KorvexClient::setAccelerometer(QVariant &reply, double x, double y, double z)
{
    const QStringList parts{QString::number(x, 'g', AccelerometerDigits),
                            QString::number(y, 'g', AccelerometerDigits),
                            QString::number(z, 'g', AccelerometerDigits)};
    return write(buildRequest(Request::SetParam, Parameter::Accelerometer, parts.join(AccelerometerSeparator)), reply);
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
    const int result = read(Parameter::DeviceId, deviceId);
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
    return read(Parameter::AndroidId, androidId);
}

int KorvexClient::setAndroidId(const QString &androidId, QVariant &reply)
{
    return setStringParam(Parameter::AndroidId, androidId, reply);
}

int KorvexClient::setClipboard(const QString &text)
{
    return writeBlind(Parameter::Clipboard, QVariant(text));
}

// Phone: commands for the emulated baseband.

int KorvexClient::phoneCall(const QString &number)
{
    return sendCommand(QString(PhoneCallFormat).arg(number));
}

int KorvexClient::sendSms(const QString &number, const QString &message)
{
    const QString encoded = QString::fromLatin1(message.toUtf8().toBase64());
    // Filled one placeholder at a time, %1 first.
    return sendCommand(QString(SmsFormat).arg(number).arg(encoded));
}

int KorvexClient::sendBasebandCommand(const QString &command)
{
    return sendCommand(QString(BasebandFormat).arg(command));
}
