// Home data directory: KX_HOME when set, else ~/.Talvane, with the product
// data directory "Korvex" below it.
#include "homedirectory.h"

#include <QDebug>
#include <QDir>

namespace {

const char HomeVariable[] = "KX_HOME";
const char DefaultBaseName[] = "/.Talvane";
const char ProductDirectoryName[] = "Korvex";

struct Directories
{
    QString base;
    QString data;
};

Directories workOutDirectories()
{
    Directories directories;
    const QByteArray home = qgetenv(HomeVariable);
    if (!home.isEmpty()) {
        const QString path = QString::fromLocal8Bit(home);
        // An explicitly chosen home that cannot exist is a set-up error worth stopping for.
        if (!QDir().mkpath(path))
            qFatal("KX_HOME is set to '%s', but this directory cannot be created.", home.constData());
        directories.base = QDir(path).absolutePath();
    } else {
        directories.base = QDir::homePath() + DefaultBaseName;
    }

    directories.data = directories.base + "/" + ProductDirectoryName;
    // The default location is used even when it cannot be created: later
    // writes into it fail, and report, in their own places.
    if (!QDir().mkpath(directories.data))
        qCritical() << "Failed to create" << directories.data << "things may go wrong";
    return directories;
}

// Worked out once; a function-local static is initialised exactly once even
// when the first calls race from several threads.
const Directories &directories()
{
    static const Directories instance = workOutDirectories();
    return instance;
}

} // namespace

QString baseDirectory()
{
    return directories().base;
}

QString dataDirectory()
{
    return directories().data;
}
