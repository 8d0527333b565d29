// Rotation through the accelerometer vector, capabilities and version queries.
#include "prompt.h"

#include <cmath>

#include <QTextStream>
#include <QVariant>

#include "korvexclient.h"
#include "requestoutcome.h"

namespace {

constexpr unsigned MaxAngle = 359;
constexpr double Pi = 3.141592653589793;
constexpr double Gravity = 9.81; // m/s²
// Gravity along z for the device's fixed 20° forward tilt (9.81 × sin 20°).
constexpr double TiltGravity = 3.3552176060248105;

} // namespace

int Prompt::rotationSetAngle(const QStringList &params)
{
    int angle = 0;
    if (checkParams(params, 1) || checkIntParameter(params, 0, &angle) || checkDevice())
        return -1;

    // Negative angles wrap to large unsigned values and fail the one bound.
    // Kept on purpose: -90 gets the out-of-range message, as it always did,
    // rather than being read as 270.
    if (static_cast<unsigned>(angle) > MaxAngle) {
        m_out << "Angle of rotation must be a number between 0 and 359" << Qt::endl;
        return -1;
    }

    // The device turns in its screen plane: gravity rotates in x/y, z stays.
    const double radians = angle * Pi / 180;
    const double x = -std::sin(radians) * Gravity;
    const double y = Gravity * std::cos(radians);

    QVariant reply;
    const KorvexClient::RequestResult result = m_client->setAccelerometer(reply, x, y, TiltGravity);
    if (!RequestOutcome::report(m_out, result, RequestOutcome::AcceptInformation, reply))
        return -1;
    m_out << "Device angle of rotation set to: " << QString::number(angle) << Qt::endl;
    return 0;
}

int Prompt::korvexCapabilities(const QStringList &params)
{
    return queryText(params, QStringLiteral("Capabilities: "), &KorvexClient::getCapabilities);
}

int Prompt::korvexVersion(const QStringList &params)
{
    return queryText(params, QStringLiteral("Korvex: "), &KorvexClient::getAgentVersion);
}

int Prompt::androidVersion(const QStringList &params)
{
    return queryText(params, QStringLiteral("Version: "), &KorvexClient::getAndroidVersion);
}
