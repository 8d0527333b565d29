// GPS commands: receiver status and the five coordinates of the fix.
#include "prompt.h"

#include <QLocale>
#include <QRegExp>
#include <QTextStream>
#include <QVariant>

#include "gpsranges.h"
#include "korvexclient.h"
#include "requestoutcome.h"

using RequestOutcome::AcceptInformation;

namespace {

constexpr int SignificantDigits = 6;

// Unanchored on purpose: any word containing one of the two is taken.
const char *const StatusPattern = "enabled|disabled";
const char *const EnabledStatus = "enabled";
const char *const DisabledStatus = "disabled";

// Numbers follow the process locale both ways, so a comma locale types and reads commas.
QString formatCoordinate(double value)
{
    return QLocale().toString(value, 'g', SignificantDigits);
}

} // namespace

int Prompt::gpsGetCoordinate(const QStringList &params, const QString &name, CoordinateGetter getter)
{
    if (checkParams(params, 0) || checkDevice())
        return -1;

    double value = 0;
    if (!RequestOutcome::report(m_out, (m_client->*getter)(value)))
        return -1;
    m_out << QString("GPS %1: %2").arg(name, formatCoordinate(value)) << Qt::endl;
    return 0;
}

int Prompt::gpsSetCoordinate(const QStringList &params, const QString &name, CoordinateSetter setter,
                             const GpsRanges::Range &range)
{
    // The range is checked before the device, and words after the value are ignored.
    double value = 0;
    if (checkParams(params, 1, true)
        || checkLimits(params[0], range.lower, range.upper, true, range.upperIncluded, &value) || checkDevice())
        return -1;

    QVariant reply;
    const KorvexClient::RequestResult result = (m_client->*setter)(value, reply);
    if (!RequestOutcome::report(m_out, result, AcceptInformation, reply))
        return -1;
    m_out << QString("GPS %1 set to: %2").arg(name, formatCoordinate(value)) << Qt::endl;
    return 0;
}

int Prompt::gpsGetStatus(const QStringList &params)
{
    if (checkParams(params, 0) || checkDevice())
        return -1;

    bool enabled = false;
    if (!RequestOutcome::report(m_out, m_client->getGpsStatus(enabled)))
        return -1;
    m_out << "GPS status: " << (enabled ? EnabledStatus : DisabledStatus) << Qt::endl;
    return 0;
}

int Prompt::gpsSetStatus(const QStringList &params)
{
    if (checkParams(params, 1, true) || checkDevice())
        return -1;

    const QString word = params[0].toLower();
    if (QRegExp(StatusPattern).indexIn(word) < 0) {
        m_out << "Available status: \"enabled\" or \"disabled\"" << Qt::endl;
        return -1;
    }

    // Only the exact word enables; "enabledx" passes the pattern yet disables.
    if (!RequestOutcome::report(m_out, m_client->setGpsStatus(word == EnabledStatus)))
        return -1;
    m_out << "GPS status set to: " << word << Qt::endl;
    return 0;
}

int Prompt::gpsGetLatitude(const QStringList &params)
{
    return gpsGetCoordinate(params, "Latitude", &KorvexClient::getGpsLatitude);
}

int Prompt::gpsSetLatitude(const QStringList &params)
{
    return gpsSetCoordinate(params, "Latitude", &KorvexClient::setGpsLatitude, GpsRanges::Latitude);
}

int Prompt::gpsGetLongitude(const QStringList &params)
{
    return gpsGetCoordinate(params, "Longitude", &KorvexClient::getGpsLongitude);
}

int Prompt::gpsSetLongitude(const QStringList &params)
{
    return gpsSetCoordinate(params, "Longitude", &KorvexClient::setGpsLongitude, GpsRanges::Longitude);
}

int Prompt::gpsGetAltitude(const QStringList &params)
{
    return gpsGetCoordinate(params, "Altitude", &KorvexClient::getGpsAltitude);
}

int Prompt::gpsSetAltitude(const QStringList &params)
{
    return gpsSetCoordinate(params, "Altitude", &KorvexClient::setGpsAltitude, GpsRanges::Altitude);
}

int Prompt::gpsGetAccuracy(const QStringList &params)
{
    return gpsGetCoordinate(params, "Accuracy", &KorvexClient::getGpsAccuracy);
}

int Prompt::gpsSetAccuracy(const QStringList &params)
{
    return gpsSetCoordinate(params, "Accuracy", &KorvexClient::setGpsAccuracy, GpsRanges::Accuracy);
}

int Prompt::gpsGetBearing(const QStringList &params)
{
    return gpsGetCoordinate(params, "Bearing", &KorvexClient::getGpsBearing);
}

int Prompt::gpsSetBearing(const QStringList &params)
{
    return gpsSetCoordinate(params, "Bearing", &KorvexClient::setGpsBearing, GpsRanges::Bearing);
}
