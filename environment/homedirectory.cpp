// Home data directory (placeholder).
#include "homedirectory.h"

#include <QDir>

QString baseDirectory() { return QDir::homePath() + "/.Talvane"; }
QString dataDirectory() { return baseDirectory() + "/Korvex"; }
