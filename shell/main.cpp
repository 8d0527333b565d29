// Entry point: names the application, opens the log, reads the options and
// hands over to the Prompt, whose worker thread ends the event loop.
#include <QCoreApplication>
#include <QFile>
#include <QHostAddress>
#include <QTextStream>
#include <csignal>
#include <cstdio>
#include <unistd.h>

#include "homedirectory.h"
#include "logging.h"
#include "prompt.h"
#include "settings.h"
#include "usageevents.h"
#include "usagestatistics.h"

namespace {

const char OrganizationName[] = "Talvane";
const char OrganizationDomain[] = "talvane.example";
const char ApplicationName[] = "Korvex Shell";
const char ApplicationVersion[] = "2.8.1";
const char UsageComponent[] = "shell";
// Upper-case letters are synonyms; they stay out of the usage text.
const char Options[] = "c:C:f:F:hHr:R:";

enum ExitStatus { Success = 0, Failure = 1 };

void printUsage(QTextStream &out, const QString &programName)
{
    out << "\nUsage: " << programName << " [options]\n" << Qt::endl
        << "Options:\n"
        << "\t" << "-h" << "            : " << "Display this help\n"
        << "\t" << "-r" << " ip_address : " << "Use Korvex virtual device specified with your IP address\n"
        << "\t" << "-c" << " command    : " << "Launch command and display result in terminal host\n"
        << "\t" << "-f" << " file       : " << "Launch all commands listed into file\n"
        << Qt::endl;
}

} // namespace

int main(int argc, char **argv)
{
    // Qt's own event dispatcher rather than GLib's, which wakes its loop at
    // every change of the sockets' notifiers: several times per request.
    qputenv("QT_NO_GLIB", "1");
    QCoreApplication app(argc, argv);
    initLogging(baseDirectory() + LogFileName, false);

    Prompt::ConnectionMode connectionMode = Prompt::LocalHost;
    QHostAddress deviceAddress(QStringLiteral("0.0.0.0"));
    QString command;
    QString commandFileName;
    QFile commandFile;

    QCoreApplication::setOrganizationName(OrganizationName);
    QCoreApplication::setOrganizationDomain(OrganizationDomain);
    QCoreApplication::setApplicationName(ApplicationName);
    QCoreApplication::setApplicationVersion(ApplicationVersion);
    // The virtualisation plug-in is looked up beside the executable only.
    QCoreApplication::setLibraryPaths({QCoreApplication::applicationDirPath()});

    const QString programName = QCoreApplication::arguments().value(0);
    QTextStream out(stdout, QIODevice::WriteOnly);

    int option;
    while ((option = getopt(argc, argv, Options)) != -1) {
        switch (option) {
        case 'c':
        case 'C':
            command = QString::fromUtf8(optarg);
            break;
        case 'f':
        case 'F':
            commandFileName = QFile::decodeName(optarg);
            commandFile.setFileName(commandFileName);
            if (!commandFile.exists()) {
                out << commandFileName << ": no such file or directory" << Qt::endl;
                return Failure;
            }
            break;
        case 'h':
        case 'H':
            printUsage(out, programName);
            return Success;
        case 'r':
        case 'R': {
            connectionMode = Prompt::RemoteHost;
            const QString text = QString::fromLocal8Bit(optarg);
            // Any address that parses is taken, IPv6 included, in spite of the
            // message below: kept so that no address that works today is refused.
            deviceAddress = QHostAddress(text);
            if (deviceAddress.isNull()) {
                out << text << ": is not an IPv4 address" << Qt::endl;
                return Failure;
            }
            break;
        }
        default:
            out << "Unknown option";
            printUsage(out, programName);
            return Failure;
        }
    }

    Settings::instance();
    signal(SIGINT, Prompt::onInterrupt);

    qWarning() << "****  STARTING KORVEX SHELL  ****";
    qWarning() << "Korvex shell version:" << qUtf8Printable(QCoreApplication::applicationName())
               << QCoreApplication::applicationVersion();

    UsageEvents::start(UsageComponent);
    // Owned by the application, so that it goes before the application does;
    // with statistics off there is none and events are dropped.
    if (UsageStatistics *statistics = UsageStatistics::fromSettings(&app))
        UsageEvents::setSink(statistics);

    auto *prompt = new Prompt(&app, connectionMode, deviceAddress, command, commandFileName);
    const int status = app.exec();
    delete prompt;
    return status;
}
