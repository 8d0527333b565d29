// Disposable files of the data directories: downloads, templates, network
// caches and logs. Used by the korvex clearcache command.
#include "temporaryfiles.h"

#include "homedirectory.h"

#include <QDebug>
#include <QDir>
#include <QDirIterator>
#include <QFile>

namespace {

const QStringList DisposableFilters = {"*.ova", "*.txt", "*.bin", "*.log"};
const QStringList AllFiles = {"*"};
// Whole directories below the product data directory.
const char NetworkCacheDirectory[] = "/cache/network/";
const char TemplatesDirectory[] = "/templates/";

} // namespace

void TemporaryFiles::walkTemporaryDirectory(const QString &path, const QStringList &nameFilters,
                                            const std::function<void(QFile &)> &action)
{
    qWarning() << "[WalkTemporaryDirectory] Path of search:" << path;
    QDirIterator it(path, nameFilters, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile file(it.next());
        action(file);
    }
}

void TemporaryFiles::clear()
{
    walkTemporaryDirectory(baseDirectory(), DisposableFilters, [](QFile &file) {
        file.remove();
        qWarning() << "[ClearCache] Removing " << QFileInfo(file).absoluteFilePath();
    });
    QDir(dataDirectory() + NetworkCacheDirectory).removeRecursively();
    QDir(dataDirectory() + TemplatesDirectory).removeRecursively();
}

qint64 TemporaryFiles::computeSize()
{
    qint64 total = 0;
    const auto addSize = [&total](QFile &file) { total += file.size(); };
    walkTemporaryDirectory(baseDirectory(), DisposableFilters, addSize);
    walkTemporaryDirectory(dataDirectory() + NetworkCacheDirectory, AllFiles, addSize);
    walkTemporaryDirectory(dataDirectory() + TemplatesDirectory, AllFiles, addSize);
    qDebug() << "[ComputeCacheSize]" << total << "bytes found";
    return total;
}
