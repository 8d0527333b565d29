// The home data directory (KX_HOME or ~/.Talvane) and the product data
// directory below it; worked out once, at the first call of either.
#pragma once

#include <QString>

QString baseDirectory();
QString dataDirectory();
