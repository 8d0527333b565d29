// Tokeniser, dispatch, history and the shared argument checks of Prompt,
// with the shell's output captured from its console stream.
#include <QtTest>

#include <memory>

#include "console.h"
#include "prompt.h"

namespace {

const char LocalDevice[] = "127.0.0.170";

QString helpBlock(const QStringList &rows)
{
    QString text = "\nList of available commands:\n---------------------------\n";
    for (const QString &row : rows)
        text += row + "\n";
    return text + "\n";
}

} // namespace

class TestDispatch : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void splitCommandLine_data();
    void splitCommandLine();
    void execCommand_data();
    void execCommand();
    void remoteOnlyRefusals_data();
    void remoteOnlyRefusals();
    void hiddenAlias();
    void history_data();
    void history();
    void historyCapacity();
    void checkParams_data();
    void checkParams();
    void checkIntParameter_data();
    void checkIntParameter();
    void checkLimits_data();
    void checkLimits();
    void checkLimitsFollowsLocale_data();
    void checkLimitsFollowsLocale();
    void checkDevice();
    void compareVersions_data();
    void compareVersions();

private:
    std::unique_ptr<Prompt> makePrompt(int mode, const QString &address = LocalDevice);
    QString takeOutput();

    QTemporaryDir m_home;
    QString m_output;
};

void TestDispatch::initTestCase()
{
    QVERIFY(m_home.isValid());
    qputenv("KX_HOME", m_home.path().toUtf8());
    // Local mode must never reach a real VirtualBox from a test.
    qputenv("KX_VBOXMANAGE", (m_home.path() + "/no-vboxmanage").toUtf8());
    QCoreApplication::setApplicationVersion("2.8.1");
    // The device sources log their start-up; none of it matters here.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    console().setString(&m_output, QIODevice::ReadWrite);
}

void TestDispatch::init()
{
    m_output.clear();
}

void TestDispatch::cleanup()
{
    QLocale::setDefault(QLocale::c());
}

std::unique_ptr<Prompt> TestDispatch::makePrompt(int mode, const QString &address)
{
    // The event loop never runs here, so the device source never starts the shell loop.
    auto prompt = std::make_unique<Prompt>(QCoreApplication::instance(), mode, QHostAddress(address), QString(),
                                           QString());
    takeOutput();
    return prompt;
}

QString TestDispatch::takeOutput()
{
    console().flush();
    const QString text = m_output;
    m_output.clear();
    return text;
}

void TestDispatch::splitCommandLine_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("words");

    QTest::newRow("empty") << "" << QStringList();
    QTest::newRow("blanks only") << "   " << QStringList();
    QTest::newRow("repeated blanks") << "  battery   setlevel  50 " << QStringList{"battery", "setlevel", "50"};
    QTest::newRow("tab is not a separator") << "a\tb c" << QStringList{"a\tb", "c"};
    QTest::newRow("quoted words keep blanks") << "phone sms 0612 \"hello world\""
                                              << QStringList{"phone", "sms", "0612", "hello world"};
    QTest::newRow("empty quotes") << "phone sms 0612 \"\"" << QStringList{"phone", "sms", "0612", ""};
    QTest::newRow("no blanks around quotes") << "ab\"c d\"e" << QStringList{"ab", "c d", "e"};
    QTest::newRow("single quotes") << "a 'b c'" << QStringList{"a", "b c"};
    QTest::newRow("mixed quotes close each other") << "a \"b c' d" << QStringList{"a", "b c", "d"};
    QTest::newRow("unterminated quote") << "a \"b c" << QStringList{"a", "b c"};
    // A leading quote inverts the parity: the empty piece before it counts.
    QTest::newRow("leading quote") << "\"a b\" c" << QStringList{"", "a", "b", " c"};
}

void TestDispatch::splitCommandLine()
{
    QFETCH(QString, line);
    QFETCH(QStringList, words);
    QCOMPARE(Prompt::splitCommandLine(line), words);
}

