// Device ID and Android ID commands and their random generators.
#include "prompt.h"

#include <QTextStream>

int Prompt::androidGetDeviceId(const QStringList &)
{
    m_out << "androidGetDeviceId: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::androidSetDeviceId(const QStringList &)
{
    m_out << "androidSetDeviceId: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::androidGetAndroidId(const QStringList &)
{
    m_out << "androidGetAndroidId: not implemented yet" << Qt::endl;
    return -1;
}

int Prompt::androidSetAndroidId(const QStringList &)
{
    m_out << "androidSetAndroidId: not implemented yet" << Qt::endl;
    return -1;
}

QString Prompt::generateRandomImei() { return QString(); }
int Prompt::imeiLuhnDigit(const QString &) { return 0; }
QString Prompt::generateRandomAndroidId() { return QString(); }
