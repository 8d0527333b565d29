// Settings stores: the per-user store and the installation's "korvex.ini".
#include "settings.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QSettings>
#include <QStringList>
#include <memory>

namespace {

const char OrganisationName[] = "Talvane";
const char ApplicationName[] = "Korvex";
const char InstallationFileName[] = "korvex.ini";

// Keys an installation imposes through its "korvex.ini".
const QStringList InstallationKeys = {QStringLiteral("host.only.interface")};
// Groups for which "korvex.ini" only gives defaults: the user's own choice
// (statistics opt-in, proxy) always wins.
const QStringList InstallationDefaultGroups = {QStringLiteral("statistics/"), QStringLiteral("proxy/")};

bool inDefaultGroup(const QString &key)
{
    for (const QString &group : InstallationDefaultGroups)
        if (key.startsWith(group))
            return true;
    return false;
}

} // namespace

struct Settings::Stores
{
    QSettings user{QSettings::NativeFormat, QSettings::UserScope, OrganisationName, ApplicationName};
    // Null when the installation file could not be read.
    std::unique_ptr<QSettings> installation;
    QStringList installationKeys;

    // The installation store for key when it is registered there and holds it, else null.
    const QSettings *storeOf(const QString &key) const
    {
        if (installation && installationKeys.contains(key) && installation->contains(key))
            return installation.get();
        if (installation && inDefaultGroup(key) && !user.contains(key) && installation->contains(key))
            return installation.get();
        return &user;
    }
};

Settings::Settings() : m_stores(new Stores)
{
    const QString path = QCoreApplication::applicationDirPath() + QDir::separator() + InstallationFileName;
    auto installation = std::make_unique<QSettings>(path, QSettings::IniFormat);
    installation->sync();
    const QSettings::Status status = installation->status();
    if (status == QSettings::NoError) {
        m_stores->installation = std::move(installation);
        m_stores->installationKeys = InstallationKeys;
    } else {
        qWarning().noquote() << QString("Cannot init install path settings (status=%1) %2")
                                    .arg(int(status))
                                    .arg(installation->fileName());
    }
}

Settings::~Settings()
{
    delete m_stores;
}

Settings &Settings::instance()
{
    static Settings settings;
    return settings;
}

QVariant Settings::value(const QString &key, const QVariant &defaultValue) const
{
    return m_stores->storeOf(key)->value(key, defaultValue);
}

bool Settings::contains(const QString &key) const
{
    return m_stores->storeOf(key)->contains(key);
}
