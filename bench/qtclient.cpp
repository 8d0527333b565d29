// korvex-qtclient: the smallest Qt program that does what a one-shot
// "battery getlevel" of the shell does on the wire (the agent's version, then
// the level, over one connection) and prints the level. The benchmarks time
// it as the one-shot floor: a Qt process start, its event dispatcher, sockets.
#include <QCoreApplication>
#include <QHostAddress>
#include <QTcpSocket>
#include <QTextStream>

#include "requests.pb.h"
#include "wire.h"

namespace {

constexpr quint16 AgentPort = 22666;
constexpr int TimeoutMs = 5000;

bool exchange(QTcpSocket &socket, Korvex::Parameter::Type parameter, Korvex::Reply &reply)
{
    Korvex::Request request;
    request.set_type(Korvex::Request::GetParam);
    request.mutable_parameter()->set_type(parameter);
    socket.write(QByteArray::fromStdString(Wire::encode(request)));
    QByteArray buffer;
    while (socket.waitForReadyRead(TimeoutMs)) {
        buffer += socket.readAll();
        if (Wire::decodeWhole(reply, buffer))
            return true;
    }
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTcpSocket socket;
    socket.connectToHost(QHostAddress(app.arguments().value(1)), AgentPort);
    Korvex::Reply version, level;
    if (!socket.waitForConnected(TimeoutMs) || !exchange(socket, Korvex::Parameter::KorvexVersion, version)
        || !exchange(socket, Korvex::Parameter::BatteryLevel, level))
        return 1;
    QTextStream(stdout) << "Battery level: " << level.value().intvalue() << "%" << Qt::endl;
    return 0;
}
