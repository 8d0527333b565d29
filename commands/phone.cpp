// Phone commands: incoming calls, text messages and raw modem commands.
#include "prompt.h"

#include <QRegExp>
#include <QTextStream>

#include "korvexclient.h"
#include "requestoutcome.h"
#include "usageevents.h"

namespace {

// "+" and up to 14 digits, or up to 16 digits without a sign.
const char *const NumberPattern = "^(\\+[0-9]{1,14}|[0-9]{1,16})$";
// Counted in UTF-16 code units, as the modem's message buffer is.
constexpr int MaxMessageLength = 4000;

bool isValidNumber(const QString &number)
{
    return QRegExp(NumberPattern, Qt::CaseInsensitive).exactMatch(number);
}

void recordBaseband(const QString &kind)
{
    UsageEvents::record("baseband", {{"kind", kind}});
}

} // namespace

int Prompt::phoneCall(const QStringList &params)
{
    if (checkParams(params, 1) || checkDevice())
        return -1;

    const QString &number = params[0];
    if (!isValidNumber(number)) {
        m_out << "Invalid number: can start with '+', must contains only digits and be at most 16 digits long"
              << Qt::endl;
        return -1;
    }

    recordBaseband("call");
    return RequestOutcome::report(m_out, m_client->phoneCall(number)) ? 0 : -1;
}

int Prompt::phoneSms(const QStringList &params)
{
    if (checkParams(params, 2) || checkDevice())
        return -1;

    const QString &number = params[0];
    const QString &message = params[1];
    if (!isValidNumber(number)) {
        m_out << "Invalid number: can start with '+' and must contains only digits" << Qt::endl;
        return -1;
    }

    // Counted as an attempt even when the length test then refuses it.
    recordBaseband("sms");
    if (message.size() > MaxMessageLength) {
        m_out << "Message too long: can be at most 4000 characters long" << Qt::endl;
        return -1;
    }

    return RequestOutcome::report(m_out, m_client->sendSms(number, message)) ? 0 : -1;
}

int Prompt::phoneBaseband(const QStringList &params)
{
    if (checkDevice() || checkParams(params, 1, true))
        return -1;

    const QString command = params.join(' ');
    recordBaseband("raw");
    return RequestOutcome::report(m_out, m_client->sendBasebandCommand(command)) ? 0 : -1;
}
