// Network quality-of-service profile commands.
#include "prompt.h"

#include <QTextStream>

int Prompt::networkGetProfile(const QStringList &)
{
    m_out << "networkGetProfile: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::networkSetProfile(const QStringList &)
{
    m_out << "networkSetProfile: not implemented yet" << Qt::endl;
    return -1;
}

