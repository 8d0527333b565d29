// Rotation through the accelerometer vector, capabilities and version queries.
#include "prompt.h"

#include <QTextStream>

int Prompt::rotationSetAngle(const QStringList &)
{
    m_out << "rotationSetAngle: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::korvexCapabilities(const QStringList &)
{
    m_out << "korvexCapabilities: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::korvexVersion(const QStringList &)
{
    m_out << "korvexVersion: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::androidVersion(const QStringList &)
{
    m_out << "androidVersion: not implemented yet" << Qt::endl;
    return -1;
}

