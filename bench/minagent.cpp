// korvex-minagent: an agent that costs next to nothing, for the benchmarks'
// floors. One thread, poll(), replies encoded once at start: Ping gets Pong,
// GetParam the battery level, the agent version or the connection count
// (ApiStatistics, for the benchmark's check of the connection mode), and
// every other request an Ok. Runs until killed.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "requests.pb.h"
#include "wire.h"

namespace {

constexpr int DefaultPort = 22666;
constexpr int BatteryLevel = 50;
constexpr size_t ChunkSize = 2048;
constexpr int Backlog = 64;

const char Usage[] = "usage: korvex-minagent ADDRESS [--agent-version V]\n";

struct Connection
{
    int fd;
    std::string buffer;
};

std::string encode(const Korvex::Reply &reply)
{
    return Wire::encode(reply);
}

Korvex::Reply valueReply(Korvex::Value::Type type)
{
    Korvex::Reply reply;
    reply.set_type(Korvex::Reply::Value);
    reply.mutable_status()->set_code(Korvex::Status::Ok);
    reply.mutable_value()->set_type(type);
    return reply;
}

struct Replies
{
    std::string pong, ok, level, version;

    explicit Replies(const char *agentVersion)
    {
        Korvex::Reply reply;
        reply.set_type(Korvex::Reply::Pong);
        reply.mutable_status()->set_code(Korvex::Status::Ok);
        pong = encode(reply);
        reply.set_type(Korvex::Reply::None);
        ok = encode(reply);
        reply = valueReply(Korvex::Value::Int);
        reply.mutable_value()->set_intvalue(BatteryLevel);
        level = encode(reply);
        reply = valueReply(Korvex::Value::String);
        reply.mutable_value()->set_stringvalue(agentVersion);
        version = encode(reply);
    }

    std::string to(const Korvex::Request &request, long connections) const
    {
        if (request.type() == Korvex::Request::Ping)
            return pong;
        if (request.type() != Korvex::Request::GetParam)
            return ok;
        switch (request.parameter().type()) {
        case Korvex::Parameter::KorvexVersion:
            return version;
        case Korvex::Parameter::ApiStatistics: {
            Korvex::Reply reply = valueReply(Korvex::Value::Int);
            reply.mutable_value()->set_intvalue(static_cast<int>(connections));
            return encode(reply);
        }
        default:
            return level;
        }
    }
};

int listenOn(const char *address)
{
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(DefaultPort);
    if (inet_pton(AF_INET, address, &target.sin_addr) != 1)
        return -1;
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&target), sizeof target) != 0 || listen(fd, Backlog) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Reads what the connection has; answers once the bytes decode as a request.
bool serve(Connection &connection, const Replies &replies, long connections)
{
    char chunk[ChunkSize];
    const ssize_t got = read(connection.fd, chunk, sizeof chunk);
    if (got <= 0)
        return false;
    connection.buffer.append(chunk, static_cast<size_t>(got));
    Korvex::Request request;
    if (!Wire::decodeWhole(request, connection.buffer))
        return true;
    connection.buffer.clear();
    const std::string reply = replies.to(request, connections);
    return write(connection.fd, reply.data(), reply.size()) == static_cast<ssize_t>(reply.size());
}

} // namespace

int main(int argc, char **argv)
{
    const char *agentVersion = "2.8.1";
    if (argc == 4 && std::strcmp(argv[2], "--agent-version") == 0)
        agentVersion = argv[3];
    else if (argc != 2) {
        std::fputs(Usage, stderr);
        return 2;
    }
    const int server = listenOn(argv[1]);
    if (server < 0) {
        std::perror("korvex-minagent: listen");
        return 1;
    }
    const Replies replies(agentVersion);
    std::printf("listening on %s:%d\n", argv[1], DefaultPort);
    std::fflush(stdout);

    std::vector<Connection> connections;
    std::vector<pollfd> watched;
    long accepted = 0;
    for (;;) {
        watched.assign(1, pollfd{server, POLLIN, 0});
        for (const Connection &connection : connections)
            watched.push_back(pollfd{connection.fd, POLLIN, 0});
        if (poll(watched.data(), watched.size(), -1) < 0)
            continue;
        for (size_t i = watched.size(); i-- > 1;) {
            if (!watched[i].revents)
                continue;
            Connection &connection = connections[i - 1];
            if (!serve(connection, replies, accepted)) {
                close(connection.fd);
                connections.erase(connections.begin() + static_cast<long>(i - 1));
            }
        }
        if (watched[0].revents & POLLIN) {
            const int fd = accept(server, nullptr, nullptr);
            if (fd >= 0) {
                const int on = 1;
                setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
                connections.push_back(Connection{fd, {}});
                ++accepted;
            }
        }
    }
}
