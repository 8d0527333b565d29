// Device commands end to end: the real shell against a simulated device, with
// the exact output, exit status and requests the device received.
#include <QRegularExpression>
#include <QtTest>

#include "devsim.h"
#include "shellrunner.h"

namespace {

// Simulators take a free address from 127.0.0.70 on; nothing ever listens on Unused.
constexpr int SimPool = 70;
constexpr int PoolSize = 8;
const QString Unused = "127.0.0.78";
constexpr int Ok = 0;
constexpr int Err = 255; // a handler's -1
const char *const Dead = "dead";   // nothing listens on the address
const char *const Local = "local"; // local mode without any machine

const char *const LevelRefused = "Battery level must be a number between 0 and 100";
const char *const CallRefused =
    "Invalid number: can start with '+', must contains only digits and be at most 16 digits long";
const QString DeviceTable = "Available devices:\n Id | Select |    Status     |   Type   |   IP Address    |      Name\n"
                            "----+--------+---------------+----------+-----------------+---------------\n";
const char *const Warnings = "Warning: sending this command to a remote device (option -r) does not allow "
                             "persistance.\nYou will need to send them again after reboot";

// Output after the welcome and the version advice an unreachable device gets.
QStringList commandLines(const QByteArray &out)
{
    QStringList lines = QString::fromUtf8(out).split('\n');
    lines = lines.mid(lines.indexOf("Welcome to Korvex Shell") + 1);
    if (lines.size() > 4 && lines[0].isEmpty() && lines[1].startsWith("Virtual device is in version: "))
        lines = lines.mid(5);
    lines.removeAll(QString());
    return lines;
}

// "get P", "set P TYPE VALUE" and "cmd <modem line>" as the simulator logs them.
QString request(const QString &shorthand)
{
    static const QHash<QString, QString> values = {{"Int", "intValue: %1"}, {"Bool", "boolValue: %1"},
        {"String", "stringValue: \"%1\""}, {"Float", "floatValue: %1 doubleValue: %1"}};
    const QStringList words = shorthand.split(' ');
    if (words[0] == "get")
        return QString("type: GetParam parameter { type: %1 }").arg(words[1]);
    if (words[0] == "set")
        return QString("type: SetParam parameter { type: %1 value { type: %2 %3 } }")
            .arg(words[1], words[2], values[words[2]].arg(shorthand.section(' ', 3)));
    return request("set KvexBasebandCmd String " + shorthand.mid(4) + "\\n").replace("SetParam", "SendCommand");
}

QStringList split(const QString &text)
{
    return text.isEmpty() ? QStringList() : text.split('\n');
}

} // namespace

class TestDeviceCommands : public QObject
{
    Q_OBJECT

private slots:
    void command_data();
    void command();
    void randomIdsRepeatAcrossRuns();

private:
    ShellRunner m_runner;
};

