// Battery commands: level, state of charge and mode of the virtual battery.
#include "prompt.h"

#include <QTextStream>

int Prompt::batteryGetLevel(const QStringList &)
{
    m_out << "batteryGetLevel: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::batterySetLevel(const QStringList &)
{
    m_out << "batterySetLevel: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::batteryGetStatus(const QStringList &)
{
    m_out << "batteryGetStatus: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::batterySetStatus(const QStringList &)
{
    m_out << "batterySetStatus: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::batteryGetMode(const QStringList &)
{
    m_out << "batteryGetMode: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::batterySetMode(const QStringList &)
{
    m_out << "batterySetMode: not implemented yet" << Qt::endl;
    return -1;
}

