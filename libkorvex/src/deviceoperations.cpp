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

bool succeeded(KorvexClient::RequestResult result)
{
    return result == KorvexClient::Ok || result == KorvexClient::OkWithInformation;
}

} // namespace

// The shapes.

// Typed read: the out-argument changes only when both the exchange and the
// reply succeeded.
template <typename T>
KorvexClient::RequestResult KorvexClient::read(Parameter::Type parameter, T &out)
{
    RequestResult result = sendRequest(buildRequest(Request::GetParam, parameter, QVariant()), ReplyTimeoutMs);
    if (!succeeded(result))
        return result;
    QVariant value;
    result = parseReply(m_reply, value);
    if (succeeded(result))
        out = value.value<T>();
    return result;
}

// Write whose reply is interpreted into the caller's host value.
KorvexClient::RequestResult KorvexClient::write(const Request &request, QVariant &replyValue)
{
    RequestResult result = sendRequest(request, ReplyTimeoutMs);
    return succeeded(result) ? parseReply(m_reply, replyValue) : result;
}

// Write whose reply is not looked at: an Error reply still counts as done.
KorvexClient::RequestResult KorvexClient::writeBlind(Parameter::Type parameter, const QVariant &value)
{
    return sendRequest(buildRequest(Request::SetParam, parameter, value), ReplyTimeoutMs);
}

KorvexClient::RequestResult KorvexClient::sendCommand(const QString &command)
{
    QVariant ignored;
    return write(buildRequest(Request::SendCommand, Parameter::KvexBasebandCmd, command), ignored);
}

KorvexClient::RequestResult KorvexClient::ping()
{
    RequestResult result = sendRequest(buildRequest(Request::Ping), ReplyTimeoutMs);
    if (result != Ok) {
        qCritical() << "Fail to send Ping to device";
        return result;
    }
    QVariant pong;
    return parseReply(m_reply, pong);
}

// Generic operations.

KorvexClient::RequestResult KorvexClient::getParam(QVariant &value, Korvex::Parameter::Type parameter)
{
    RequestResult result = sendRequest(buildRequest(Request::GetParam, parameter, QVariant()), ReplyTimeoutMs);
    if (!succeeded(result)) {
        qCritical() << "Failed to send request";
        return result;
    }
    return parseReply(m_reply, value);
}

KorvexClient::RequestResult KorvexClient::getDoubleParam(double &value, Korvex::Parameter::Type parameter)
{
    return read(parameter, value);
}

KorvexClient::RequestResult KorvexClient::getStringParam(Korvex::Parameter::Type parameter, QString &text)
{
    return read(parameter, text);
}

KorvexClient::RequestResult KorvexClient::setParam(const QVariant &value, Korvex::Parameter::Type parameter, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, parameter, value), reply);
}

KorvexClient::RequestResult KorvexClient::setParam(const QVariant &value, Korvex::Parameter::Type parameter)
{
    QVariant ignored;
    return write(buildRequest(Request::SetParam, parameter, value), ignored);
}

KorvexClient::RequestResult KorvexClient::setStringParam(Korvex::Parameter::Type parameter, const QString &text, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, parameter, text), reply);
}

// Battery.

KorvexClient::RequestResult KorvexClient::getBatteryLevel(int &level)
{
    return read(Parameter::BatteryLevel, level);
}

KorvexClient::RequestResult KorvexClient::setBatteryLevel(int level, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::BatteryLevel, level), reply);
}

KorvexClient::RequestResult KorvexClient::getBatteryStatus(QString &status)
{
    return read(Parameter::BatteryStatus, status);
}

KorvexClient::RequestResult KorvexClient::setBatteryStatus(const QString &status, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::BatteryStatus, status), reply);
}

KorvexClient::RequestResult KorvexClient::getBatteryMode(bool &manual)
{
    return read(Parameter::BatteryMode, manual);
}

KorvexClient::RequestResult KorvexClient::setBatteryMode(bool manual)
{
    return writeBlind(Parameter::BatteryMode, QVariant(manual));
}

// GPS.

KorvexClient::RequestResult KorvexClient::getGpsStatus(bool &enabled)
{
    return read(Parameter::GpsStatus, enabled);
}

KorvexClient::RequestResult KorvexClient::setGpsStatus(bool enabled)
{
    return writeBlind(Parameter::GpsStatus, QVariant(enabled));
}

