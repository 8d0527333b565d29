// Shared printing of request outcomes for the device commands.
#include "requestoutcome.h"

#include <QTextStream>
#include <QVariant>

#include "korvexclient.h"

namespace RequestOutcome {

bool report(QTextStream &out, KorvexClient::RequestResult result, Information information, const QVariant &reply)
{
    switch (result) {
    case KorvexClient::Ok:
        return true;
    case KorvexClient::OkWithInformation:
        if (information == AcceptInformation) {
            out << reply.toString() << Qt::endl;
            return true;
        }
        break;
    case KorvexClient::NetworkError:
        out << "Device unreachable." << Qt::endl;
        return false;
    default:
        break;
    }
    out << QString("Unknown error. Result code: %1").arg(result) << Qt::endl;
    return false;
}

bool report(QTextStream &out, KorvexClient::RequestResult result)
{
    return report(out, result, RefuseInformation, QVariant());
}

} // namespace RequestOutcome
