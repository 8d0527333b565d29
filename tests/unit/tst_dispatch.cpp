// Tokeniser, dispatch, history, the shared argument checks, version order and
// the identity generators of Prompt, with the console output captured.
#include <QtTest>

#include <functional>
#include <memory>

#include "console.h"
#include "prompt.h"
#include "selectionbanners.h"
#include "virtualmachineengine.h"

namespace {

// Nothing listens here: the remote client only needs a usable address.
const char RemoteAddress[] = "127.0.0.173";

QString helpBlock(const QStringList &rows)
{
    return "\nList of available commands:\n---------------------------\n" + rows.join('\n')
           + (rows.isEmpty() ? "\n" : "\n\n");
}

// One call of a shared check on a prompt; it passes when it prints nothing.
using Check = std::function<int(Prompt &)>;

} // namespace

Q_DECLARE_METATYPE(Check)

class TestDispatch : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup() { QLocale::setDefault(QLocale::c()); }
    void splitCommandLine();
    void execCommand_data();
    void execCommand();
    void history();
    void checks_data();
    void checks();
    void compareVersions();
    void identities();
    void selection();

private:
    std::unique_ptr<Prompt> makePrompt(Prompt::ConnectionMode mode, const QString &address = RemoteAddress)
    {
        // The event loop never runs here, so the device source never starts the shell loop.
        auto prompt = std::make_unique<Prompt>(qApp, mode, QHostAddress(address), QString(), QString());
        takeOutput();
        return prompt;
    }
    QString takeOutput()
    {
        console().flush();
        return std::exchange(m_output, QString());
    }

    QTemporaryDir m_home;
    QString m_output;
};

void TestDispatch::initTestCase()
{
    qputenv("KX_HOME", m_home.path().toUtf8());
    // Local mode must never reach a real VirtualBox from a test.
    qputenv("KX_VBOXMANAGE", (m_home.path() + "/no-vboxmanage").toUtf8());
    QCoreApplication::setApplicationVersion("2.8.1");
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    console().setString(&m_output, QIODevice::ReadWrite);
}

void TestDispatch::splitCommandLine()
{
    const QList<QPair<QString, QStringList>> cases = {
        {"   ", {}},
        {"  battery   setlevel  50 ", {"battery", "setlevel", "50"}},
        {"a\tb c", {"a\tb", "c"}},                        // a tab is no separator
        {"sms 0612 \"hi you\"", {"sms", "0612", "hi you"}},
        {"sms \"\"", {"sms", ""}},
        {"ab\"c d\"e", {"ab", "c d", "e"}},                // no blanks needed around quotes
        {"a \"b c' d", {"a", "b c", "d"}},                 // either quote closes
        {"a 'b c", {"a", "b c"}},                          // unterminated
        {"\"a b\" c", {"", "a", "b", " c"}},               // the empty piece before a leading quote counts
    };
    for (const auto &entry : cases)
        QCOMPARE(Prompt::splitCommandLine(entry.first), entry.second);
}

void TestDispatch::execCommand_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("output");
    QTest::addColumn<int>("status");

    const int local = Prompt::LocalHost;
    const int remote = Prompt::RemoteHost;
    const QString networkHelp = helpBlock({"getprofile          get the current network profile",
        "setprofile          set the network profile (\"none\", \"no-data\", \"gprs\", \"edge\", \"3g\", \"4g\", "
        "\"4g-bad-dns\", \"4g-high-losses\", \"wifi\")"});
    const QString notAvailable = "Command not available in this mode (remote host)\n";

    QTest::newRow("empty line") << local << "" << "Command not found: \n" << 1;
    QTest::newRow("case-sensitive") << local << "BATTERY getlevel" << "Command not found: BATTERY getlevel\n" << 1;
    QTest::newRow("parameters reach the handler") << local << "pause x"
                                                  << "Syntax error: Parameter 1 should be of type Integer\n" << -1;
    QTest::newRow("negative pause") << local << "pause -3" << "" << 0;
    QTest::newRow("exit is quit") << local << "exit" << "Exiting...\n" << 0;
    QTest::newRow("verb alone") << local << "network" << networkHelp << 0;
    QTest::newRow("verb with unknown words") << local << "network nosuch 3" << networkHelp << 0;
    QTest::newRow("help narrows per word") << local << "help battery gps" << helpBlock({}) << 0;
    // The alias runs the baseband handler, whose first check is the device.
    QTest::newRow("hidden alias runs") << remote << "phone boysband" << "The remote device could not be reached "
        "because of its wrong IP address. Please check your network configuration.\n" << -1;
    QTest::newRow("remote refresh") << remote << "devices refresh" << notAvailable << -1;
    QTest::newRow("remote select, joined name") << remote << "devices-select 1" << notAvailable << -1;
}

