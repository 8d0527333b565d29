// Prompt construction and the command vocabulary: the handler table that
// dispatch runs and the help table behind help, completion and the README.
#include "prompt.h"

#include <QCoreApplication>
#include <QRegExp>

#include "console.h"
#include "remotedevice.h"
#include "virtualmachineengine.h"

namespace {

constexpr int HelpNameWidth = 20;
const char HelpTitle[] = "List of available commands:";
const char HelpUnderline[] = "---------------------------";

} // namespace

Prompt::Prompt(QCoreApplication *app, ConnectionMode connectionMode, const QHostAddress &deviceAddress,
               const QString &command, const QString &commandFileName, QObject *parent)
    : QObject(parent), m_app(app), m_out(console()), m_connectionMode(connectionMode), m_command(command),
      m_commandFile(commandFileName)
{
    fillCommandTables();

    // A one-shot command wins over a command file; either one means no prompt.
    m_interactive = m_command.isEmpty() && !m_commandFile.exists();
    connect(app, &QCoreApplication::aboutToQuit, this, &Prompt::stopLoopThread);

    m_out << "Connection mode: " << connectionModeText() << Qt::endl;

    if (m_connectionMode == LocalHost) {
        m_engine = new VirtualMachineEngine();
        m_client = m_engine->client();
        connect(m_engine, &VirtualMachineEngine::initializationFinished, this, &Prompt::main);
    } else if (m_connectionMode == RemoteHost) {
        m_remoteDevice = new RemoteDevice(deviceAddress, KorvexClient::AgentPort);
        m_client = m_remoteDevice->client();
        connect(m_remoteDevice, &RemoteDevice::initializationFinished, this, &Prompt::main);
    }
}

Prompt::~Prompt()
{
    // A device-ID store still running uses a machine the engine's plug-in owns.
    m_backgroundWatcher.waitForFinished();
    delete m_engine;
    delete m_remoteDevice;
}

QString Prompt::connectionModeText() const
{
    switch (m_connectionMode) {
    case LocalHost:
        return QStringLiteral("local host");
    case RemoteHost:
        return QStringLiteral("remote host");
    default:
        return QStringLiteral("unknown");
    }
}

