// Logging (placeholder).
#include "logging.h"

void initLogging(const QString &, bool) {}
