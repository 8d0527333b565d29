// GPS commands: receiver status and the five coordinates of the fix.
#include "prompt.h"

#include <QTextStream>

int Prompt::gpsGetStatus(const QStringList &)
{
    m_out << "gpsGetStatus: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::gpsSetStatus(const QStringList &)
{
    m_out << "gpsSetStatus: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::gpsGetLatitude(const QStringList &)
{
    m_out << "gpsGetLatitude: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::gpsSetLatitude(const QStringList &)
{
    m_out << "gpsSetLatitude: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::gpsGetLongitude(const QStringList &)
{
    m_out << "gpsGetLongitude: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::gpsSetLongitude(const QStringList &)
{
    m_out << "gpsSetLongitude: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::gpsGetAltitude(const QStringList &)
{
    m_out << "gpsGetAltitude: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::gpsSetAltitude(const QStringList &)
{
    m_out << "gpsSetAltitude: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::gpsGetAccuracy(const QStringList &)
{
    m_out << "gpsGetAccuracy: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::gpsSetAccuracy(const QStringList &)
{
    m_out << "gpsSetAccuracy: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::gpsGetBearing(const QStringList &)
{
    m_out << "gpsGetBearing: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::gpsSetBearing(const QStringList &)
{
    m_out << "gpsSetBearing: not implemented yet" << Qt::endl;
    return -1;
}

