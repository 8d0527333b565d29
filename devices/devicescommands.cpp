// The devices commands: list, select, refresh and factory reset.
#include "prompt.h"

#include <QTextStream>

int Prompt::devicesList(const QStringList &)
{
    m_out << "devicesList: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::devicesSelect(const QStringList &)
{
    m_out << "devicesSelect: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::devicesRefresh(const QStringList &)
{
    m_out << "devicesRefresh: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::devicesFactoryReset(const QStringList &)
{
    m_out << "devicesFactoryReset: not implemented yet" << Qt::endl;
    return -1;
}

