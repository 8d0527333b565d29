// Network profile commands end to end: names, numbers and reply outcomes.
#include <QtTest>

#include "commandrun.h"

using namespace CommandRun;

namespace {
const QString TableAddress = "127.0.0.120";
const QString InvalidProfile = "Invalid profile, available profiles are \"none\", \"no-data\", \"gprs\", \"edge\", "
                               "\"3g\", \"4g\", \"4g-bad-dns\", and \"4g-high-losses\"";
} // namespace

class TestNetwork : public QObject
{
    Q_OBJECT

private slots:
    void command_data();
    void command();

private:
    ShellRunner m_runner;
};

void TestNetwork::command_data()
{
    COMMAND_ROW_COLUMNS();
    const QStringList none;
    const QString mode = "NetworkMode";

    QTest::newRow("get default") << "network getprofile" << none << QStringList{"Network Profile: 4g"}
                                 << Succeeded << QStringList{getParam(mode)};
    QTest::newRow("get first") << "network getprofile" << QStringList{"--set", "NetworkMode=0"}
                               << QStringList{"Network Profile: none"} << Succeeded << QStringList{getParam(mode)};
    QTest::newRow("get last") << "network getprofile" << QStringList{"--set", "NetworkMode=8"}
                              << QStringList{"Network Profile: wifi"} << Succeeded << QStringList{getParam(mode)};
    QTest::newRow("get above table") << "network getprofile" << QStringList{"--set", "NetworkMode=9"}
                                     << QStringList{"Network Profile: unknown"} << Succeeded
                                     << QStringList{getParam(mode)};
    QTest::newRow("get negative") << "network getprofile" << QStringList{"--set", "NetworkMode=-1"}
                                  << QStringList{"Network Profile: unknown"} << Succeeded
                                  << QStringList{getParam(mode)};
    QTest::newRow("get information refused")
        << "network getprofile" << QStringList{"--info", "note"} << QStringList{"Unknown error. Result code: 7"}
        << Failed << QStringList{getParam(mode)};
    QTest::newRow("get unreachable") << "network getprofile" << unreachable()
                                     << QStringList{"Device unreachable."} << Failed << none;

    QTest::newRow("set wifi folds case") << "network setprofile WiFi" << none
                                         << QStringList{"Network profile set to: wifi"} << Succeeded
                                         << QStringList{setInt(mode, 8)};
    QTest::newRow("set none") << "network setprofile none" << none << QStringList{"Network profile set to: none"}
                              << Succeeded << QStringList{setInt(mode, 0)};
    QTest::newRow("set high losses") << "network setprofile 4g-high-losses" << none
                                     << QStringList{"Network profile set to: 4g-high-losses"} << Succeeded
                                     << QStringList{setInt(mode, 7)};
    QTest::newRow("set 3g") << "network setprofile 3G" << none << QStringList{"Network profile set to: 3g"}
                            << Succeeded << QStringList{setInt(mode, 4)};
    QTest::newRow("set unknown") << "network setprofile 5g" << none << QStringList{InvalidProfile} << Failed
                                 << none;
    QTest::newRow("set two words")
        << "network setprofile 3g extra" << none
        << QStringList{"Syntax error: Command expects 1 parameters while 2 were given."} << Failed << none;
    QTest::newRow("set information refused")
        << "network setprofile edge" << QStringList{"--info", "note"}
        << QStringList{"Unknown error. Result code: 7"} << Failed << QStringList{setInt(mode, 3)};
    QTest::newRow("set error") << "network setprofile edge" << QStringList{"--error", "InvalidRequest"}
                               << QStringList{"Unknown error. Result code: 5"} << Failed
                               << QStringList{setInt(mode, 3)};
    QTest::newRow("set unreachable") << "network setprofile edge" << unreachable()
                                     << QStringList{"Device unreachable."} << Failed << none;
}

void TestNetwork::command()
{
    VERIFY_COMMAND_ROW(m_runner, TableAddress);
}

QTEST_GUILESS_MAIN(TestNetwork)
#include "tst_network.moc"
