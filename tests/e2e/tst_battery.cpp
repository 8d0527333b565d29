// Battery commands end to end: arguments, the requests sent and each reply outcome.
#include <QtTest>

#include "commandrun.h"

using namespace CommandRun;

namespace {
const QString TableAddress = "127.0.0.70";
const QString ScriptAddress = "127.0.0.71";
const QString LevelRefused = "Battery level must be a number between 0 and 100";
} // namespace

class TestBattery : public QObject
{
    Q_OBJECT

private slots:
    void command_data();
    void command();
    void deviceCheckedBeforeRange();
    void stateRoundTrip();

private:
    ShellRunner m_runner;
};

void TestBattery::command_data()
{
    COMMAND_ROW_COLUMNS();
    const QStringList none;
    const QString level = "BatteryLevel";
    const QString status = "BatteryStatus";

    QTest::newRow("getlevel") << "battery getlevel" << none << QStringList{"Battery level: 50%"} << Succeeded
                              << QStringList{getParam(level)};
    QTest::newRow("getlevel extra word")
        << "battery getlevel 5" << none
        << QStringList{"Syntax error: Command expects 0 parameters while 1 were given."} << Failed << none;
    QTest::newRow("getlevel error") << "battery getlevel" << QStringList{"--error", "GenericError"}
                                    << QStringList{"Unknown error. Result code: 2"} << Failed
                                    << QStringList{getParam(level)};
    QTest::newRow("getlevel information refused")
        << "battery getlevel" << QStringList{"--info", "note"} << QStringList{"Unknown error. Result code: 7"}
        << Failed << QStringList{getParam(level)};
    QTest::newRow("getlevel unreachable") << "battery getlevel" << unreachable()
                                          << QStringList{"Device unreachable."} << Failed << none;

    QTest::newRow("setlevel as typed") << "battery setlevel 050" << none
                                       << QStringList{"Battery level set to: 050%"} << Succeeded
                                       << QStringList{setInt(level, 50)};
    QTest::newRow("setlevel 0") << "battery setlevel 0" << none << QStringList{"Battery level set to: 0%"}
                                << Succeeded << QStringList{setInt(level, 0)};
    QTest::newRow("setlevel 100") << "battery setlevel 100" << none
                                  << QStringList{"Battery level set to: 100%"} << Succeeded
                                  << QStringList{setInt(level, 100)};
    QTest::newRow("setlevel 101") << "battery setlevel 101" << none << QStringList{LevelRefused} << Failed
                                  << none;
    QTest::newRow("setlevel -1") << "battery setlevel -1" << none << QStringList{LevelRefused} << Failed << none;
    QTest::newRow("setlevel not integer")
        << "battery setlevel 5x" << none << QStringList{"Syntax error: Parameter 1 should be of type Integer"}
        << Failed << none;
    QTest::newRow("setlevel no word")
        << "battery setlevel" << none
        << QStringList{"Syntax error: Command expects 1 parameters while 0 were given."} << Failed << none;
    QTest::newRow("setlevel information")
        << "battery setlevel 20" << QStringList{"--info", "charger busy"}
        << QStringList{"charger busy", "Battery level set to: 20%"} << Succeeded << QStringList{setInt(level, 20)};
    QTest::newRow("setlevel invalid request")
        << "battery setlevel 20" << QStringList{"--error", "InvalidRequest:bad"}
        << QStringList{"Unknown error. Result code: 5"} << Failed << QStringList{setInt(level, 20)};
    QTest::newRow("setlevel unreachable") << "battery setlevel 20" << unreachable()
                                          << QStringList{"Device unreachable."} << Failed << none;

    QTest::newRow("getstatus blanks removed")
        << "battery getstatus" << QStringList{"--set", "BatteryStatus=Not charging"}
        << QStringList{"Battery status: notcharging"} << Succeeded << QStringList{getParam(status)};
    QTest::newRow("getstatus not implemented")
        << "battery getstatus" << QStringList{"--error", "NotImplemented"}
        << QStringList{"Unknown error. Result code: 8"} << Failed << QStringList{getParam(status)};

    QTest::newRow("setstatus with level")
        << "battery setstatus Discharging 20" << none
        << QStringList{"Battery level set to: 20%", "Battery status set to: discharging"} << Succeeded
        << QStringList{setInt(level, 20), setString(status, "Discharging")};
    QTest::newRow("setstatus notcharging")
        << "battery setstatus notcharging" << none << QStringList{"Battery status set to: notcharging"}
        << Succeeded << QStringList{setString(status, "Not charging")};
    QTest::newRow("setstatus full ignores level")
        << "battery setstatus full 150" << none << QStringList{"Battery status set to: full"} << Succeeded
        << QStringList{setString(status, "Full")};
    QTest::newRow("setstatus bad level stops")
        << "battery setstatus charging 150" << none << QStringList{LevelRefused} << Failed << none;
    QTest::newRow("setstatus level not integer")
        << "battery setstatus charging x" << none
        << QStringList{"Syntax error: Parameter 1 should be of type Integer"} << Failed << none;
    QTest::newRow("setstatus three words ignore level")
        << "battery setstatus charging 20 30" << none << QStringList{"Battery status set to: charging"}
        << Succeeded << QStringList{setString(status, "Charging")};
    QTest::newRow("setstatus containing a state")
        << "battery setstatus overcharging" << none << QStringList{"Battery status set to: overcharging"}
        << Succeeded << QStringList{setString(status, "Overcharging")};
    QTest::newRow("setstatus unknown")
        << "battery setstatus unplugged" << none
        << QStringList{"Available status: \"charging [0-100]\", \"discharging [0-100]\" or \"full\""} << Failed
        << none;
    QTest::newRow("setstatus information")
        << "battery setstatus full" << QStringList{"--info", "kept"}
        << QStringList{"kept", "Battery status set to: full"} << Succeeded << QStringList{setString(status, "Full")};
    QTest::newRow("setstatus level fails at device")
        << "battery setstatus charging 20" << QStringList{"--error", "GenericError"}
        << QStringList{"Unknown error. Result code: 2"} << Failed << QStringList{setInt(level, 20)};

    QTest::newRow("getmode host") << "battery getmode" << none << QStringList{"Battery mode: host"} << Succeeded
                                  << QStringList{getParam("BatteryMode")};
    QTest::newRow("getmode manual") << "battery getmode" << QStringList{"--set", "BatteryMode=true"}
                                    << QStringList{"Battery mode: manual"} << Succeeded
                                    << QStringList{getParam("BatteryMode")};
    QTest::newRow("setmode folds case") << "battery setmode HOST" << none << QStringList{} << Succeeded
                                        << QStringList{setBool("BatteryMode", false)};
    QTest::newRow("setmode manual") << "battery setmode manual" << none << QStringList{} << Succeeded
                                    << QStringList{setBool("BatteryMode", true)};
    QTest::newRow("setmode unknown") << "battery setmode auto" << none
                                     << QStringList{"Available modes: \"manual\" or \"host\""} << Failed << none;
    // The mode is written without looking at the reply.
    QTest::newRow("setmode error reply ignored")
        << "battery setmode manual" << QStringList{"--error", "GenericError"} << QStringList{} << Succeeded
        << QStringList{setBool("BatteryMode", true)};
    QTest::newRow("setmode unreachable") << "battery setmode manual" << unreachable()
                                         << QStringList{"Device unreachable."} << Failed << none;
}

