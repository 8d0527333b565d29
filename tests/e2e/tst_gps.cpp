// GPS commands end to end: status words, coordinate bounds, number formats
// under the process locale, and each reply outcome.
#include <QtTest>

#include "commandrun.h"

using namespace CommandRun;

namespace {
const QString TableAddress = "127.0.0.80";
const QString LocaleAddress = "127.0.0.81";
const QString ScriptAddress = "127.0.0.82";

QString rangeRefused(const QString &bounds, const QString &word)
{
    return QString("Syntax error: Expected a value in [%1] but got %2").arg(bounds, word);
}
} // namespace

class TestGps : public QObject
{
    Q_OBJECT

private slots:
    void command_data();
    void command();
    void rangeCheckedBeforeDevice_data();
    void rangeCheckedBeforeDevice();
    void commaLocale_data();
    void commaLocale();
    void stateRoundTrip();

private:
    ShellRunner m_runner;
};

void TestGps::command_data()
{
    COMMAND_ROW_COLUMNS();
    const QStringList none;

    QTest::newRow("getstatus") << "gps getstatus" << none << QStringList{"GPS status: enabled"} << Succeeded
                               << QStringList{getParam("GpsStatus")};
    QTest::newRow("getstatus disabled") << "gps getstatus" << QStringList{"--set", "GpsStatus=false"}
                                        << QStringList{"GPS status: disabled"} << Succeeded
                                        << QStringList{getParam("GpsStatus")};
    QTest::newRow("setstatus folds case") << "gps setstatus ENABLED" << none
                                          << QStringList{"GPS status set to: enabled"} << Succeeded
                                          << QStringList{setBool("GpsStatus", true)};
    QTest::newRow("setstatus extra words") << "gps setstatus disabled now" << none
                                           << QStringList{"GPS status set to: disabled"} << Succeeded
                                           << QStringList{setBool("GpsStatus", false)};
    QTest::newRow("setstatus containing enabled disables")
        << "gps setstatus enabledx" << none << QStringList{"GPS status set to: enabledx"} << Succeeded
        << QStringList{setBool("GpsStatus", false)};
    QTest::newRow("setstatus unknown") << "gps setstatus on" << none
                                       << QStringList{"Available status: \"enabled\" or \"disabled\""} << Failed
                                       << none;
    QTest::newRow("setstatus unreachable") << "gps setstatus enabled" << unreachable()
                                           << QStringList{"Device unreachable."} << Failed << none;

    QTest::newRow("getlatitude six digits")
        << "gps getlatitude" << QStringList{"--set", "GpsLatitude=48.856614"}
        << QStringList{"GPS Latitude: 48.8566"} << Succeeded << QStringList{getParam("GpsLatitude")};
    QTest::newRow("getlongitude") << "gps getlongitude" << none << QStringList{"GPS Longitude: 2.2945"}
                                  << Succeeded << QStringList{getParam("GpsLongitude")};
    QTest::newRow("getaltitude") << "gps getaltitude" << none << QStringList{"GPS Altitude: 35"} << Succeeded
                                 << QStringList{getParam("GpsAltitude")};
    QTest::newRow("getaccuracy") << "gps getaccuracy" << none << QStringList{"GPS Accuracy: 10"} << Succeeded
                                 << QStringList{getParam("GpsAccuracy")};
    QTest::newRow("getbearing exponent") << "gps getbearing" << QStringList{"--set", "GpsBearing=0.0000001"}
                                         << QStringList{"GPS Bearing: 1e-07"} << Succeeded
                                         << QStringList{getParam("GpsBearing")};
    QTest::newRow("getlatitude information refused")
        << "gps getlatitude" << QStringList{"--info", "note"} << QStringList{"Unknown error. Result code: 7"}
        << Failed << QStringList{getParam("GpsLatitude")};
    QTest::newRow("getbearing not implemented")
        << "gps getbearing" << QStringList{"--error", "NotImplemented"}
        << QStringList{"Unknown error. Result code: 8"} << Failed << QStringList{getParam("GpsBearing")};
    QTest::newRow("getaccuracy unreachable") << "gps getaccuracy" << unreachable()
                                             << QStringList{"Device unreachable."} << Failed << none;
    QTest::newRow("getlatitude extra word")
        << "gps getlatitude 3" << none
        << QStringList{"Syntax error: Command expects 0 parameters while 1 were given."} << Failed << none;

    QTest::newRow("setlatitude lower bound") << "gps setlatitude -90" << none
                                             << QStringList{"GPS Latitude set to: -90"} << Succeeded
                                             << QStringList{setDouble("GpsLatitude", "-90", "-90")};
    QTest::newRow("setlatitude upper bound") << "gps setlatitude 90" << none
                                             << QStringList{rangeRefused("-90; 90", "90")} << Failed << none;
    QTest::newRow("setlongitude upper bound") << "gps setlongitude 180" << none
                                              << QStringList{rangeRefused("-180; 180", "180")} << Failed << none;
    QTest::newRow("setlongitude lower bound") << "gps setlongitude -180" << none
                                              << QStringList{"GPS Longitude set to: -180"} << Succeeded
                                              << QStringList{setDouble("GpsLongitude", "-180", "-180")};
    // Qt's default locale groups thousands even when the system locale is C.
    QTest::newRow("setaltitude upper bound") << "gps setaltitude 10000" << none
                                             << QStringList{"GPS Altitude set to: 10,000"} << Succeeded
                                             << QStringList{setDouble("GpsAltitude", "10000", "10000")};
    QTest::newRow("setaltitude below") << "gps setaltitude -10000.5" << none
                                       << QStringList{rangeRefused("-10000; 10000", "-10000.5")} << Failed << none;
    QTest::newRow("setaccuracy upper bound") << "gps setaccuracy 200" << none
                                             << QStringList{"GPS Accuracy set to: 200"} << Succeeded
                                             << QStringList{setDouble("GpsAccuracy", "200", "200")};
    QTest::newRow("setaccuracy negative") << "gps setaccuracy -1" << none
                                          << QStringList{rangeRefused("0; 200", "-1")} << Failed << none;
    QTest::newRow("setbearing below 360") << "gps setbearing 359.9" << none
                                          << QStringList{"GPS Bearing set to: 359.9"} << Succeeded
                                          << QStringList{setDouble("GpsBearing", "359.9", "359.9")};
    QTest::newRow("setbearing 360") << "gps setbearing 360" << none << QStringList{rangeRefused("0; 360", "360")}
                                    << Failed << none;
    QTest::newRow("setlatitude extra word") << "gps setlatitude 48.8 extra" << none
                                            << QStringList{"GPS Latitude set to: 48.8"} << Succeeded
                                            << QStringList{setDouble("GpsLatitude", "48.8", "48.8")};
    QTest::newRow("setaltitude printed with six digits")
        << "gps setaltitude 1234.5678" << none << QStringList{"GPS Altitude set to: 1,234.57"} << Succeeded
        << QStringList{setDouble("GpsAltitude", "1234.56775", "1234.5678")};
    QTest::newRow("setlatitude not a number") << "gps setlatitude abc" << none
                                              << QStringList{rangeRefused("-90; 90", "abc")} << Failed << none;
    QTest::newRow("setlatitude no word")
        << "gps setlatitude" << none
        << QStringList{"Syntax error: Command expects 1 parameters while 0 were given."} << Failed << none;
    QTest::newRow("setlatitude information")
        << "gps setlatitude 10" << QStringList{"--info", "fix simulated"}
        << QStringList{"fix simulated", "GPS Latitude set to: 10"} << Succeeded
        << QStringList{setDouble("GpsLatitude", "10", "10")};
    QTest::newRow("setbearing invalid request")
        << "gps setbearing 10" << QStringList{"--error", "InvalidRequest"}
        << QStringList{"Unknown error. Result code: 5"} << Failed << QStringList{setDouble("GpsBearing", "10", "10")};
    QTest::newRow("setlongitude unreachable") << "gps setlongitude 2" << unreachable()
                                              << QStringList{"Device unreachable."} << Failed << none;
}

