// korvex-devsim: a device simulator that plays the agent's side of the
// protocol on a loopback address, for tests and demos without a device.
#include <QCoreApplication>
#include <QTextStream>

#include <csignal>
#include <cstdio>
#include <memory>
#include <unistd.h>
#include <vector>

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
    QCoreApplication::setApplicationVersion(QStringLiteral(KORVEX_VERSION));

    SimOptions options;
    const int status = parseOptions(app.arguments(), options);
    if (status >= 0)
        return status;

    QTextStream err(stderr);
    RequestLog log;
    QString error;
    if (!log.open(options.logPath, error)) {
        err << "korvex-devsim: cannot open " << options.logPath << ": " << error << Qt::endl;
        return ExitFailure;
    }

    // Each device its own state; with several, each log line says whose it is.
    std::vector<std::unique_ptr<AgentServer>> devices;
    for (const QHostAddress &address : options.addresses) {
        const QString tag = options.addresses.size() > 1 ? address.toString() + ' ' : QString();
        devices.push_back(std::make_unique<AgentServer>(options, address, tag, log));
        for (const auto &setting : options.settings) {
            if (!devices.back()->state().set(setting.first, setting.second, error)) {
                err << "korvex-devsim: " << error << Qt::endl;
                return ExitUsage;
            }
        }
        if (!devices.back()->listen(error)) {
            err << "korvex-devsim: cannot listen on " << address.toString() << ":" << options.port << ": " << error
                << Qt::endl;
            return ExitFailure;
        }
    }
    std::signal(SIGINT, stop);
    std::signal(SIGTERM, stop);
    for (const QHostAddress &address : options.addresses)
        QTextStream(stdout) << "listening on " << address.toString() << ":" << options.port << Qt::endl;
    return app.exec();
}