void TestDispatch::execCommand()
{
    QFETCH(int, mode);
    QFETCH(QString, line);
    QFETCH(QString, output);
    QFETCH(int, status);
    auto prompt = makePrompt(Prompt::ConnectionMode(mode), mode == Prompt::RemoteHost ? "0.0.0.0" : RemoteAddress);
    QCOMPARE(prompt->execCommand(line), status);
    QCOMPARE(takeOutput(), output);
}

void TestDispatch::history()
{
    auto prompt = makePrompt(Prompt::LocalHost);
    for (const QString line : {"a", "a", "", "  nosuch   x ", "a"})
        prompt->execCommand(line);
    // Newest first, consecutive duplicates once, every line as typed.
    QCOMPARE(prompt->history(), (QStringList{"a", "  nosuch   x ", "", "a"}));

    for (int i = 1; i <= 1000; ++i)
        prompt->execCommand(QString("line %1").arg(i));
    QCOMPARE(prompt->history().size(), 1000);
    QCOMPARE(prompt->history().last(), QString("line 1"));
    // The oldest entry goes before the duplicate test, so a full history shrinks.
    prompt->execCommand("line 1000");
    QCOMPARE(prompt->history().size(), 999);
}

void TestDispatch::checks_data()
{
    QTest::addColumn<Check>("check");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("locale");

    const auto count = [](QStringList list, int expected, bool orMore) {
        return Check([=](Prompt &p) { return p.checkParams(list, expected, orMore); });
    };
    const auto integer = [](QStringList list, int index) {
        return Check([=](Prompt &p) { return p.checkIntParameter(list, index); });
    };
    const auto limits = [](QString param, double lower, double upper, bool lowerIn, bool upperIn) {
        return Check([=](Prompt &p) { return p.checkLimits(param, lower, upper, lowerIn, upperIn); });
    };
    const QString counted = "Syntax error: Command expects 1 parameters while %1 were given.\n";
    const QString notInteger = "Syntax error: Parameter %1 should be of type Integer\n";
    const QString range = "Syntax error: Expected a value in [-90; 90] but got %1\n";
    const QString c = "C";

    QTest::newRow("count too many") << count({"a", "b"}, 1, false) << counted.arg(2) << c;
    QTest::newRow("or more, too few") << count({}, 1, true) << counted.arg(0) << c;
    QTest::newRow("trailing letter") << integer({"5x"}, 0) << notInteger.arg(1) << c;
    QTest::newRow("hexadecimal") << integer({"1", "0x10"}, 1) << notInteger.arg(2) << c;
    QTest::newRow("beyond 32 bits") << integer({"2147483648"}, 0) << notInteger.arg(1) << c;
    QTest::newRow("integer missing") << integer({"1", "2"}, 2) << "Syntax error: Command expects parameter nb 3 to "
                                        "be of type Integer, but received only 2 parameters\n" << c;
    QTest::newRow("bounds included") << limits("90", -90, 90, true, true) << "" << c;
    QTest::newRow("exponent") << limits("9e1", -90, 90, true, true) << "" << c;
    QTest::newRow("upper excluded") << limits("90", -90, 90, true, false) << range.arg(90) << c;
    QTest::newRow("lower excluded") << limits("-90", -90, 90, false, true) << range.arg(-90) << c;
    QTest::newRow("above") << limits("90.5", -90, 90, true, true) << range.arg(90.5) << c;
    QTest::newRow("not a number") << limits("north", -90, 90, true, true) << range.arg("north") << c;
    QTest::newRow("decimal comma") << limits("48,85", -90, 90, true, true) << "" << "de_DE";
    QTest::newRow("decimal point refused") << limits("48.85", -90, 90, true, true) << range.arg("48.85") << "de_DE";
    // Bounds keep the plain form of the help texts: six significant digits, no group separators.
    QTest::newRow("bounds unlocalised") << limits("x", 0.1234567, 1234567, true, true)
                                        << "Syntax error: Expected a value in [0.123457; 1.23457e+06] but got x\n"
                                        << "en_US";
}

