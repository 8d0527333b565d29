// The two settings stores: the user's ("Talvane"/"Korvex") and the optional
// "korvex.ini" beside the executable. Opened once, on first use (after the
// application object exists, since the installation store lies beside the
// executable).
#pragma once

#include <QString>
#include <QVariant>

class Settings
{
public:
    static Settings &instance();

    // Value of a key. For the keys registered for the installation store
    // ("host.only.interface"), a value present in a readable "korvex.ini"
    // wins, so an installation can impose it. Keys of the "statistics/" and
    // "proxy/" groups come from the user store, and from "korvex.ini" only
    // when the user store does not hold them. Otherwise the user store answers.
    QVariant value(const QString &key, const QVariant &defaultValue = {}) const;
    bool contains(const QString &key) const;

    Settings(const Settings &) = delete;
    Settings &operator=(const Settings &) = delete;

private:
    Settings();
    ~Settings();
    struct Stores;
    Stores *m_stores;
};
