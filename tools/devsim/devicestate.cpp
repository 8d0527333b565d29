// Parameters of the simulated device and their conversions.
#include "devicestate.h"

namespace {

using Parameter = Korvex::Parameter;
using Value = Korvex::Value;

struct Initial
{
    Parameter::Type parameter;
    QVariant value;
};

const Initial InitialValues[] = {
    {Parameter::BatteryLevel, 50},
    {Parameter::BatteryStatus, QStringLiteral("Charging")},
    {Parameter::BatteryMode, false},
    {Parameter::GpsStatus, true},
    {Parameter::GpsLatitude, 48.8584},
    {Parameter::GpsLongitude, 2.2945},
    {Parameter::GpsAltitude, 35.0},
    {Parameter::GpsAccuracy, 10.0},
    {Parameter::GpsBearing, 0.0},
    {Parameter::NetworkMode, 5},
    {Parameter::DeviceId, QStringLiteral("[none]")},
    {Parameter::AndroidId, QStringLiteral("0000000000000000")},
    {Parameter::AndroidVersion, QStringLiteral("7.1")},
    {Parameter::KorvexVersion, QStringLiteral("2.8.1")},
    {Parameter::Capabilities, QStringLiteral("battery gps rotation phone network identity")},
    {Parameter::Accelerometer, QStringLiteral("0|9.81|0")},
    {Parameter::Clipboard, QStringLiteral("")},
};

bool parseBool(const QString &text, bool &value)
{
    static const QHash<QString, bool> words{{"true", true}, {"1", true}, {"false", false}, {"0", false}};
    const auto found = words.constFind(text.trimmed().toLower());
    if (found == words.constEnd())
        return false;
    value = found.value();
    return true;
}

} // namespace

DeviceState::DeviceState()
{
    for (const Initial &initial : InitialValues)
        m_values.insert(initial.parameter, initial.value);
}

Korvex::Value::Type DeviceState::kindOf(Korvex::Parameter::Type parameter)
{
    switch (parameter) {
    case Parameter::BatteryLevel:
    case Parameter::NetworkMode:
        return Value::Int;
    case Parameter::BatteryMode:
    case Parameter::GpsStatus:
        return Value::Bool;
    case Parameter::GpsLatitude:
    case Parameter::GpsLongitude:
    case Parameter::GpsAltitude:
    case Parameter::GpsAccuracy:
    case Parameter::GpsBearing:
        return Value::Double;
    default:
        return Value::String;
    }
}

bool DeviceState::set(const QString &name, const QString &text, QString &error)
{
    Parameter::Type parameter;
    if (!Parameter::Type_Parse(name.toStdString(), &parameter) || parameter == Parameter::None) {
        error = QStringLiteral("unknown parameter: ") + name;
        return false;
    }
    bool ok = true;
    QVariant value;
    switch (kindOf(parameter)) {
    case Value::Int:
        value = text.toInt(&ok);
        break;
    case Value::Double:
        value = text.toDouble(&ok);
        break;
    case Value::Bool: {
        bool flag = false;
        ok = parseBool(text, flag);
        value = flag;
        break;
    }
    default:
        value = text;
        break;
    }
    if (!ok) {
        error = QStringLiteral("invalid value for ") + name + QStringLiteral(": ") + text;
        return false;
    }
    m_values.insert(parameter, value);
    return true;
}

Korvex::Value DeviceState::value(Korvex::Parameter::Type parameter) const
{
    const QVariant stored = m_values.value(parameter);
    Value value;
    value.set_type(kindOf(parameter));
    switch (value.type()) {
    case Value::Int:
        value.set_intvalue(stored.toInt());
        break;
    case Value::Bool:
        value.set_boolvalue(stored.toBool());
        break;
    case Value::Double:
        value.set_doublevalue(stored.toDouble());
        break;
    default:
        value.set_stringvalue(stored.toString().toStdString());
        break;
    }
    return value;
}

bool DeviceState::store(const Korvex::Parameter &parameter)
{
    if (!parameter.has_value() || !parameter.value().has_type())
        return false;
    const Value &value = parameter.value();
    QVariant stored;
    switch (value.type()) {
    case Value::Bool:
        stored = value.boolvalue();
        break;
    case Value::Int:
        stored = value.intvalue();
        break;
    case Value::Float:
        // The shell sends doubles as Float with the full number beside it.
        stored = value.has_doublevalue() ? value.doublevalue() : static_cast<double>(value.floatvalue());
        break;
    case Value::String:
        stored = QString::fromStdString(value.stringvalue());
        break;
    case Value::Bytes:
        stored = QByteArray::fromStdString(value.bytesvalue());
        break;
    case Value::Double:
        stored = value.doublevalue();
        break;
    }
    m_values.insert(parameter.type(), stored);
    return true;
}
