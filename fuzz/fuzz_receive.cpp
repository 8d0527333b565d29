// Receive path of the protocol client: bytes from a device arrive in
// arbitrary chunks, each appended to the client's buffer, which is then
// decoded whole as a reply or else as a request.
// Input: chunks, each a length byte followed by up to that many bytes.
#include "fuzzcheck.h"

#include <memory>

#include "korvexclient.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    Fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    KorvexClient client;
    int replies = 0;
    int requests = 0;
    QObject::connect(&client, &KorvexClient::replyFromDevice, [&replies] { ++replies; });
    QObject::connect(&client, &KorvexClient::requestFromDevice, [&requests] { ++requests; });

    size_t position = 0;
    int chunks = 0;
    while (position < size) {
        const size_t announced = data[position];
        ++position;
        const size_t length = qMin<size_t>(announced, size - position);
        const int before = replies + requests;
        client.receiveChunk(Fuzz::bytes(data + position, length));
        position += length;
        ++chunks;
        // One decode per chunk, so at most one message per chunk.
        FUZZ_CHECK(replies + requests - before <= 1);
    }
    FUZZ_CHECK(replies + requests <= chunks);

    // The kept request is the whole buffer that decoded, so it decodes again.
    const std::unique_ptr<Korvex::Request> last(client.takeLastRequest());
    FUZZ_CHECK((last != nullptr) == (requests > 0));
    return 0;
}
