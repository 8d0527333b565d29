// Phone commands: incoming calls, text messages and raw modem commands.
#include "prompt.h"

#include <QTextStream>

int Prompt::phoneCall(const QStringList &)
{
    m_out << "phoneCall: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::phoneSms(const QStringList &)
{
    m_out << "phoneSms: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::phoneBaseband(const QStringList &)
{
    m_out << "phoneBaseband: not implemented yet" << Qt::endl;
    return -1;
}

