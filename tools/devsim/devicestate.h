// Parameters of the simulated device: the values that GetParam reads and
// SetParam changes, each answered in the kind the shell expects for it.
#pragma once

#include <QHash>
#include <QString>
#include <QVariant>

#include "requests.pb.h"

class DeviceState
{
public:
    DeviceState();

    // NAME is a parameter type name (BatteryLevel, GpsLatitude...).
    bool set(const QString &name, const QString &text, QString &error);
    bool has(Korvex::Parameter::Type parameter) const { return m_values.contains(parameter); }
    // The value in the parameter's kind; has() must be true.
    Korvex::Value value(Korvex::Parameter::Type parameter) const;
    // Stores the value of a SetParam; false when the value has no usable kind.
    bool store(const Korvex::Parameter &parameter);

    static Korvex::Value::Type kindOf(Korvex::Parameter::Type parameter);

private:
    QHash<int, QVariant> m_values;
};
