// Disposable files under the data directories: deletion and size.
#pragma once

#include <QFileInfo>
#include <QString>
#include <QStringList>
#include <functional>

class TemporaryFiles
{
public:
    static void clear();
    static qint64 computeSize();
    static void walkTemporaryDirectory(const QString &path, const QStringList &nameFilters,
                                       const std::function<void(QFile &)> &action);
};
