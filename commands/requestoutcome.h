// How the device commands report the result code of a request, so that each
// handler only says whether it takes OkWithInformation as a success.
#pragma once

#include "korvexclient.h"

class QTextStream;
class QVariant;

namespace RequestOutcome {

enum Information { RefuseInformation, AcceptInformation };

// True when the command goes on as after success. A failure prints
// "Device unreachable." or "Unknown error. Result code: N"; an accepted
// OkWithInformation first prints its information text on a line of its own.
bool report(QTextStream &out, KorvexClient::RequestResult result, Information information, const QVariant &reply);
bool report(QTextStream &out, KorvexClient::RequestResult result);

} // namespace RequestOutcome
