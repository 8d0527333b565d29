// Network quality-of-service profile commands. The agent owns the rates,
// delays and losses of each profile; the shell only maps names to numbers.
#include "prompt.h"

#include <QTextStream>
#include <QVariant>

#include "korvexclient.h"
#include "requestoutcome.h"

namespace {

// Indexed by the profile number the agent knows.
const QStringList Profiles = {"none", "no-data", "gprs", "edge", "3g",
                              "4g", "4g-bad-dns", "4g-high-losses", "wifi"};
const char *const UnknownProfile = "unknown";

} // namespace

int Prompt::networkGetProfile(const QStringList &params)
{
    if (checkParams(params, 0) || checkDevice())
        return -1;

    QVariant mode;
    if (!RequestOutcome::report(m_out, m_client->getParam(mode, Korvex::Parameter::NetworkMode)))
        return -1;
    const QString profile = Profiles.value(mode.toInt(), UnknownProfile);
    m_out << QString("Network Profile: %1").arg(profile) << Qt::endl;
    return 0;
}

int Prompt::networkSetProfile(const QStringList &params)
{
    if (checkParams(params, 1) || checkDevice())
        return -1;

    const QString name = params[0].toLower();
    const int profile = Profiles.indexOf(name);
    if (profile < 0) {
        // "wifi" is accepted but has never been listed here. Kept on purpose:
        // scripts match this line byte for byte.
        m_out << "Invalid profile, available profiles are \"none\", \"no-data\", \"gprs\", \"edge\", \"3g\", "
                 "\"4g\", \"4g-bad-dns\", and \"4g-high-losses\""
              << Qt::endl;
        return -1;
    }

    if (!RequestOutcome::report(m_out, m_client->setParam(QVariant(profile), Korvex::Parameter::NetworkMode)))
        return -1;
    m_out << "Network profile set to: " << name << Qt::endl;
    return 0;
}