void TestDispatch::execCommand_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("output");
    QTest::addColumn<int>("status");

    const QString batteryHelp = helpBlock({
        "getlevel            get the current battery charge level (in percents)",
        "getmode             get the current battery mode",
        "getstatus           get the battery state of charge (\"charging\", \"discharging\", \"notcharging\" or "
        "\"full\")",
        "setlevel            set the battery charge level (in percents, between 0 and 100)",
        "setmode             set the current battery mode (\"manual\" or \"host\")",
        "setstatus           set the battery state of charge (\"charging [0-100]\", \"discharging [0-100]\", "
        "\"notcharging [0-100]\", \"full\")",
    });

    QTest::newRow("empty line") << "" << "Command not found: \n" << 1;
    QTest::newRow("blank line") << "  " << "Command not found:   \n" << 1;
    QTest::newRow("unknown verb") << "nosuch 1 2" << "Command not found: nosuch 1 2\n" << 1;
    QTest::newRow("case-sensitive") << "BATTERY getlevel" << "Command not found: BATTERY getlevel\n" << 1;
    QTest::newRow("version") << "version" << "2.8.1 20161117-c0196b8\n" << 0;
    QTest::newRow("version with a parameter")
        << "version now" << "Syntax error: Command expects 0 parameters while 1 were given.\n" << -1;
    QTest::newRow("pause without parameter")
        << "pause" << "Syntax error: Command expects 1 parameters while 0 were given.\n" << -1;
    QTest::newRow("pause not an integer") << "pause x" << "Syntax error: Parameter 1 should be of type Integer\n"
                                          << -1;
    QTest::newRow("negative pause") << "pause -3" << "" << 0;
    QTest::newRow("quoted parameter") << "pause \"\"" << "Syntax error: Parameter 1 should be of type Integer\n"
                                      << -1;
    QTest::newRow("quit") << "quit" << "Exiting...\n" << 0;
    QTest::newRow("exit") << "exit" << "Exiting...\n" << 0;
    QTest::newRow("quit with a parameter")
        << "quit now" << "Syntax error: Command expects 0 parameters while 1 were given.\n" << -1;
    QTest::newRow("verb alone") << "battery" << batteryHelp << 0;
    QTest::newRow("verb with unknown words") << "battery nosuch 3" << batteryHelp << 0;
    QTest::newRow("help of a verb") << "help battery" << batteryHelp << 0;
    QTest::newRow("help narrows per word") << "help battery gps" << helpBlock({}) << 0;
    QTest::newRow("help of a one-word command") << "help quit" << helpBlock({}) << 0;
    QTest::newRow("help skips the hidden alias")
        << "help phone"
        << helpBlock({
               "baseband            send a command directly to the virtual device baseband",
               "call                call the virtual device from the given phone number <Phone number max 16 "
               "digits>",
               "sms                 send a text message to the virtual device from the given phone number "
               "<Phone number max 16 digits> <text>",
           })
        << 0;
}

void TestDispatch::execCommand()
{
    QFETCH(QString, line);
    QFETCH(QString, output);
    QFETCH(int, status);

    auto prompt = makePrompt(Prompt::LocalHost);
    QCOMPARE(prompt->execCommand(line), status);
    QCOMPARE(takeOutput(), output);
}

void TestDispatch::remoteOnlyRefusals_data()
{
    QTest::addColumn<QString>("line");
    QTest::newRow("refresh") << "devices refresh";
    QTest::newRow("select with id") << "devices select 1";
    QTest::newRow("joined name") << "devices-select";
}

void TestDispatch::remoteOnlyRefusals()
{
    QFETCH(QString, line);
    auto prompt = makePrompt(Prompt::RemoteHost);
    QCOMPARE(prompt->execCommand(line), -1);
    QCOMPARE(takeOutput(), QString("Command not available in this mode (remote host)\n"));
}

void TestDispatch::hiddenAlias()
{
    auto prompt = makePrompt(Prompt::LocalHost);
    QVERIFY(prompt->hasCommand("phone-boysband"));
    QVERIFY(!prompt->helps().contains("phone-boysband"));
    QVERIFY(prompt->helps().contains("phone-baseband"));
}

void TestDispatch::history_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QStringList>("history");

    QTest::newRow("newest first") << QStringList{"version", "help"} << QStringList{"help", "version"};
    QTest::newRow("consecutive duplicate once") << QStringList{"version", "version"} << QStringList{"version"};
    QTest::newRow("non-consecutive duplicates kept")
        << QStringList{"a", "b", "a"} << QStringList{"a", "b", "a"};
    QTest::newRow("unknown and empty lines recorded")
        << QStringList{"", "nosuch x"} << QStringList{"nosuch x", ""};
    QTest::newRow("raw line recorded") << QStringList{"  pause   -1 "} << QStringList{"  pause   -1 "};
}

void TestDispatch::history()
{
    QFETCH(QStringList, lines);
    QFETCH(QStringList, history);

    auto prompt = makePrompt(Prompt::LocalHost);
    for (const QString &line : lines)
        prompt->execCommand(line);
    QCOMPARE(prompt->history(), history);
}

