// The two settings stores: the user's ("Talvane"/"Korvex") and the optional
// "korvex.ini" beside the executable. Opened once, on first use.
#pragma once

#include <QString>
#include <QVariant>

class Settings
{
public:
    static Settings &instance();

    // Value of a key: the installation store first, then the user store.
    QVariant value(const QString &key, const QVariant &defaultValue = {}) const;
    bool contains(const QString &key) const;

private:
    Settings();
    struct Stores;
    Stores *m_stores;
};