void TestGps::command()
{
    VERIFY_COMMAND_ROW(m_runner, TableAddress);
}

void TestGps::rangeCheckedBeforeDevice_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("expected");
    QTest::newRow("out of range") << "gps setlatitude 90" << rangeRefused("-90; 90", "90");
    QTest::newRow("in range") << "gps setlatitude 45" << "No virtual device selected.";
}

// The bounds are tested before the device, so without one a bad value still
// gets the range message.
void TestGps::rangeCheckedBeforeDevice()
{
    QFETCH(QString, command);
    QFETCH(QString, expected);
    const Outcome outcome = runLocal(m_runner, command);
    QVERIFY(outcome.finished);
    QCOMPARE(outcome.lines, QStringList{expected});
    QCOMPARE(outcome.exitCode, Failed);
}

void TestGps::commaLocale_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("expectedLines");
    QTest::addColumn<QStringList>("expectedRequests");
    QTest::newRow("set with comma") << "gps setlatitude 48,8" << QStringList{"GPS Latitude set to: 48,8"}
                                    << QStringList{setDouble("GpsLatitude", "48.8", "48.8")};
    QTest::newRow("get with comma") << "gps getlongitude" << QStringList{"GPS Longitude: 2,2945"}
                                    << QStringList{getParam("GpsLongitude")};
}

// The process locale decides the decimal mark both ways; Qt takes it from
// the environment even where the C library lacks that locale.
void TestGps::commaLocale()
{
    QFETCH(QString, command);
    QFETCH(QStringList, expectedLines);
    QFETCH(QStringList, expectedRequests);
    ShellRunner runner;
    runner.environment().insert("LANG", "fr_FR.UTF-8");
    runner.environment().insert("LC_ALL", "fr_FR.UTF-8");
    const Outcome outcome = runCommand(runner, LocaleAddress, {}, command);
    QVERIFY(outcome.finished);
    QCOMPARE(outcome.lines, expectedLines);
    QCOMPARE(outcome.exitCode, Succeeded);
    QCOMPARE(outcome.requests, expectedRequests);
}

void TestGps::stateRoundTrip()
{
    const QString file = m_runner.writeCommandFile("gps.txt", "gps setstatus disabled\n"
                                                              "gps getstatus\n"
                                                              "gps setlatitude 48.856614\n"
                                                              "gps getlatitude\n"
                                                              "gps setbearing 359.5\n"
                                                              "gps getbearing\n");
    const Outcome outcome = run(m_runner, ScriptAddress, {}, {"-f", file});
    QVERIFY(outcome.finished);
    QCOMPARE(outcome.lines,
             (QStringList{"GPS status set to: disabled", "GPS status: disabled", "GPS Latitude set to: 48.8566",
                          "GPS Latitude: 48.8566", "GPS Bearing set to: 359.5", "GPS Bearing: 359.5"}));
    QCOMPARE(outcome.exitCode, Succeeded);
}

QTEST_GUILESS_MAIN(TestGps)
#include "tst_gps.moc"
