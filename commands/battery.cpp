// Battery commands: level, state of charge and mode of the virtual battery.
#include "prompt.h"

#include <QRegExp>
#include <QTextStream>
#include <QVariant>

#include "korvexclient.h"
#include "requestoutcome.h"

using RequestOutcome::AcceptInformation;

namespace {

constexpr unsigned MaxBatteryLevel = 100;

// Unanchored on purpose: any word containing one of the states is taken, so
// command files that have always passed "recharging" or "full." keep working.
const char *const StatusPattern = "charging|discharging|notcharging|full";
const char *const FullStatus = "full";
// The device names this state with a blank, which the shell's word cannot hold.
const char *const NotChargingWord = "Notcharging";
const char *const NotChargingStatus = "Not charging";

const char *const ManualMode = "manual";
const char *const HostMode = "host";

} // namespace

int Prompt::batteryGetLevel(const QStringList &params)
{
    if (checkParams(params, 0) || checkDevice())
        return -1;

    int level = 0;
    if (!RequestOutcome::report(m_out, m_client->getBatteryLevel(level)))
        return -1;
    m_out << QString("Battery level: %1%").arg(level) << Qt::endl;
    return 0;
}

int Prompt::batterySetLevel(const QStringList &params)
{
    int level = 0;
    if (checkParams(params, 1) || checkIntParameter(params, 0, &level) || checkDevice())
        return -1;

    // Negative levels wrap to large unsigned values and fail the one bound.
    // Kept on purpose: one comparison gives the one message users' scripts
    // expect for -1 as for 101.
    if (static_cast<unsigned>(level) > MaxBatteryLevel) {
        m_out << "Battery level must be a number between 0 and 100" << Qt::endl;
        return -1;
    }

    QVariant reply;
    const KorvexClient::RequestResult result = m_client->setBatteryLevel(level, reply);
    if (!RequestOutcome::report(m_out, result, AcceptInformation, reply))
        return -1;
    m_out << "Battery level set to: " << params[0] << "%" << Qt::endl;
    return 0;
}

int Prompt::batteryGetStatus(const QStringList &params)
{
    if (checkParams(params, 0) || checkDevice())
        return -1;

    QString status;
    if (!RequestOutcome::report(m_out, m_client->getBatteryStatus(status)))
        return -1;
    m_out << "Battery status: " << status.toLower().remove(' ') << Qt::endl;
    return 0;
}

int Prompt::batterySetStatus(const QStringList &params)
{
    if (checkParams(params, 1, true) || checkDevice())
        return -1;

    const QString word = params[0].toLower();
    if (QRegExp(StatusPattern).indexIn(word) < 0) {
        m_out << "Available status: \"charging [0-100]\", \"discharging [0-100]\" or \"full\"" << Qt::endl;
        return -1;
    }

    // A level is only taken with exactly one extra word; "full" ignores it.
    if (word != FullStatus && params.size() == 2 && batterySetLevel(QStringList{params[1]}) != 0)
        return -1;

    QString status = word;
    status[0] = status[0].toUpper();
    if (status == NotChargingWord)
        status = NotChargingStatus;

    QVariant reply;
    const KorvexClient::RequestResult result = m_client->setBatteryStatus(status, reply);
    if (!RequestOutcome::report(m_out, result, AcceptInformation, reply))
        return -1;
    m_out << "Battery status set to: " << word << Qt::endl;
    return 0;
}

int Prompt::batteryGetMode(const QStringList &params)
{
    if (checkParams(params, 0) || checkDevice())
        return -1;

    bool manual = false;
    if (!RequestOutcome::report(m_out, m_client->getBatteryMode(manual)))
        return -1;
    m_out << "Battery mode: " << (manual ? ManualMode : HostMode) << Qt::endl;
    return 0;
}

int Prompt::batterySetMode(const QStringList &params)
{
    if (checkParams(params, 1) || checkDevice())
        return -1;

    const QString mode = params[0].toLower();
    if (mode != ManualMode && mode != HostMode) {
        m_out << "Available modes: \"manual\" or \"host\"" << Qt::endl;
        return -1;
    }
    return RequestOutcome::report(m_out, m_client->setBatteryMode(mode == ManualMode)) ? 0 : -1;
}