void TestDeviceCommands::command_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("sim");      // simulator options joined by '|', Dead or Local
    QTest::addColumn<QString>("lines");    // expected output lines joined by '\n'
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("requests"); // request shorthands joined by '\n'

    struct Row { QString command; const char *sim; QString lines; int exitCode; QString requests; };
    const QString accents(4000, QChar(0xe9));
    const QString tooLong = "Message too long: can be at most 4000 characters long";
    const Row rows[] = {
        {"battery getlevel", "", "Battery level: 50%", Ok, "get BatteryLevel"},
        {"battery getlevel", "--info|note", "Unknown error. Result code: 7", Err, "get BatteryLevel"},
        // A slow device is still waited for, by reads and sets alike.
        {"battery getlevel", "--delay|3000", "Battery level: 50%", Ok, "get BatteryLevel"},
        {"battery setlevel 50", "--delay|3000", "Battery level set to: 50%", Ok, "set BatteryLevel Int 50"},
        {"battery setlevel 050", "", "Battery level set to: 050%", Ok, "set BatteryLevel Int 50"},
        {"battery setlevel 100", "", "Battery level set to: 100%", Ok, "set BatteryLevel Int 100"},
        {"battery setlevel 101", "", LevelRefused, Err, ""},
        {"battery setlevel -1", "", LevelRefused, Err, ""},
        {"battery setlevel 20", "--info|busy", "busy\nBattery level set to: 20%", Ok, "set BatteryLevel Int 20"},
        {"battery setlevel 20", Dead, "Device unreachable.", Err, ""},
        {"battery setlevel 101", Local, "No virtual device selected.", Err, ""},
        {"battery getstatus", "--set|BatteryStatus=Not charging", "Battery status: notcharging", Ok,
         "get BatteryStatus"},
        {"battery setstatus Discharging 20", "", "Battery level set to: 20%\nBattery status set to: discharging", Ok, "set BatteryLevel Int 20\nset BatteryStatus String Discharging"},
        {"battery setstatus notcharging", "", "Battery status set to: notcharging", Ok,
         "set BatteryStatus String Not charging"},
        {"battery setstatus full 150", "", "Battery status set to: full", Ok, "set BatteryStatus String Full"},
        {"battery setstatus charging 150", "", LevelRefused, Err, ""},
        {"battery setstatus overcharging", "", "Battery status set to: overcharging", Ok,
         "set BatteryStatus String Overcharging"},
        {"battery setstatus unplugged", "",
         "Available status: \"charging [0-100]\", \"discharging [0-100]\" or \"full\"", Err, ""},
        {"battery getmode", "--set|BatteryMode=true", "Battery mode: manual", Ok, "get BatteryMode"},
        {"battery setmode HOST", "", "", Ok, "set BatteryMode Bool false"},
        {"battery setmode auto", "", "Available modes: \"manual\" or \"host\"", Err, ""},

        {"gps setstatus enabledx", "", "GPS status set to: enabledx", Ok, "set GpsStatus Bool false"},
        {"gps setstatus on", "", "Available status: \"enabled\" or \"disabled\"", Err, ""},
        {"gps getlatitude", "--set|GpsLatitude=48.856614", "GPS Latitude: 48.8566", Ok, "get GpsLatitude"},
        {"gps setlatitude -90", "", "GPS Latitude set to: -90", Ok, "set GpsLatitude Float -90"},
        {"gps setlatitude 90", "", "Syntax error: Expected a value in [-90; 90] but got 90", Err, ""},
        {"gps setlatitude 90", Local, "Syntax error: Expected a value in [-90; 90] but got 90", Err, ""},
        {"gps setlatitude 45", Local, "No virtual device selected.", Err, ""},
        {"gps setlatitude 48.8 extra", "--info|fixed", "fixed\nGPS Latitude set to: 48.8", Ok,
         "set GpsLatitude Float 48.8"},
        // Qt's default locale groups thousands even when the system locale is C.
        {"gps setaltitude 10000", "", "GPS Altitude set to: 10,000", Ok, "set GpsAltitude Float 10000"},

        {"rotation setangle 90", "", "Device angle of rotation set to: 90", Ok,
         "set Accelerometer String -9.81|6.00689e-16|3.35522"},
        {"rotation setangle 045", "--info|tilted", "tilted\nDevice angle of rotation set to: 45", Ok,
         "set Accelerometer String -6.93672|6.93672|3.35522"},
        {"rotation setangle 360", "", "Angle of rotation must be a number between 0 and 359", Err, ""},
        {"rotation setangle 360", Local, "No virtual device selected.", Err, ""},
        {"korvex capabilities", "--set|Capabilities=", "Capabilities: ", Ok, "get Capabilities"},
        {"korvex capabilities", "--info|note", "Unknown error. Result code: 7", Err, "get Capabilities"},
        {"korvex version", "--agent-version|3.0.1", "Korvex: 3.0.1", Ok, "get KorvexVersion"},
        {"android version", "--set|AndroidVersion=7.1.2", "Version: 7.1.2", Ok, "get AndroidVersion"},
        {"android version 1", "", "Syntax error: Command expects 0 parameters while 1 were given.", Err, ""},

        {"android getdeviceid", "", "Device ID: ", Ok, "get DeviceId"},
        {"android getandroidid", "--set|AndroidId=0123456789abcdef", "Android ID: 0123456789abcdef", Ok,
         "get AndroidId"},
        {"android getandroidid", "--error|InvalidRequest", "Unknown error. Result code: 5", Err, "get AndroidId"},
        {"android setdeviceid none", "", "Device ID set to: \n" + QString(Warnings), Ok, "set DeviceId String [none]"},
        {"android setdeviceid NONE", "--info|kept", "kept\nDevice ID set to: NONE\n" + QString(Warnings), Ok, "set DeviceId String NONE"},
        {"android setdeviceid 42", "--error|GenericError", "Unknown error. Result code: 2", Err,
         "set DeviceId String 42"},
        {"android setdeviceid", Local, "Syntax error: Command expects 1 parameters while 0 were given.", Err, ""},
        {"android setandroidid 0123456789ABCDEF", "", "Android ID set to: 0123456789abcdef", Ok,
         "set AndroidId String 0123456789abcdef"},
        {"android setandroidid 0123456789abcde", "", "Bad syntax: Android ID must be 16 hexadecimal digits long", Err, ""},
        {"android setandroidid", Local, "No virtual device selected.", Err, ""},

        {"phone call +33612345678", "", "", Ok, "cmd gsm call +33612345678"},
        {"phone call +123456789012345", "", CallRefused, Err, ""},
        {"phone call 06-00", Local, "No virtual device selected.", Err, ""},
        {"phone call 0600000000", "--info|ringing", "Unknown error. Result code: 7", Err, "cmd gsm call 0600000000"},
        {QString::fromUtf8("phone sms 555 h\xC3\xA9llo"), "", "", Ok, "cmd sms sendb64 555 aMOpbGxv"},
        {"phone sms 555 " + accents, "", "", Ok, "cmd sms sendb64 555 " + accents.toUtf8().toBase64()},
        {"phone sms 555 " + accents + "a", "", tooLong, Err, ""},
        // Counted in UTF-16 units: each of these takes two.
        {"phone sms 555 " + QString::fromUtf8("\xF0\x9F\x98\x80").repeated(2001), "", tooLong, Err, ""},
        {"phone sms 06-00 hi", "", "Invalid number: can start with '+' and must contains only digits", Err, ""},
        {"phone baseband gsm accept 0600000000", "", "", Ok, "cmd gsm accept 0600000000"},
        {"phone baseband", Local, "No virtual device selected.", Err, ""},

        {"network getprofile", "--set|NetworkMode=9", "Network Profile: unknown", Ok, "get NetworkMode"},
        {"network getprofile", "--set|NetworkMode=7", "Network Profile: 4g-high-losses", Ok, "get NetworkMode"},
        {"network setprofile 4G-bad-dns", "", "Network profile set to: 4g-bad-dns", Ok, "set NetworkMode Int 6"},
        {"network setprofile WiFi", "", "Network profile set to: wifi", Ok, "set NetworkMode Int 8"},
        {"network setprofile 5g", "", "Invalid profile, available profiles are \"none\", \"no-data\", \"gprs\", "
         "\"edge\", \"3g\", \"4g\", \"4g-bad-dns\", and \"4g-high-losses\"", Err, ""},
        {"network setprofile edge", "--info|note", "Unknown error. Result code: 7", Err, "set NetworkMode Int 3"},

        // %1: the device's address in its column, %2: the address.
        {"devices list", "", DeviceTable + "  0 |    *   |     Connected |   remote | %1 | %2:22666", Ok, ""},
        {"devices list", Dead, DeviceTable + "  0 |    *   | Not connected |   remote | %1 | %2:22666", Ok, ""},
    };
    for (const Row &row : rows)
        QTest::addRow("%s [%s]", qPrintable(row.command.left(40)), row.sim)
            << row.command << QString(row.sim) << row.lines << row.exitCode << row.requests;
}

