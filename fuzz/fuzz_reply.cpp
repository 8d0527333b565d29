// Reply interpretation: arbitrary bytes through KorvexClient::parseReply, and
// decode → encode → decode of the message classes, which must be stable.
#include "fuzzcheck.h"

#include <cmath>
#include <string>

#include <QVariant>

#include "korvexclient.h"

namespace {

bool isResult(int code)
{
    switch (code) {
    case KorvexClient::Ok:
    case KorvexClient::GenericError:
    case KorvexClient::SerializationError:
    case KorvexClient::InvalidRequest:
    case KorvexClient::OkWithInformation:
    case KorvexClient::NotImplemented:
        return true;
    default:
        return false;
    }
}

// NaN never equals itself; two NaNs are the same delivered value here.
bool sameValue(const QVariant &a, const QVariant &b)
{
    if (a.type() != b.type())
        return false;
    if (a.type() == QVariant::Double && std::isnan(a.toDouble()))
        return std::isnan(b.toDouble());
    if (a.userType() == QMetaType::Float && std::isnan(a.toFloat()))
        return std::isnan(b.toFloat());
    return a == b;
}

template <typename Message>
void checkRoundTrip(const uint8_t *data, size_t size)
{
    Message first;
    if (!first.ParsePartialFromArray(data, static_cast<int>(size)))
        return;
    const std::string encoded = first.SerializePartialAsString();
    Message second;
    FUZZ_CHECK(second.ParsePartialFromString(encoded));
    FUZZ_CHECK(second.SerializePartialAsString() == encoded);
    FUZZ_CHECK(second.IsInitialized() == first.IsInitialized());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    Fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static KorvexClient client;
    const QByteArray bytes = Fuzz::bytes(data, size);

    QVariant value;
    const int result = client.parseReply(bytes, value);
    FUZZ_CHECK(isResult(result));

    // The interpretation depends on the fields present, not on how they
    // were encoded: the re-encoded reply gives the same result and value.
    Korvex::Reply reply;
    if (reply.ParsePartialFromArray(data, static_cast<int>(size))) {
        const std::string encoded = reply.SerializePartialAsString();
        QVariant again;
        FUZZ_CHECK(client.parseReply(QByteArray::fromStdString(encoded), again) == result);
        FUZZ_CHECK(sameValue(again, value));
    }

    checkRoundTrip<Korvex::Reply>(data, size);
    checkRoundTrip<Korvex::Request>(data, size);
    return 0;
}
