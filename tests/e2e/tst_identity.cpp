// Device ID and Android ID commands end to end, including the generated
// values, which repeat from one start of the shell to the next.
#include <QRegularExpression>
#include <QtTest>

#include "commandrun.h"
#include "prompt.h"

using namespace CommandRun;

namespace {
const QString TableAddress = "127.0.0.100";
const QString RandomAddress = "127.0.0.101";
const QString LogAddress = "127.0.0.102";
const QString PersistenceWarning =
    "Warning: sending this command to a remote device (option -r) does not allow persistance.";
const QString RebootWarning = "You will need to send them again after reboot";
const QString BadAndroidId = "Bad syntax: Android ID must be 16 hexadecimal digits long";
} // namespace

class TestIdentity : public QObject
{
    Q_OBJECT

private slots:
    void command_data();
    void command();
    void checkOrderWithoutDevice_data();
    void checkOrderWithoutDevice();
    void randomValuesRepeatAcrossRuns();
    void debugLog();

private:
    ShellRunner m_runner;
};

void TestIdentity::command_data()
{
    COMMAND_ROW_COLUMNS();
    const QStringList none;

    QTest::newRow("getdeviceid none") << "android getdeviceid" << none << QStringList{"Device ID: "} << Succeeded
                                      << QStringList{getParam("DeviceId")};
    QTest::newRow("getdeviceid") << "android getdeviceid" << QStringList{"--set", "DeviceId=35145120840121"}
                                 << QStringList{"Device ID: 35145120840121"} << Succeeded
                                 << QStringList{getParam("DeviceId")};
    QTest::newRow("getdeviceid information refused")
        << "android getdeviceid" << QStringList{"--info", "note"} << QStringList{"Unknown error. Result code: 7"}
        << Failed << QStringList{getParam("DeviceId")};
    QTest::newRow("getdeviceid unreachable") << "android getdeviceid" << unreachable()
                                             << QStringList{"Device unreachable."} << Failed << none;

    QTest::newRow("setdeviceid remote warns")
        << "android setdeviceid ABC-123" << none
        << QStringList{"Device ID set to: ABC-123", PersistenceWarning, RebootWarning} << Succeeded
        << QStringList{setString("DeviceId", "ABC-123")};
    QTest::newRow("setdeviceid none clears")
        << "android setdeviceid none" << none << QStringList{"Device ID set to: ", PersistenceWarning, RebootWarning}
        << Succeeded << QStringList{setString("DeviceId", "[none]")};
    QTest::newRow("setdeviceid NONE is an id")
        << "android setdeviceid NONE" << none
        << QStringList{"Device ID set to: NONE", PersistenceWarning, RebootWarning} << Succeeded
        << QStringList{setString("DeviceId", "NONE")};
    QTest::newRow("setdeviceid no length limit")
        << "android setdeviceid " + QString(40, 'x') << none
        << QStringList{"Device ID set to: " + QString(40, 'x'), PersistenceWarning, RebootWarning} << Succeeded
        << QStringList{setString("DeviceId", QString(40, 'x'))};
    QTest::newRow("setdeviceid information")
        << "android setdeviceid 42" << QStringList{"--info", "stored"}
        << QStringList{"stored", "Device ID set to: 42", PersistenceWarning, RebootWarning} << Succeeded
        << QStringList{setString("DeviceId", "42")};
    QTest::newRow("setdeviceid error") << "android setdeviceid 42" << QStringList{"--error", "GenericError"}
                                       << QStringList{"Unknown error. Result code: 2"} << Failed
                                       << QStringList{setString("DeviceId", "42")};
    QTest::newRow("setdeviceid two words")
        << "android setdeviceid 4 2" << none
        << QStringList{"Syntax error: Command expects 1 parameters while 2 were given."} << Failed << none;
    QTest::newRow("setdeviceid unreachable") << "android setdeviceid 42" << unreachable()
                                             << QStringList{"Device unreachable."} << Failed << none;

    QTest::newRow("getandroidid") << "android getandroidid" << none << QStringList{"Android ID: 0000000000000000"}
                                  << Succeeded << QStringList{getParam("AndroidId")};
    QTest::newRow("getandroidid error") << "android getandroidid" << QStringList{"--error", "InvalidRequest"}
                                        << QStringList{"Unknown error. Result code: 5"} << Failed
                                        << QStringList{getParam("AndroidId")};

    QTest::newRow("setandroidid lowered") << "android setandroidid 0123456789ABCDEF" << none
                                          << QStringList{"Android ID set to: 0123456789abcdef"} << Succeeded
                                          << QStringList{setString("AndroidId", "0123456789abcdef")};
    QTest::newRow("setandroidid 15 digits") << "android setandroidid 0123456789abcde" << none
                                            << QStringList{BadAndroidId} << Failed << none;
    QTest::newRow("setandroidid 17 characters") << "android setandroidid 0123456789abcdefg" << none
                                                << QStringList{BadAndroidId} << Failed << none;
    QTest::newRow("setandroidid not hexadecimal") << "android setandroidid 0123456789abcdeg" << none
                                                  << QStringList{BadAndroidId} << Failed << none;
    QTest::newRow("setandroidid information")
        << "android setandroidid ffffffffffffffff" << QStringList{"--info", "noted"}
        << QStringList{"noted", "Android ID set to: ffffffffffffffff"} << Succeeded
        << QStringList{setString("AndroidId", "ffffffffffffffff")};
    QTest::newRow("setandroidid error")
        << "android setandroidid ffffffffffffffff" << QStringList{"--error", "NotImplemented"}
        << QStringList{"Unknown error. Result code: 8"} << Failed
        << QStringList{setString("AndroidId", "ffffffffffffffff")};
}

