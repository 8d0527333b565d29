// Identity generators: the IMEI check digit, its log line, random Android IDs.
#include <QRegularExpression>
#include <QtTest>

#include "prompt.h"

class TestIdentityGenerators : public QObject
{
    Q_OBJECT

private slots:
    void luhnDigit_data();
    void luhnDigit();
    void luhnDigitIsLogged();
    void randomAndroidId();
};

void TestIdentityGenerators::luhnDigit_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("digit");
    QTest::newRow("reference") << "49015420323751" << 8;
    QTest::newRow("only the first 14 count") << "490154203237519999" << 8;
    // Doubled 9 gives 18, which adds 1 + 8.
    QTest::newRow("doubled digits carry") << "09090909090909" << 7;
    QTest::newRow("non-digits count as 0") << "4901542032375x" << 0;
}

void TestIdentityGenerators::luhnDigit()
{
    QFETCH(QString, text);
    QFETCH(int, digit);
    QTest::ignoreMessage(QtDebugMsg, QRegularExpression("^Computing Luhn algorithm on IMEI "));
    QCOMPARE(Prompt::imeiLuhnDigit(text), digit);
}

void TestIdentityGenerators::luhnDigitIsLogged()
{
    QTest::ignoreMessage(QtDebugMsg, "Computing Luhn algorithm on IMEI \"49015420323751\": last digit = 8");
    Prompt::imeiLuhnDigit("49015420323751");
}

void TestIdentityGenerators::randomAndroidId()
{
    const QString id = Prompt::generateRandomAndroidId();
    QVERIFY2(QRegularExpression("^[0-9a-f]{16}$").match(id).hasMatch(), qPrintable(id));
    QVERIFY(Prompt::generateRandomAndroidId() != id);
}

QTEST_GUILESS_MAIN(TestIdentityGenerators)
#include "tst_identitygenerators.moc"