const QVector<Prompt::CommandEntry> &Prompt::commandTable()
{
    static const QVector<CommandEntry> table = {
        // Verbs and one-word commands.
        {"android", nullptr,
         "information related to the Android system included in Korvex distribution"},
        {"battery", nullptr,
         "actions and information related to the battery widget"},
        {"gps", nullptr,
         "actions and information related to the Global Positioning System widget"},
        {"rotation", nullptr,
         "actions related to the rotation of virtual devices"},
        {"korvex", nullptr,
         "information related to the Korvex system"},
        {"phone", nullptr,
         "actions related to the phone widget"},
        {"devices", nullptr,
         "generic actions related to virtual devices (listing, selection, ...)"},
        {"network", nullptr,
         "actions and information related to the network quality of service"},
        {"version", &Prompt::version,
         "version number of the running Korvex Shell application"},
        {"pause", &Prompt::pause,
         "perform a pause (useful for automatic tests)"},
        {"help", &Prompt::help,
         "display this help and display help for each verb"},
        {"quit", &Prompt::quit,
         "quit this application"},
        {"exit", &Prompt::quit,
         "quit this application"},

        // Two-word commands.
        {"android-version", &Prompt::androidVersion,
         "get the Android version on which Korvex distribution is based"},
        {"android-getdeviceid", &Prompt::androidGetDeviceId,
         "get the DeviceID / IMEI number from the running virtual device"},
        {"android-setdeviceid", &Prompt::androidSetDeviceId,
         "set the DeviceID / IMEI number or generates a random value for the running virtual device [<max 32 chars>, <none>, <random>]"},
        {"android-getandroidid", &Prompt::androidGetAndroidId,
         "get the AndroidID from the running virtual device"},
        {"android-setandroidid", &Prompt::androidSetAndroidId,
         "set the AndroidID number or generates a random value for the running virtual device [<16 hex digits>, <random>]"},
        {"korvex-capabilities", &Prompt::korvexCapabilities,
         "get Korvex capabilities of the selected virtual device"},
        {"korvex-version", &Prompt::korvexVersion,
         "get the Korvex version of the selected virtual device"},
        {"korvex-clearcache", &Prompt::korvexClearCache,
         "clear temporary downloaded files and logs"},
        {"battery-getlevel", &Prompt::batteryGetLevel,
         "get the current battery charge level (in percents)"},
        {"battery-setlevel", &Prompt::batterySetLevel,
         "set the battery charge level (in percents, between 0 and 100)"},
        {"battery-getstatus", &Prompt::batteryGetStatus,
         "get the battery state of charge (\"charging\", \"discharging\", \"notcharging\" or \"full\")"},
        {"battery-setstatus", &Prompt::batterySetStatus,
         "set the battery state of charge (\"charging [0-100]\", \"discharging [0-100]\", \"notcharging [0-100]\", \"full\")"},
        {"battery-getmode", &Prompt::batteryGetMode,
         "get the current battery mode"},
        {"battery-setmode", &Prompt::batterySetMode,
         "set the current battery mode (\"manual\" or \"host\")"},
        {"gps-getstatus", &Prompt::gpsGetStatus,
         "get the activation status of the GPS signal reception"},
        {"gps-setstatus", &Prompt::gpsSetStatus,
         "set the activation status of the GPS signal reception"},
        {"gps-getlatitude", &Prompt::gpsGetLatitude,
         "get the current latitude value of the GPS location in degrees [-90; 90]"},
        {"gps-setlatitude", &Prompt::gpsSetLatitude,
         "set the latitude value of the GPS location in degrees [-90; 90]"},
        {"gps-getlongitude", &Prompt::gpsGetLongitude,
         "get the current longitude value of the GPS location in degrees [-180; 180]"},
        {"gps-setlongitude", &Prompt::gpsSetLongitude,
         "set the longitude value of the GPS location in degrees [-180; 180]"},
        {"gps-getaltitude", &Prompt::gpsGetAltitude,
         "get the current altitude value of the GPS location in meters [-10000; 10000]"},
        {"gps-setaltitude", &Prompt::gpsSetAltitude,
         "set the altitude value of the GPS location in meters [-10000; 10000]"},
        {"gps-getaccuracy", &Prompt::gpsGetAccuracy,
         "get the current accuracy value of the GPS location in meters [0; 200]"},
        {"gps-setaccuracy", &Prompt::gpsSetAccuracy,
         "set the accuracy value of the GPS location in meters [0; 200]"},
        {"gps-getbearing", &Prompt::gpsGetBearing,
         "get the current bearing value of the GPS in degrees [0; 359] considering that 0 indicates North"},
        {"gps-setbearing", &Prompt::gpsSetBearing,
         "set the bearing value of the GPS in degrees [0; 359] considering that 0 indicates North"},
        {"phone-call", &Prompt::phoneCall,
         "call the virtual device from the given phone number <Phone number max 16 digits>"},
        {"phone-sms", &Prompt::phoneSms,
         "send a text message to the virtual device from the given phone number <Phone number max 16 digits> <text>"},
        {"phone-baseband", &Prompt::phoneBaseband,
         "send a command directly to the virtual device baseband"},
        {"network-getprofile", &Prompt::networkGetProfile,
         "get the current network profile"},
        {"network-setprofile", &Prompt::networkSetProfile,
         "set the network profile (\"none\", \"no-data\", \"gprs\", \"edge\", \"3g\", \"4g\", \"4g-bad-dns\", \"4g-high-losses\", \"wifi\")"},
        {"rotation-setangle", &Prompt::rotationSetAngle,
         "set the rotation angle in degrees [0; 359]"},
        {"devices-show", &Prompt::devicesList,
         "show the list of available virtual devices"},
        {"devices-list", &Prompt::devicesList,
         "show the list of available virtual devices"},
        {"devices-ping", &Prompt::devicesPing,
         "send a ping to the virtual device to check if it is available"},
        {"devices-factoryreset", &Prompt::devicesFactoryReset,
         "reset the virtual device to factory state (device id or device name) [add keyword \"force\" at the end to skip the warning message about data loss]"},
        {"devices-refresh", &Prompt::devicesRefresh,
         "refresh list of available virtual devices"},
        {"devices-select", &Prompt::devicesSelect,
         "select a virtual device to interact with"},
        // Deliberate alias of baseband, kept out of help and completion.
        {"phone-boysband", &Prompt::phoneBaseband, nullptr},
    };
    return table;
}

void Prompt::fillCommandTables()
{
    for (const CommandEntry &entry : commandTable()) {
        m_commands.insert(entry.name, entry.handler);
        if (entry.help)
            m_helps.insert(entry.name, entry.help);
    }

    // Without a local engine there is no list to refresh nor to select from.
    if (m_connectionMode == RemoteHost) {
        m_commands.insert("devices-refresh", &Prompt::commandNotAvailable);
        m_commands.insert("devices-select", &Prompt::commandNotAvailable);
    }
}

int Prompt::help(const QStringList &params)
{
    QStringList keys = m_helps.keys();
    if (params.isEmpty()) {
        keys = keys.filter(QRegExp("^\\w+$"));
    } else {
        // Each word narrows the list again: "help battery gps" lists nothing.
        for (const QString &param : params)
            keys = keys.filter(param + "-", Qt::CaseSensitive);
    }
    showHelpOnKeys(keys);
    m_out << Qt::endl;
    return 0;
}

void Prompt::showHelpOnKeys(QStringList keys)
{
    keys.sort(Qt::CaseSensitive);
    m_out << Qt::endl << HelpTitle << Qt::endl << HelpUnderline << Qt::endl;
    for (const QString &key : qAsConst(keys)) {
        if (!m_helps.contains(key))
            continue;
        const QString name = key.mid(key.lastIndexOf('-') + 1);
        m_out << name.leftJustified(HelpNameWidth, ' ', true) << m_helps.value(key) << Qt::endl;
    }
}
