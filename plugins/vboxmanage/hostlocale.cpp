// Choice of a UTF-8 locale that exists on the host, for VBoxManage.
#include "hostlocale.h"

#include <QProcess>

namespace HostLocale {
namespace {

constexpr int ListTimeoutMs = 5000;
const char PreferredLocale[] = "C.UTF-8";
// Where the user's own locale is named, most specific first.
const char *const UserLocaleVariables[] = {"LC_ALL", "LC_CTYPE", "LANG"};

// "ru_RU.UTF-8", "ru_RU.utf8" and "ru_RU.Utf-8" name the same locale.
QString normalized(const QString &name)
{
    const int dot = name.indexOf(QLatin1Char('.'));
    if (dot < 0)
        return name;
    QString codeset = name.mid(dot + 1).toLower();
    codeset.remove(QLatin1Char('-'));
    codeset.remove(QLatin1Char('_'));
    return name.left(dot) + QLatin1Char('.') + codeset;
}

bool isUtf8(const QString &name)
{
    const QString codeset = normalized(name).section(QLatin1Char('.'), 1).section(QLatin1Char('@'), 0, 0);
    return codeset == QLatin1String("utf8");
}

} // namespace

QStringList available()
{
    QProcess process;
    process.start(QStringLiteral("locale"), {QStringLiteral("-a")});
    if (!process.waitForFinished(ListTimeoutMs) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0) {
        process.kill();
        process.waitForFinished(ListTimeoutMs);
        return {};
    }
    return QString::fromLocal8Bit(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QString choose(const QStringList &available, const QProcessEnvironment &environment)
{
    QStringList wanted{QString::fromLatin1(PreferredLocale)};
    for (const char *variable : UserLocaleVariables)
        wanted << environment.value(QString::fromLatin1(variable));
    for (const QString &name : wanted) {
        if (!isUtf8(name))
            continue;
        for (const QString &candidate : available) {
            if (normalized(candidate) == normalized(name))
                return candidate;
        }
    }
    for (const QString &candidate : available) {
        if (isUtf8(candidate))
            return candidate;
    }
    return QString();
}

} // namespace HostLocale
