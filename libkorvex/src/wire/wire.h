// How messages travel between the shell and a device agent, for every program
// that speaks it (the client, the simulator, the benchmarks). There is no
// framing: a message is whole when all the bytes received so far decode into
// it with every required field present; its bytes go out as they are.
#pragma once

#include <string>

namespace Wire {

// Bytes: any contiguous container (QByteArray, std::string). The partial parse
// keeps the message library from logging each incomplete attempt.
template <typename Message, typename Bytes>
bool decodeWhole(Message &message, const Bytes &bytes)
{
    return message.ParsePartialFromArray(bytes.data(), static_cast<int>(bytes.size())) && message.IsInitialized();
}

// Sent even when a required field is missing: the agent answers such a
// request too, and the shell must keep sending what it always sent.
template <typename Message>
std::string encode(const Message &message)
{
    return message.SerializePartialAsString();
}

} // namespace Wire