KorvexClient::RequestResult KorvexClient::getGpsLatitude(double &value)
{
    return read(Parameter::GpsLatitude, value);
}

KorvexClient::RequestResult KorvexClient::setGpsLatitude(double value, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::GpsLatitude, value), reply);
}

KorvexClient::RequestResult KorvexClient::getGpsLongitude(double &value)
{
    return read(Parameter::GpsLongitude, value);
}

KorvexClient::RequestResult KorvexClient::setGpsLongitude(double value, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::GpsLongitude, value), reply);
}

KorvexClient::RequestResult KorvexClient::getGpsAltitude(double &value)
{
    return read(Parameter::GpsAltitude, value);
}

KorvexClient::RequestResult KorvexClient::setGpsAltitude(double value, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::GpsAltitude, value), reply);
}

KorvexClient::RequestResult KorvexClient::getGpsAccuracy(double &value)
{
    return read(Parameter::GpsAccuracy, value);
}

KorvexClient::RequestResult KorvexClient::setGpsAccuracy(double value, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::GpsAccuracy, value), reply);
}

KorvexClient::RequestResult KorvexClient::getGpsBearing(double &value)
{
    return read(Parameter::GpsBearing, value);
}

KorvexClient::RequestResult KorvexClient::setGpsBearing(double value, QVariant &reply)
{
    return write(buildRequest(Request::SetParam, Parameter::GpsBearing, value), reply);
}

// Rotation, capabilities and versions.

KorvexClient::RequestResult KorvexClient::setAccelerometer(QVariant &reply, double x, double y, double z)
{
    const QStringList parts{QString::number(x, 'g', AccelerometerDigits),
                            QString::number(y, 'g', AccelerometerDigits),
                            QString::number(z, 'g', AccelerometerDigits)};
    return write(buildRequest(Request::SetParam, Parameter::Accelerometer, parts.join(AccelerometerSeparator)), reply);
}

KorvexClient::RequestResult KorvexClient::getCapabilities(QString &capabilities)
{
    QVariant value;
    RequestResult result = getParam(value, Parameter::Capabilities);
    if (!succeeded(result)) {
        qCritical() << "Error getting capabilities";
        return result;
    }
    capabilities = value.toString();
    qDebug() << "Received capabilities:" << capabilities;
    return result;
}

KorvexClient::RequestResult KorvexClient::getAndroidVersion(QString &version)
{
    QVariant value;
    RequestResult result = getParam(value, Parameter::AndroidVersion);
    version = value.toString();
    return result;
}

KorvexClient::RequestResult KorvexClient::getAgentVersion(QString &version)
{
    QVariant value;
    RequestResult result = getParam(value, Parameter::KorvexVersion);
    version = value.toString();
    return result;
}

// Identity.

KorvexClient::RequestResult KorvexClient::getDeviceId(QString &deviceId)
{
    RequestResult result = read(Parameter::DeviceId, deviceId);
    if (result == Ok && deviceId == QLatin1String(NoDeviceId))
        deviceId = QString();
    return result;
}

KorvexClient::RequestResult KorvexClient::setDeviceId(const QString &deviceId, QVariant &reply)
{
    return setStringParam(Parameter::DeviceId, deviceId.isEmpty() ? QString(NoDeviceId) : deviceId, reply);
}

KorvexClient::RequestResult KorvexClient::getAndroidId(QString &androidId)
{
    return read(Parameter::AndroidId, androidId);
}

KorvexClient::RequestResult KorvexClient::setAndroidId(const QString &androidId, QVariant &reply)
{
    return setStringParam(Parameter::AndroidId, androidId, reply);
}

KorvexClient::RequestResult KorvexClient::setClipboard(const QString &text)
{
    return writeBlind(Parameter::Clipboard, QVariant(text));
}

// Phone: commands for the emulated baseband.

KorvexClient::RequestResult KorvexClient::phoneCall(const QString &number)
{
    return sendCommand(QString(PhoneCallFormat).arg(number));
}

KorvexClient::RequestResult KorvexClient::sendSms(const QString &number, const QString &message)
{
    const QString encoded = QString::fromLatin1(message.toUtf8().toBase64());
    // Filled one placeholder at a time, %1 first.
    return sendCommand(QString(SmsFormat).arg(number).arg(encoded));
}

KorvexClient::RequestResult KorvexClient::sendBasebandCommand(const QString &command)
{
    return sendCommand(QString(BasebandFormat).arg(command));
}