void TestDispatch::checks()
{
    QFETCH(Check, check);
    QFETCH(QString, output);
    QFETCH(QString, locale);
    QLocale::setDefault(QLocale(locale));
    auto prompt = makePrompt(Prompt::LocalHost);
    QCOMPARE(check(*prompt), output.isEmpty() ? 0 : -1);
    QCOMPARE(takeOutput(), output);
}

void TestDispatch::compareVersions()
{
    const QList<std::tuple<QString, QString, int>> cases = {
        {"2.8.1", "2.8.1", 0}, {"2.0.3", "2.0.4", -1}, {"2.10", "2.9", 1},    {"2.0.0", "2.0", 1},
        {"2", "1.9.9", 1},     {"2.0.3-rc1", "2.0.3", 0}, {" 1.0.0 ", "2.8.1", -1},
        {"2.0.4", "v1", 0},    {"1..0", "0.1", 0}, // not versions: equal to everything
    };
    for (const auto &[a, b, result] : cases)
        QCOMPARE(Prompt::compareVersions(a, b), result);
}

void TestDispatch::identities()
{
    // Doubled digits above 9 add their two digits; only the first 14 count; non-digits count as 0.
    const QList<QPair<QString, int>> imeis = {
        {"49015420323751", 8}, {"490154203237519999", 8}, {"09090909090909", 7}, {"4901542032375x", 0}};
    for (const auto &imei : imeis)
        QCOMPARE(Prompt::imeiLuhnDigit(imei.first), imei.second);
    const QString id = Prompt::generateRandomAndroidId();
    QVERIFY2(QRegularExpression("^[0-9a-f]{16}$").match(id).hasMatch(), qPrintable(id));
    QVERIFY(Prompt::generateRandomAndroidId() != id);
}

// Selection of local devices by id, by itself, and again after each refresh,
// which keeps the position, not the machine.
void TestDispatch::selection()
{
    VirtualMachineEngine engine;
    QThreadPool::globalInstance()->waitForDone(); // its plug-in load fails in the background
    const QString invalid = "Invalid device Id\n";
    const QString off = "Korvex virtual device %1 is off. Please select a new virtual device with command : devices "
                        "select\n";
    // A refresh to machines in these states, or else a selection of that id.
    const QList<std::tuple<QString, int, QString, int>> steps = {
        {"2,1", 0, "", 1},          {"", 2, invalid, 1},         {"", -1, invalid, 1},
        {"", 0, off.arg(0), 1},     {"1,1,1", 0, "", 1},         {"", 2, "", 2},
        {"1,1", 0, SelectionBanners::Several, -1},               {"2,2", 0, SelectionBanners::None, -1},
        {"2,1", 0, "", 1},          {"2,2", 0, off.arg(1), 1}};
    for (const auto &[states, id, output, index] : steps) {
        QList<Device> devices;
        for (const QString &state : states.split(',', Qt::SkipEmptyParts))
            devices << Device(QString::number(devices.size()), QHostAddress("127.0.0.40"), 1,
                              MachineState(state.toInt()), nullptr);
        if (states.isEmpty())
            engine.selectDevice(id);
        else
            engine.applyRefreshedList(devices);
        QCOMPARE(takeOutput(), output);
        QCOMPARE(engine.selectedIndex(), index);
    }
    QList<Device> devices;
    for (const char *name : {"dev2", "dev10", "Dev1", "alpha"})
        devices << Device(name, QHostAddress(), 1, On, nullptr);
    VirtualMachineEngine::sortDevices(devices);
    QCOMPARE(devices[0].name() + devices[1].name() + devices[2].name() + devices[3].name(), QString("alphaDev1dev10dev2"));
}

QTEST_GUILESS_MAIN(TestDispatch)
#include "tst_dispatch.moc"