void TestIdentity::command()
{
    VERIFY_COMMAND_ROW(m_runner, TableAddress);
}

void TestIdentity::checkOrderWithoutDevice_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("expected");
    QTest::newRow("setandroidid device first") << "android setandroidid" << "No virtual device selected.";
    QTest::newRow("setdeviceid count first")
        << "android setdeviceid" << "Syntax error: Command expects 1 parameters while 0 were given.";
}

void TestIdentity::checkOrderWithoutDevice()
{
    QFETCH(QString, command);
    QFETCH(QString, expected);
    const Outcome outcome = runLocal(m_runner, command);
    QVERIFY(outcome.finished);
    QCOMPARE(outcome.lines, QStringList{expected});
    QCOMPARE(outcome.exitCode, Failed);
}

// The generator is never seeded: two runs of the same script give the same
// identifiers, and each identifier within a run is fresh.
void TestIdentity::randomValuesRepeatAcrossRuns()
{
    const QString file = m_runner.writeCommandFile("random.txt", "android setdeviceid random\n"
                                                                 "android setandroidid RANDOM\n"
                                                                 "android setdeviceid random\n");
    const Outcome first = run(m_runner, RandomAddress, {}, {"-f", file});
    const Outcome second = run(m_runner, RandomAddress, {}, {"-f", file});
    QVERIFY(first.finished && second.finished);
    QCOMPARE(first.exitCode, Succeeded);
    QCOMPARE(second.lines, first.lines);
    QCOMPARE(second.requests, first.requests);

    static const QRegularExpression imeiLine("^Device ID set to: (\\d{15})$");
    static const QRegularExpression androidIdLine("^Android ID set to: ([0-9a-f]{16})$");
    QCOMPARE(first.lines.size(), 7);
    const auto imei1 = imeiLine.match(first.lines[0]);
    const auto androidId = androidIdLine.match(first.lines[3]);
    const auto imei2 = imeiLine.match(first.lines[4]);
    QVERIFY2(imei1.hasMatch() && androidId.hasMatch() && imei2.hasMatch(), qPrintable(first.lines.join('\n')));
    QVERIFY(imei1.captured(1) != imei2.captured(1));
    for (const QString &imei : {imei1.captured(1), imei2.captured(1)})
        QCOMPARE(QString::number(Prompt::imeiLuhnDigit(imei)), imei.right(1));
    QCOMPARE(first.requests, (QStringList{setString("DeviceId", imei1.captured(1)),
                                          setString("AndroidId", androidId.captured(1)),
                                          setString("DeviceId", imei2.captured(1))}));
}

void TestIdentity::debugLog()
{
    ShellRunner runner;
    const Outcome outcome =
        run(runner, LogAddress, {}, {"-c", "android setandroidid 0123456789ABCDEF"});
    QVERIFY(outcome.finished);
    QVERIFY2(runner.log().contains("Android ID set to: \"0123456789abcdef\""), qPrintable(runner.log()));

    const Outcome deviceId = run(runner, LogAddress, {}, {"-c", "android setdeviceid \"a b\""});
    QVERIFY(deviceId.finished);
    QVERIFY2(runner.log().contains("Device ID set to: \"a b\""), qPrintable(runner.log()));
}

QTEST_GUILESS_MAIN(TestIdentity)
#include "tst_identity.moc"