void TestDispatch::historyCapacity()
{
    auto prompt = makePrompt(Prompt::LocalHost);
    for (int i = 1; i <= 1001; ++i)
        prompt->execCommand(QString("line %1").arg(i));
    QCOMPARE(prompt->history().size(), 1000);
    QCOMPARE(prompt->history().first(), QString("line 1001"));
    QCOMPARE(prompt->history().last(), QString("line 2"));

    // The oldest entry goes before the duplicate test, so a full history shrinks.
    prompt->execCommand("line 1001");
    QCOMPARE(prompt->history().size(), 999);
    QCOMPARE(prompt->history().last(), QString("line 3"));
}

void TestDispatch::checkParams_data()
{
    QTest::addColumn<QStringList>("params");
    QTest::addColumn<int>("expected");
    QTest::addColumn<bool>("orMore");
    QTest::addColumn<QString>("output");

    const QStringList none;
    const QStringList one{"a"};
    const QStringList two{"a", "b"};
    QTest::newRow("exact") << one << 1 << false << "";
    QTest::newRow("too many") << two << 1 << false
                              << "Syntax error: Command expects 1 parameters while 2 were given.\n";
    QTest::newRow("too few") << none << 1 << false
                             << "Syntax error: Command expects 1 parameters while 0 were given.\n";
    QTest::newRow("or more, exact") << one << 1 << true << "";
    QTest::newRow("or more, more") << two << 1 << true << "";
    QTest::newRow("or more, too few") << none << 1 << true
                                      << "Syntax error: Command expects 1 parameters while 0 were given.\n";
}

void TestDispatch::checkParams()
{
    QFETCH(QStringList, params);
    QFETCH(int, expected);
    QFETCH(bool, orMore);
    QFETCH(QString, output);

    auto prompt = makePrompt(Prompt::LocalHost);
    QCOMPARE(prompt->checkParams(params, expected, orMore), output.isEmpty() ? 0 : -1);
    QCOMPARE(takeOutput(), output);
}

void TestDispatch::checkIntParameter_data()
{
    QTest::addColumn<QStringList>("params");
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("output");

    QTest::newRow("integer") << QStringList{"42"} << 0 << "";
    QTest::newRow("negative") << QStringList{"-7"} << 0 << "";
    QTest::newRow("second parameter") << QStringList{"x", "3"} << 1 << "";
    QTest::newRow("trailing letter") << QStringList{"5x"} << 0
                                     << "Syntax error: Parameter 1 should be of type Integer\n";
    QTest::newRow("hexadecimal") << QStringList{"0x10"} << 0
                                 << "Syntax error: Parameter 1 should be of type Integer\n";
    QTest::newRow("decimal point") << QStringList{"1", "2.5"} << 1
                                   << "Syntax error: Parameter 2 should be of type Integer\n";
    QTest::newRow("beyond 32 bits") << QStringList{"2147483648"} << 0
                                    << "Syntax error: Parameter 1 should be of type Integer\n";
    QTest::newRow("missing") << QStringList() << 0
                             << "Syntax error: Command expects parameter nb 1 to be of type Integer, but received "
                                "only 0 parameters\n";
    QTest::newRow("missing after others") << QStringList{"1", "2"} << 2
                                          << "Syntax error: Command expects parameter nb 3 to be of type "
                                             "Integer, but received only 2 parameters\n";
}

void TestDispatch::checkIntParameter()
{
    QFETCH(QStringList, params);
    QFETCH(int, index);
    QFETCH(QString, output);

    auto prompt = makePrompt(Prompt::LocalHost);
    QCOMPARE(prompt->checkIntParameter(params, index), output.isEmpty() ? 0 : -1);
    QCOMPARE(takeOutput(), output);
}

void TestDispatch::checkLimits_data()
{
    QTest::addColumn<QString>("param");
    QTest::addColumn<double>("lower");
    QTest::addColumn<double>("upper");
    QTest::addColumn<bool>("lowerIncluded");
    QTest::addColumn<bool>("upperIncluded");
    QTest::addColumn<QString>("output");

    QTest::newRow("upper included") << "90" << -90.0 << 90.0 << true << true << "";
    QTest::newRow("lower included") << "-90" << -90.0 << 90.0 << true << true << "";
    QTest::newRow("upper excluded") << "90" << -90.0 << 90.0 << true << false
                                    << "Syntax error: Expected a value in [-90; 90] but got 90\n";
    QTest::newRow("lower excluded") << "-90" << -90.0 << 90.0 << false << true
                                    << "Syntax error: Expected a value in [-90; 90] but got -90\n";
    QTest::newRow("fraction") << "48.8566" << -90.0 << 90.0 << true << true << "";
    QTest::newRow("exponent") << "1e2" << 0.0 << 200.0 << true << true << "";
    QTest::newRow("above") << "200.5" << 0.0 << 200.0 << true << true
                           << "Syntax error: Expected a value in [0; 200] but got 200.5\n";
    QTest::newRow("not a number") << "north" << -180.0 << 180.0 << true << true
                                  << "Syntax error: Expected a value in [-180; 180] but got north\n";
    QTest::newRow("six significant digits") << "0.1" << 0.1234567 << 1234567.0 << true << true
                                            << "Syntax error: Expected a value in [0.123457; 1.23457e+06] but "
                                               "got 0.1\n";
    QTest::newRow("percent in the text") << "%1" << 0.0 << 1.0 << true << true
                                         << "Syntax error: Expected a value in [0; 1] but got %1\n";
}

