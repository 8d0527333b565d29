// korvex-rawclient: the smallest client that does the shell's request/reply
// exchanges, with plain sockets and the generated messages only. The
// benchmarks time it as the floor the shell is compared with.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "requests.pb.h"
#include "wire.h"

namespace {

constexpr int DefaultPort = 22666;
constexpr int BatteryLevel = 50;
constexpr size_t ChunkSize = 2048;

const char Usage[] =
    "usage: korvex-rawclient ADDRESS [--port P] [--count N] [--per-request] [--get]\n"
    "  Sends N requests (default 1) to the agent at ADDRESS, each waiting for its\n"
    "  whole reply: battery level set to 50, or read with --get. One connection\n"
    "  for all of them, or a new one for each with --per-request. Prints the\n"
    "  exchanges and the time they took, excluding process start.\n";

struct Options
{
    std::string address;
    int port = DefaultPort;
    long count = 1;
    bool perRequest = false;
    bool get = false;
};

bool parse(int argc, char **argv, Options &options)
{
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--port" && hasValue)
            options.port = std::atoi(argv[++i]);
        else if (arg == "--count" && hasValue)
            options.count = std::atol(argv[++i]);
        else if (arg == "--per-request")
            options.perRequest = true;
        else if (arg == "--get")
            options.get = true;
        else if (options.address.empty() && arg[0] != '-')
            options.address = arg;
        else
            return false;
    }
    return !options.address.empty() && options.count > 0;
}

std::string encodedRequest(bool get)
{
    Korvex::Request request;
    Korvex::Parameter *parameter = request.mutable_parameter();
    parameter->set_type(Korvex::Parameter::BatteryLevel);
    if (get) {
        request.set_type(Korvex::Request::GetParam);
    } else {
        request.set_type(Korvex::Request::SetParam);
        parameter->mutable_value()->set_type(Korvex::Value::Int);
        parameter->mutable_value()->set_intvalue(BatteryLevel);
    }
    return Wire::encode(request);
}

int connectTo(const sockaddr_in &target)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return -1;
    if (connect(fd, reinterpret_cast<const sockaddr *>(&target), sizeof target) != 0) {
        close(fd);
        return -1;
    }
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
}

// One write, then reads until the bytes received decode whole as a Reply,
// as the shell's receive path does.
bool exchange(int fd, const std::string &request, std::string &buffer)
{
    if (write(fd, request.data(), request.size()) != static_cast<ssize_t>(request.size()))
        return false;
    buffer.clear();
    char chunk[ChunkSize];
    Korvex::Reply reply;
    for (;;) {
        const ssize_t got = read(fd, chunk, sizeof chunk);
        if (got <= 0)
            return false;
        buffer.append(chunk, static_cast<size_t>(got));
        if (Wire::decodeWhole(reply, buffer))
            return true;
    }
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    if (!parse(argc, argv, options)) {
        std::fputs(Usage, stderr);
        return 2;
    }
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(static_cast<uint16_t>(options.port));
    if (inet_pton(AF_INET, options.address.c_str(), &target.sin_addr) != 1) {
        std::fprintf(stderr, "korvex-rawclient: not an IPv4 address: %s\n", options.address.c_str());
        return 2;
    }

    const std::string request = encodedRequest(options.get);
    std::string buffer;
    const auto start = std::chrono::steady_clock::now();
    int fd = -1;
    for (long i = 0; i < options.count; ++i) {
        if (fd < 0 || options.perRequest) {
            if (fd >= 0)
                close(fd);
            fd = connectTo(target);
            if (fd < 0) {
                std::perror("korvex-rawclient: connect");
                return 1;
            }
        }
        if (!exchange(fd, request, buffer)) {
            std::fprintf(stderr, "korvex-rawclient: exchange %ld failed\n", i + 1);
            return 1;
        }
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    close(fd);
    std::printf("%ld exchanges in %.6f s\n", options.count, elapsed.count());
    return 0;
}
