// Reply interpretation: arbitrary bytes through KorvexClient::parseReply, and
// decode → encode → decode of the message classes, which must be stable.
#include "fuzzcheck.h"

#include <string>

#include <QSet>
#include <QVariant>

#include "korvexclient.h"

namespace {

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
    static const QSet<int> results = {KorvexClient::Ok, KorvexClient::GenericError, KorvexClient::SerializationError,
                                      KorvexClient::InvalidRequest, KorvexClient::OkWithInformation,
                                      KorvexClient::NotImplemented};
    QVariant value;
    const int result = client.parseReply(Fuzz::bytes(data, size), value);
    FUZZ_CHECK(results.contains(result));

    // The interpretation depends on the fields present, not on how they were
    // encoded: the re-encoded reply gives the same result and value (NaN included).
    Korvex::Reply reply;
    if (reply.ParsePartialFromArray(data, static_cast<int>(size))) {
        QVariant again;
        FUZZ_CHECK(client.parseReply(QByteArray::fromStdString(reply.SerializePartialAsString()), again) == result);
        FUZZ_CHECK(again.userType() == value.userType() && (again == value || again.toString() == value.toString()));
    }
    checkRoundTrip<Korvex::Reply>(data, size);
    checkRoundTrip<Korvex::Request>(data, size);
    return 0;
}
