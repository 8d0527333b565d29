// Rotation, capabilities and version queries end to end.
#include <QtTest>

#include "commandrun.h"

using namespace CommandRun;

namespace {
const QString TableAddress = "127.0.0.90";
const QString AngleRefused = "Angle of rotation must be a number between 0 and 359";

QString accelerometer(const QString &vector)
{
    return setString("Accelerometer", vector);
}
} // namespace

class TestRotation : public QObject
{
    Q_OBJECT

private slots:
    void command_data();
    void command();
    void deviceCheckedBeforeRange();

private:
    ShellRunner m_runner;
};

void TestRotation::command_data()
{
    COMMAND_ROW_COLUMNS();
    const QStringList none;

    QTest::newRow("angle 0") << "rotation setangle 0" << none << QStringList{"Device angle of rotation set to: 0"}
                             << Succeeded << QStringList{accelerometer("0|9.81|3.35522")};
    QTest::newRow("angle 90") << "rotation setangle 90" << none
                              << QStringList{"Device angle of rotation set to: 90"} << Succeeded
                              << QStringList{accelerometer("-9.81|6.00689e-16|3.35522")};
    QTest::newRow("angle 180") << "rotation setangle 180" << none
                               << QStringList{"Device angle of rotation set to: 180"} << Succeeded
                               << QStringList{accelerometer("-1.20138e-15|-9.81|3.35522")};
    QTest::newRow("angle 30") << "rotation setangle 30" << none
                              << QStringList{"Device angle of rotation set to: 30"} << Succeeded
                              << QStringList{accelerometer("-4.905|8.49571|3.35522")};
    QTest::newRow("angle 359") << "rotation setangle 359" << none
                               << QStringList{"Device angle of rotation set to: 359"} << Succeeded
                               << QStringList{accelerometer("0.171208|9.80851|3.35522")};
    QTest::newRow("angle printed as number") << "rotation setangle 045" << none
                                             << QStringList{"Device angle of rotation set to: 45"} << Succeeded
                                             << QStringList{accelerometer("-6.93672|6.93672|3.35522")};
    QTest::newRow("angle 360") << "rotation setangle 360" << none << QStringList{AngleRefused} << Failed << none;
    QTest::newRow("angle -90") << "rotation setangle -90" << none << QStringList{AngleRefused} << Failed << none;
    QTest::newRow("angle not integer")
        << "rotation setangle 45.5" << none << QStringList{"Syntax error: Parameter 1 should be of type Integer"}
        << Failed << none;
    QTest::newRow("angle two words")
        << "rotation setangle 90 180" << none
        << QStringList{"Syntax error: Command expects 1 parameters while 2 were given."} << Failed << none;
    QTest::newRow("angle information")
        << "rotation setangle 30" << QStringList{"--info", "sensor busy"}
        << QStringList{"sensor busy", "Device angle of rotation set to: 30"} << Succeeded
        << QStringList{accelerometer("-4.905|8.49571|3.35522")};
    QTest::newRow("angle error") << "rotation setangle 30" << QStringList{"--error", "GenericError"}
                                 << QStringList{"Unknown error. Result code: 2"} << Failed
                                 << QStringList{accelerometer("-4.905|8.49571|3.35522")};
    QTest::newRow("angle unreachable") << "rotation setangle 30" << unreachable()
                                       << QStringList{"Device unreachable."} << Failed << none;

    QTest::newRow("capabilities") << "korvex capabilities" << none
                                  << QStringList{"Capabilities: battery gps rotation phone network identity"}
                                  << Succeeded << QStringList{getParam("Capabilities")};
    QTest::newRow("capabilities empty") << "korvex capabilities" << QStringList{"--set", "Capabilities="}
                                        << QStringList{"Capabilities: "} << Succeeded
                                        << QStringList{getParam("Capabilities")};
    QTest::newRow("capabilities information refused")
        << "korvex capabilities" << QStringList{"--info", "note"} << QStringList{"Unknown error. Result code: 7"}
        << Failed << QStringList{getParam("Capabilities")};
    QTest::newRow("capabilities extra word")
        << "korvex capabilities all" << none
        << QStringList{"Syntax error: Command expects 0 parameters while 1 were given."} << Failed << none;

    QTest::newRow("android version") << "android version" << QStringList{"--set", "AndroidVersion=8.0"}
                                     << QStringList{"Version: 8.0"} << Succeeded
                                     << QStringList{getParam("AndroidVersion")};
    QTest::newRow("android version unreachable") << "android version" << unreachable()
                                                 << QStringList{"Device unreachable."} << Failed << none;
    QTest::newRow("korvex version") << "korvex version" << QStringList{"--agent-version", "3.0.1"}
                                    << QStringList{"Korvex: 3.0.1"} << Succeeded
                                    << QStringList{getParam("KorvexVersion")};
    QTest::newRow("korvex version error")
        << "korvex version" << QStringList{"--fault-all", "--error", "NotImplemented"}
        << QStringList{"Unknown error. Result code: 8"} << Failed << QStringList{getParam("KorvexVersion")};
}

void TestRotation::command()
{
    VERIFY_COMMAND_ROW(m_runner, TableAddress);
}

void TestRotation::deviceCheckedBeforeRange()
{
    const Outcome outcome = runLocal(m_runner, "rotation setangle 360");
    QVERIFY(outcome.finished);
    QCOMPARE(outcome.lines, QStringList{"No virtual device selected."});
    QCOMPARE(outcome.exitCode, Failed);
}

QTEST_GUILESS_MAIN(TestRotation)
#include "tst_rotation.moc"