void TestBattery::command()
{
    VERIFY_COMMAND_ROW(m_runner, TableAddress);
}

// Without a selected device the device message wins over the range test.
void TestBattery::deviceCheckedBeforeRange()
{
    const Outcome outcome = runLocal(m_runner, "battery setlevel 101");
    QVERIFY(outcome.finished);
    QCOMPARE(outcome.lines, QStringList{"No virtual device selected."});
    QCOMPARE(outcome.exitCode, Failed);
}

void TestBattery::stateRoundTrip()
{
    const QString file = m_runner.writeCommandFile("battery.txt", "battery setlevel 87\n"
                                                                  "battery getlevel\n"
                                                                  "battery setstatus notcharging\n"
                                                                  "battery getstatus\n"
                                                                  "battery setmode manual\n"
                                                                  "battery getmode\n");
    const Outcome outcome = run(m_runner, ScriptAddress, {}, {"-f", file});
    QVERIFY(outcome.finished);
    QCOMPARE(outcome.lines, (QStringList{"Battery level set to: 87%", "Battery level: 87%",
                                         "Battery status set to: notcharging", "Battery status: notcharging",
                                         "Battery mode: manual"}));
    QCOMPARE(outcome.exitCode, Succeeded);
}

QTEST_GUILESS_MAIN(TestBattery)
#include "tst_battery.moc"
