// The locale VBoxManage runs under. Given a locale the host lacks, VBoxManage
// converts its output to ASCII and drops everything after the first character
// that does not convert, so only a UTF-8 locale the host has will do.
#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace HostLocale {

// The locales `locale -a` lists; empty when it cannot be run.
QStringList available();
// C.UTF-8, else the user's own UTF-8 locale, else any UTF-8 one, spelt as the
// host lists it; empty when the host has none.
QString choose(const QStringList &available, const QProcessEnvironment &environment);

} // namespace HostLocale
