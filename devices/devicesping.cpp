// The devices ping command.
#include "prompt.h"

#include <QTextStream>

int Prompt::devicesPing(const QStringList &)
{
    m_out << "devicesPing: not implemented yet" << Qt::endl;
    return -1;
}

