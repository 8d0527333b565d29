// The korvex clearcache command (placeholder).
#include "prompt.h"

#include <QTextStream>

int Prompt::korvexClearCache(const QStringList &)
{
    m_out << "korvexClearCache: not implemented yet" << Qt::endl;
    return -1;
}