void TestDispatch::checkLimits()
{
    QFETCH(QString, param);
    QFETCH(double, lower);
    QFETCH(double, upper);
    QFETCH(bool, lowerIncluded);
    QFETCH(bool, upperIncluded);
    QFETCH(QString, output);

    auto prompt = makePrompt(Prompt::LocalHost);
    QCOMPARE(prompt->checkLimits(param, lower, upper, lowerIncluded, upperIncluded), output.isEmpty() ? 0 : -1);
    QCOMPARE(takeOutput(), output);
}

void TestDispatch::checkLimitsFollowsLocale_data()
{
    QTest::addColumn<QString>("param");
    QTest::addColumn<QString>("output");

    QTest::newRow("decimal comma") << "48,8566" << "";
    QTest::newRow("decimal point refused")
        << "48.8566" << "Syntax error: Expected a value in [-10000; 10000] but got 48.8566\n";
    // Bounds keep the plain form of the help texts, without group separators.
    QTest::newRow("bounds unlocalised")
        << "20000" << "Syntax error: Expected a value in [-10000; 10000] but got 20000\n";
}

void TestDispatch::checkLimitsFollowsLocale()
{
    QFETCH(QString, param);
    QFETCH(QString, output);

    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    auto prompt = makePrompt(Prompt::LocalHost);
    QCOMPARE(prompt->checkLimits(param, -10000, 10000), output.isEmpty() ? 0 : -1);
    QCOMPARE(takeOutput(), output);
}

void TestDispatch::checkDevice()
{
    {
        auto local = makePrompt(Prompt::LocalHost);
        QCOMPARE(local->checkDevice(), -1);
        QCOMPARE(takeOutput(), QString("No virtual device selected.\n"));
    }
    {
        auto anyAddress = makePrompt(Prompt::RemoteHost, "0.0.0.0");
        QCOMPARE(anyAddress->checkDevice(), -1);
        QCOMPARE(takeOutput(), QString("The remote device could not be reached because of its wrong IP address. "
                                       "Please check your network configuration.\n"));
    }
    {
        // The remote device points its client at the address from a worker thread.
        auto remote = makePrompt(Prompt::RemoteHost);
        QDeadlineTimer deadline(10000);
        while (remote->checkDevice() != 0 && !deadline.hasExpired())
            QThread::msleep(10);
        takeOutput();
        QCOMPARE(remote->checkDevice(), 0);
        QCOMPARE(takeOutput(), QString());
    }
}

void TestDispatch::compareVersions_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("result");

    QTest::newRow("equal") << "2.8.1" << "2.8.1" << 0;
    QTest::newRow("newer patch") << "2.0.4" << "2.0.3" << 1;
    QTest::newRow("older patch") << "2.0.3" << "2.0.4" << -1;
    QTest::newRow("numeric, not textual") << "2.10" << "2.9" << 1;
    QTest::newRow("more components newer") << "2.0.0" << "2.0" << 1;
    QTest::newRow("fewer components older") << "2" << "2.0.1" << -1;
    QTest::newRow("first difference decides") << "3.0" << "2.9.9" << 1;
    QTest::newRow("suffix ignored") << "2.0.3-rc1" << "2.0.3" << 0;
    QTest::newRow("suffix with newer number") << "2.0.4-beta" << "2.0.3" << 1;
    QTest::newRow("blanks trimmed") << " 1.0.0 " << "2.8.1" << -1;
    QTest::newRow("not a version") << "abc" << "1.0" << 0;
    QTest::newRow("empty") << "" << "1.0" << 0;
    QTest::newRow("double dot") << "1..0" << "0.1" << 0;
    QTest::newRow("second not a version") << "2.0" << "v1" << 0;
}

void TestDispatch::compareVersions()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, result);
    QCOMPARE(Prompt::compareVersions(a, b), result);
}

QTEST_GUILESS_MAIN(TestDispatch)
#include "tst_dispatch.moc"
