// korvex-devsim: a device simulator that plays the agent's side of the
// protocol on a loopback address, for tests and demos without a device.
#include <QCoreApplication>
#include <QTextStream>

#include <csignal>
#include <cstdio>
#include <unistd.h>

#include "agentserver.h"
#include "devicestate.h"
#include "requestlog.h"
#include "simoptions.h"

namespace {

constexpr int ExitUsage = 2;
constexpr int ExitFailure = 1;

// The log is flushed per line, so there is nothing left to save. Installed
// explicitly because a background job may inherit SIGINT ignored.
void stop(int)
{
    _exit(0);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName("korvex-devsim");

    SimOptions options;
    const int status = parseOptions(app.arguments(), options);
    if (status >= 0)
        return status;

    QTextStream err(stderr);
    DeviceState state;
    for (const auto &setting : options.settings) {
        QString error;
        if (!state.set(setting.first, setting.second, error)) {
            err << "korvex-devsim: " << error << Qt::endl;
            return ExitUsage;
        }
    }

    RequestLog log;
    QString error;
    if (!log.open(options.logPath, error)) {
        err << "korvex-devsim: cannot open " << options.logPath << ": " << error << Qt::endl;
        return ExitFailure;
    }

    AgentServer server(options, state, log);
    if (!server.listen(error)) {
        err << "korvex-devsim: cannot listen on " << options.address.toString() << ":" << options.port << ": "
            << error << Qt::endl;
        return ExitFailure;
    }
    std::signal(SIGINT, stop);
    std::signal(SIGTERM, stop);
    QTextStream(stdout) << "listening on " << options.address.toString() << ":" << options.port << Qt::endl;
    return app.exec();
}
