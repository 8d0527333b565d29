// Phone commands end to end: number and length checks, and the modem lines sent.
#include <QtTest>

#include "commandrun.h"

using namespace CommandRun;

namespace {
const QString TableAddress = "127.0.0.110";
const QString CallRefused =
    "Invalid number: can start with '+', must contains only digits and be at most 16 digits long";
const QString SmsRefused = "Invalid number: can start with '+' and must contains only digits";
const QString TooLong = "Message too long: can be at most 4000 characters long";
constexpr int MaxMessageLength = 4000;

QString sms(const QString &number, const QString &message)
{
    return baseband(QString("sms sendb64 %1 %2").arg(number, QString(message.toUtf8().toBase64())));
}
} // namespace

class TestPhone : public QObject
{
    Q_OBJECT

private slots:
    void command_data();
    void command();
    void checkOrderWithoutDevice_data();
    void checkOrderWithoutDevice();

private:
    ShellRunner m_runner;
};

void TestPhone::command_data()
{
    COMMAND_ROW_COLUMNS();
    const QStringList none;
    const QString longest(MaxMessageLength, QChar(0xe9)); // one UTF-16 unit, two UTF-8 bytes each
    const QString emoji = QString::fromUtf8("\xF0\x9F\x98\x80"); // two UTF-16 units

    QTest::newRow("call international") << "phone call +33612345678" << none << QStringList{} << Succeeded
                                        << QStringList{baseband("gsm call +33612345678")};
    QTest::newRow("call national") << "phone call 0600000000" << none << QStringList{} << Succeeded
                                   << QStringList{baseband("gsm call 0600000000")};
    QTest::newRow("call 16 digits") << "phone call 1234567890123456" << none << QStringList{} << Succeeded
                                    << QStringList{baseband("gsm call 1234567890123456")};
    QTest::newRow("call + and 14 digits") << "phone call +12345678901234" << none << QStringList{} << Succeeded
                                          << QStringList{baseband("gsm call +12345678901234")};
    QTest::newRow("call + and 15 digits") << "phone call +123456789012345" << none << QStringList{CallRefused}
                                          << Failed << none;
    QTest::newRow("call 17 digits") << "phone call 12345678901234567" << none << QStringList{CallRefused}
                                    << Failed << none;
    QTest::newRow("call dash") << "phone call 06-00" << none << QStringList{CallRefused} << Failed << none;
    QTest::newRow("call plus alone") << "phone call +" << none << QStringList{CallRefused} << Failed << none;
    QTest::newRow("call no word")
        << "phone call" << none << QStringList{"Syntax error: Command expects 1 parameters while 0 were given."}
        << Failed << none;
    QTest::newRow("call information refused")
        << "phone call 0600000000" << QStringList{"--info", "ringing"}
        << QStringList{"Unknown error. Result code: 7"} << Failed << QStringList{baseband("gsm call 0600000000")};
    QTest::newRow("call error") << "phone call 0600000000" << QStringList{"--error", "GenericError"}
                                << QStringList{"Unknown error. Result code: 2"} << Failed
                                << QStringList{baseband("gsm call 0600000000")};
    QTest::newRow("call unreachable") << "phone call 0600000000" << unreachable()
                                      << QStringList{"Device unreachable."} << Failed << none;

    QTest::newRow("sms") << "phone sms 0600000000 hello" << none << QStringList{} << Succeeded
                         << QStringList{sms("0600000000", "hello")};
    QTest::newRow("sms utf-8 base64") << QString::fromUtf8("phone sms 555 h\xC3\xA9llo") << none << QStringList{}
                                      << Succeeded << QStringList{baseband("sms sendb64 555 aMOpbGxv")};
    QTest::newRow("sms quoted words") << "phone sms +33612345678 \"hello world\"" << none << QStringList{}
                                      << Succeeded << QStringList{sms("+33612345678", "hello world")};
    QTest::newRow("sms 4000 units") << "phone sms 555 " + longest << none << QStringList{} << Succeeded
                                    << QStringList{sms("555", longest)};
    QTest::newRow("sms 4001 units") << "phone sms 555 " + longest + "a" << none << QStringList{TooLong} << Failed
                                    << none;
    QTest::newRow("sms pairs count twice") << "phone sms 555 " + emoji.repeated(MaxMessageLength / 2 + 1) << none
                                           << QStringList{TooLong} << Failed << none;
    QTest::newRow("sms bad number") << "phone sms 06-00 hello" << none << QStringList{SmsRefused} << Failed
                                    << none;
    QTest::newRow("sms one word")
        << "phone sms 0600000000" << none
        << QStringList{"Syntax error: Command expects 2 parameters while 1 were given."} << Failed << none;
    QTest::newRow("sms unreachable") << "phone sms 0600000000 hello" << unreachable()
                                     << QStringList{"Device unreachable."} << Failed << none;

    QTest::newRow("baseband joined") << "phone baseband gsm accept 0600000000" << none << QStringList{}
                                     << Succeeded << QStringList{baseband("gsm accept 0600000000")};
    QTest::newRow("baseband single blanks") << "phone baseband   gsm    cancel  " << none << QStringList{}
                                            << Succeeded << QStringList{baseband("gsm cancel")};
    QTest::newRow("baseband information refused")
        << "phone baseband gsm list" << QStringList{"--info", "ok"} << QStringList{"Unknown error. Result code: 7"}
        << Failed << QStringList{baseband("gsm list")};
}

void TestPhone::command()
{
    VERIFY_COMMAND_ROW(m_runner, TableAddress);
}

void TestPhone::checkOrderWithoutDevice_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("expected");
    QTest::newRow("baseband device first") << "phone baseband" << "No virtual device selected.";
    QTest::newRow("call count first") << "phone call"
                                      << "Syntax error: Command expects 1 parameters while 0 were given.";
    QTest::newRow("call device before number") << "phone call 06-00" << "No virtual device selected.";
}

void TestPhone::checkOrderWithoutDevice()
{
    QFETCH(QString, command);
    QFETCH(QString, expected);
    const Outcome outcome = runLocal(m_runner, command);
    QVERIFY(outcome.finished);
    QCOMPARE(outcome.lines, QStringList{expected});
    QCOMPARE(outcome.exitCode, Failed);
}

QTEST_GUILESS_MAIN(TestPhone)
#include "tst_phone.moc"
