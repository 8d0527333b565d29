// The korvex clearcache command: deletes the disposable files and starts the
// log afresh, since the log file is among the files deleted.
#include "prompt.h"

#include "homedirectory.h"
#include "logging.h"
#include "temporaryfiles.h"

#include <QTextStream>

int Prompt::korvexClearCache(const QStringList &params)
{
    if (checkParams(params, 0) != 0)
        return -1;

    TemporaryFiles::clear();
    initLogging(baseDirectory() + LogFileName, false);
    m_out << "Korvex cache cleared " << Qt::endl;
    return 0;
}
