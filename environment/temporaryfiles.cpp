// Temporary files (placeholder).
#include "temporaryfiles.h"

#include <QFile>

void TemporaryFiles::clear() {}
qint64 TemporaryFiles::computeSize() { return 0; }
void TemporaryFiles::walkTemporaryDirectory(const QString &, const QStringList &, const std::function<void(QFile &)> &) {}