void TestDeviceCommands::command()
{
    QFETCH(QString, command);
    QFETCH(QString, sim);
    QFETCH(QString, lines);
    QFETCH(int, exitCode);
    QFETCH(QString, requests);

    const bool withDevice = sim != Dead && sim != Local;
    const auto device = withDevice ? DevSim::startFree(SimPool, PoolSize, sim.split('|', Qt::SkipEmptyParts)) : nullptr;
    QVERIFY(!withDevice || device);
    const QStringList target = sim == Local ? QStringList() : QStringList{"-r", device ? device->address() : Unused};
    const ShellResult result = m_runner.run(target + QStringList{"-c", command});
    QVERIFY2(result.finished, result.err.constData());
    if (lines.contains("%1"))
        lines = lines.arg(target.last().rightJustified(15), target.last());
    QCOMPARE(commandLines(result.out), split(lines));
    QCOMPARE(result.exitCode, exitCode);
    QStringList expected;
    for (const QString &shorthand : split(requests))
        expected << request(shorthand);
    // The first request is the version read at start-up.
    QCOMPARE(withDevice ? device->requests().mid(1) : QStringList(), expected);
}

// The generator is never seeded: every start gives the same identifiers.
void TestDeviceCommands::randomIdsRepeatAcrossRuns()
{
    const auto device = DevSim::startFree(SimPool, PoolSize);
    QVERIFY(device);
    const QStringList arguments{"-r", device->address(), "-f", m_runner.writeCommandFile("random.txt",
        "android setdeviceid random\nandroid setandroidid RANDOM\n")};
    const QString first = commandLines(m_runner.run(arguments).out).join('\n');
    QCOMPARE(commandLines(m_runner.run(arguments).out).join('\n'), first);
    QVERIFY2(QRegularExpression("^Device ID set to: \\d{15}\n(.*\n){2}Android ID set to: [0-9a-f]{16}$")
                 .match(first).hasMatch(), qPrintable(first));
}

QTEST_GUILESS_MAIN(TestDeviceCommands)
#include "tst_devicecommands.moc"
