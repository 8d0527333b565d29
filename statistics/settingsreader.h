// Reads one key of the settings stores, or the default when it is absent. The
// statistics and web-service settings are parsed from such a reader rather
// than from the stores themselves, so that their parsing depends on nothing
// but the keys it is given.
#pragma once

#include <functional>

#include <QString>
#include <QVariant>

#include "settings.h"

using SettingsReader = std::function<QVariant(const QString &key, const QVariant &defaultValue)>;

inline SettingsReader storeSettingsReader()
{
    return [](const QString &key, const QVariant &defaultValue) {
        return Settings::instance().value(key, defaultValue);
    };
}
