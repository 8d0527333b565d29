// Settings stores (placeholder).
#include "settings.h"

struct Settings::Stores {};
Settings::Settings() : m_stores(new Stores) {}
Settings &Settings::instance() { static Settings settings; return settings; }
QVariant Settings::value(const QString &, const QVariant &defaultValue) const { return defaultValue; }
bool Settings::contains(const QString &) const { return false; }
