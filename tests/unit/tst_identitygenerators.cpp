// Identity generators: the IMEI check digit and the shape of random values.
#include <cstdlib>

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
    void randomImei();
    void randomAndroidId();
    void generatorsFollowTheSeed();
};

void TestIdentityGenerators::luhnDigit_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("digit");
    QTest::newRow("reference") << "49015420323751" << 8;
    QTest::newRow("only the first 14 count") << "490154203237519999" << 8;
    QTest::newRow("zeros") << "00000000000000" << 0;
    // Doubled 9 gives 18, which adds 1 + 8.
    QTest::newRow("doubled digits carry") << "09090909090909" << 7;
    QTest::newRow("non-digits count as 0") << "4901542032375x" << 0;
    QTest::newRow("another") << "35145120840121" << 6;
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

void TestIdentityGenerators::randomImei()
{
    QTest::ignoreMessage(QtDebugMsg, QRegularExpression("^Computing Luhn algorithm on IMEI "));
    const QString imei = Prompt::generateRandomImei();
    QVERIFY2(QRegularExpression("^\\d{15}$").match(imei).hasMatch(), qPrintable(imei));
    QTest::ignoreMessage(QtDebugMsg, QRegularExpression("^Computing Luhn algorithm on IMEI "));
    QCOMPARE(QString::number(Prompt::imeiLuhnDigit(imei.left(14))), imei.right(1));
}

void TestIdentityGenerators::randomAndroidId()
{
    const QString id = Prompt::generateRandomAndroidId();
    QVERIFY2(QRegularExpression("^[0-9a-f]{16}$").match(id).hasMatch(), qPrintable(id));
    QVERIFY(Prompt::generateRandomAndroidId() != id);
}

void TestIdentityGenerators::generatorsFollowTheSeed()
{
    srand(7);
    const QString first = Prompt::generateRandomAndroidId();
    srand(7);
    QCOMPARE(Prompt::generateRandomAndroidId(), first);
}

QTEST_GUILESS_MAIN(TestIdentityGenerators)
#include "tst_identitygenerators.moc"
