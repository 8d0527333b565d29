// Local devices end to end: the real shell and plug-in driving the fake
// VBoxManage (tests/fakes/VBoxManage), whose state each test writes and whose
// invocation log it reads back.
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

#include "devsim.h"
#include "selectionbanners.h"
#include "shellrunner.h"

namespace {

// The machine selected at start-up answers here, so no version advice is printed.
const QString AgentAddress = QStringLiteral("127.0.0.41");
const QString SilentAddress = QStringLiteral("127.0.0.45");
constexpr int Succeeded = 0;
constexpr int Failed = 255;

const QString Header = QStringLiteral(
    "Available devices:\n"
    "\n"
    " Id | Select |    Status     |   Type   |   IP Address    |      Name\n"
    "----+--------+---------------+----------+-----------------+---------------\n");
const QString SeveralBanner = SelectionBanners::Several;
const QString NoneBanner = SelectionBanners::None;
const QString Start = QStringLiteral("Connection mode: local host\n");
const QString Welcome = QStringLiteral("Welcome to Korvex Shell\n");

QString selectedAtStart(const QString &name)
{
    return Welcome + QStringLiteral("\nKorvex virtual device selected: %1\n\n").arg(name);
}

QString offLine(int id)
{
    return QStringLiteral("Korvex virtual device %1 is off. Please select a new virtual device with command : "
                          "devices select\n")
        .arg(id);
}

QJsonObject machine(const QString &name, const QString &uuid, const QString &vmState, const QString &ip = {},
                    const QStringList &snapshots = {}, bool korvex = true)
{
    QJsonObject extraData{{"korvex/android-version", "7.1"}, {"korvex/platform", "phone"}};
    if (korvex)
        extraData.insert("korvex/vm-version", "2.8.1");
    QJsonObject result{{"name", name}, {"uuid", uuid}, {"state", vmState}, {"extradata", extraData}};
    if (!ip.isEmpty())
        result.insert("ip", ip);
    result.insert("snapshots", QJsonArray::fromStringList(snapshots));
    return result;
}

QJsonObject machines(const QJsonArray &list)
{
    return QJsonObject{{"machines", list}};
}

// Points the runner's shell at the fake with this state.
void useFake(ShellRunner &runner, const QJsonObject &state)
{
    const QString statePath = runner.home() + "/vbox-state.json";
    QFile file(statePath);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(QJsonDocument(state).toJson());
    QProcessEnvironment &environment = runner.environment();
    environment.insert("KX_VBOXMANAGE", QStringLiteral(KORVEX_SOURCE_DIR "/tests/fakes/VBoxManage"));
    environment.insert("KX_FAKE_VBOX_STATE", statePath);
    environment.insert("KX_FAKE_VBOX_LOG", runner.home() + "/vbox-calls.log");
}

QStringList fakeCalls(const ShellRunner &runner)
{
    QFile file(runner.home() + "/vbox-calls.log");
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
}

// What the commands printed: everything after the welcome and the selection line.
QString commandOutput(const QByteArray &out)
{
    QString text = QString::fromUtf8(out);
    const int welcome = text.indexOf(Welcome);
    if (welcome < 0)
        return text;
    text = text.mid(welcome + Welcome.size());
    static const QRegularExpression selection("^\nKorvex virtual device selected: [^\n]*\n\n");
    return text.remove(selection);
}

QString stateRow(int id, const QString &status)
{
    return QStringLiteral("%1|%2").arg(id).arg(status);
}

} // namespace

class TestLocalDevices : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void startUpSelection_data();
    void startUpSelection();
    void listTable();
    void machineStates();
    void selectionAfterRefresh_data();
    void selectionAfterRefresh();
    void select_data();
    void select();
    void factoryReset_data();
    void factoryReset();
    void deviceIdStoredInMachine_data();
    void deviceIdStoredInMachine();
    void machinesQueriedConcurrently();
    void unusableVBoxManage_data();
    void unusableVBoxManage();
    void missingPlugin();
    void remoteMode_data();
    void remoteMode();

private:
    DevSim m_agent{AgentAddress};
};

void TestLocalDevices::initTestCase()
{
    QVERIFY(m_agent.start());
}

void TestLocalDevices::cleanupTestCase()
{
    m_agent.stop();
}

void TestLocalDevices::startUpSelection_data()
{
    QTest::addColumn<QJsonObject>("state");
    QTest::addColumn<QString>("expected");

    QTest::newRow("one running, other VMs ignored")
        << machines({machine("Other", "o1", "running", "127.0.0.50", {}, false),
                     machine("Phone A", "a1", "running", AgentAddress), machine("Tablet", "t1", "poweroff")})
        << Start + selectedAtStart("Phone A") + "2.8.1 20161117-c0196b8\n";
    QTest::newRow("several running") << machines({machine("A", "a1", "running", "127.0.0.42"),
                                                  machine("B", "b1", "running", "127.0.0.43")})
                                     << Start + SeveralBanner + Welcome + "2.8.1 20161117-c0196b8\n";
    QTest::newRow("none running") << machines({machine("A", "a1", "paused", "127.0.0.42")})
                                  << Start + NoneBanner + Welcome + "2.8.1 20161117-c0196b8\n";
    QTest::newRow("no machine") << machines({}) << Start + NoneBanner + Welcome + "2.8.1 20161117-c0196b8\n";
}

void TestLocalDevices::startUpSelection()
{
    QFETCH(QJsonObject, state);
    QFETCH(QString, expected);

    ShellRunner runner;
    useFake(runner, state);
    const ShellResult result = runner.run({"-c", "version"});
    QVERIFY(result.finished);
    QCOMPARE(QString::fromUtf8(result.out), expected);
    QCOMPARE(result.exitCode, Succeeded);
}

void TestLocalDevices::listTable()
{
    ShellRunner runner;
    useFake(runner, machines({machine("tablet B", "t1", "paused", "127.0.0.42"),
                              machine("Phone A", "a1", "running", AgentAddress),
                              machine("Other", "o1", "running", "127.0.0.50", {}, false),
                              machine("alpha", "l1", "poweroff"), machine("Zed", "z1", "stuck", "127.0.0.44")}));
    const ShellResult result = runner.run({"-c", "devices list"});
    QVERIFY(result.finished);
    const QStringList rows{
        "  0 |        |           Off |  virtual |                 | alpha",
        "  1 |    *   |            On |  virtual |      127.0.0.41 | Phone A",
        "  2 |        |       Paused  |  virtual |      127.0.0.42 | tablet B",
        "  3 |        |       Aborted |  virtual |      127.0.0.44 | Zed",
    };
    QCOMPARE(QString::fromUtf8(result.out), Start + selectedAtStart("Phone A") + Header + rows.join('\n') + '\n');
    QCOMPARE(result.exitCode, Succeeded);
    // The bars stay in the header's columns.
    for (const QString &row : rows) {
        for (int column : {5, 14, 30, 41, 59})
            QCOMPARE(row.at(column - 1), QLatin1Char('|'));
    }
}

void TestLocalDevices::machineStates()
{
    // VMState of the fake:status shown in the table.
    const QStringList states = QStringLiteral(
        "running:On poweroff:Off saved:Off teleported:Off paused:Paused starting:Process stopping:Process "
        "saving:Process restoring:Process restoringsnapshot:Process deletingsnapshot:Process "
        "deletingsnapshotlive:Process deletingsnapshotpaused:Process livesnapshotting:Process "
        "onlinesnapshotting:Process settingup:Process teleporting:Process teleportingin:Process "
        "teleportingpausedvm:Process aborted:Aborted gurumeditation:Aborted stuck:Aborted inaccessible:unknown")
                                   .split(' ');
    QJsonArray list;
    QStringList expected;
    for (int i = 0; i < states.size(); ++i) {
        // Names sort in table order: m00, m01...
        const QString name = QStringLiteral("m%1").arg(i, 2, 10, QLatin1Char('0'));
        const QString vmState = states.at(i).section(':', 0, 0);
        list << machine(name, "u" + name, vmState, vmState == "running" ? AgentAddress : "");
        expected << stateRow(i, states.at(i).section(':', 1));
    }
    ShellRunner runner;
    useFake(runner, machines(list));
    const ShellResult result = runner.run({"-c", "devices list"});
    QVERIFY(result.finished);

    QStringList actual;
    for (const QString &line : commandOutput(result.out).split('\n')) {
        const QStringList cells = line.split('|');
        bool isRow = false;
        const int id = cells.first().trimmed().toInt(&isRow);
        if (isRow && cells.size() == 6)
            actual << stateRow(id, cells.at(2).trimmed());
    }
    QCOMPARE(actual, expected);
}

void TestLocalDevices::selectionAfterRefresh_data()
{
    QTest::addColumn<QJsonArray>("phases");
    QTest::addColumn<QString>("commands");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("selected machine switched off keeps its index")
        << QJsonArray{machines({machine("A", "a1", "running", AgentAddress), machine("B", "b1", "poweroff")}),
                      machines({machine("A", "a1", "poweroff", AgentAddress), machine("B", "b1", "poweroff")})}
        << "devices refresh\ndevices list\nbattery getlevel\n"
        << offLine(0) + offLine(0) + Header + "  0 |    *   |           Off |  virtual |      127.0.0.41 | A\n"
               + "  1 |        |           Off |  virtual |                 | B\n"
               + "The virtual device is not running and cannot answer requests. Please switch it on and refresh the "
                 "virtual device list.\n"
        << Failed;
    QTest::newRow("list shrunk below the selection")
        << QJsonArray{machines({machine("A", "a1", "poweroff"), machine("B", "b1", "poweroff"),
                                machine("C", "c1", "running", AgentAddress)}),
                      machines({machine("A", "a1", "running", "127.0.0.42"), machine("B", "b1", "poweroff")})}
        << "devices refresh\ndevices select 7\n"
        << "Selecting device id 7\nInvalid device Id\nKorvex device selected: A\n" << Failed;
}

void TestLocalDevices::selectionAfterRefresh()
{
    QFETCH(QJsonArray, phases);
    QFETCH(QString, commands);
    QFETCH(QString, expected);
    QFETCH(int, exitCode);

    ShellRunner runner;
    useFake(runner, QJsonObject{{"phases", phases}});
    const ShellResult result = runner.run({"-f", runner.writeCommandFile("commands.txt", commands.toUtf8())});
    QVERIFY(result.finished);
    QCOMPARE(commandOutput(result.out), expected);
    QCOMPARE(result.exitCode, exitCode);
}

void TestLocalDevices::select_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<int>("exitCode");

    // Sorted: alpha (running, selected at start), beta (off), gamma (running).
    QTest::newRow("by id") << "devices select 2" << "Selecting device id 2\nKorvex device selected: gamma\n"
                           << Succeeded;
    QTest::newRow("machine off keeps the selection")
        << "devices select 1" << "Selecting device id 1\n" + offLine(1) + "Korvex device selected: alpha\n" << Failed;
    QTest::newRow("automatic with two running")
        << "devices select" << "Try to autoselect a device\n" + SeveralBanner + "Korvex device selected: alpha\n"
        << Failed;
}

void TestLocalDevices::select()
{
    QFETCH(QString, command);
    QFETCH(QString, expected);
    QFETCH(int, exitCode);

    ShellRunner runner;
    // Two phases: only alpha runs at start, so it is selected; then gamma runs too.
    useFake(runner, QJsonObject{{"phases", QJsonArray{machines({machine("gamma", "g1", "poweroff"),
                                                                machine("alpha", "a1", "running", AgentAddress),
                                                                machine("beta", "b1", "poweroff")}),
                                                      machines({machine("gamma", "g1", "running", "127.0.0.43"),
                                                                machine("alpha", "a1", "running", AgentAddress),
                                                                machine("beta", "b1", "poweroff")})}}});
    const ShellResult result =
        runner.run({"-f", runner.writeCommandFile("commands.txt", "devices refresh\n" + command.toUtf8() + '\n')});
    QVERIFY(result.finished);
    QCOMPARE(commandOutput(result.out), expected);
    QCOMPARE(result.exitCode, exitCode);
}

void TestLocalDevices::factoryReset_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("restoredUuid"); // empty: no restore may be attempted

    const QString done = "Restoring the original backup completed\n";
    const QString question = "Resetting virtual device 'Phone-1' to factory settings\n"
                             "WARNING: All settings and data of will be deleted!\n"
                             "Are you sure? [y/N] : ";
    const QJsonObject none;

    // Sorted list: myphone (off, no snapshot), Phone-1 (off, factory), Phone-2 (running, selected).
    QTest::newRow("id, forced") << "devices factoryreset 1 force" << QByteArray() << none << done << Succeeded
                                << "p1";
    QTest::newRow("name, Force in mixed case")
        << "devices factoryreset Phone-1 Force" << QByteArray() << none << done << Succeeded << "p1";
    QTest::newRow("confirmed with y") << "devices factoryreset Phone-1" << QByteArray("y") << none
                                      << question + "y\n" + done << Succeeded << "p1";
    QTest::newRow("upper-case Y refuses") << "devices factoryreset Phone-1" << QByteArray("Y") << none
                                          << question + "Y\n" << Failed << "";
    QTest::newRow("Enter refuses") << "devices factoryreset 1 please" << QByteArray("\n") << none
                                   << question + "\n\n" << Failed << "";
    QTest::newRow("running machine")
        << "devices factoryreset 2 force" << QByteArray() << none
        << "Virtual device to restore is ON: Phone-2\nStop the virtual device to continue\n" << Failed << "";
    QTest::newRow("no factory snapshot")
        << "devices factoryreset myphone force" << QByteArray() << none
        << "Restoring the original backup failed\nReason: initial backup not found\n" << Failed << "";
    QTest::newRow("VBoxManage fails to restore")
        << "devices factoryreset 1 force" << QByteArray()
        << QJsonObject{{"snapshot restore", QJsonObject{{"exit", 1}}}}
        << "Restoring the original backup failed\nReason: error with VirtualBox. Check the korvex-shell.log file\n"
        << Failed << "p1";
    QTest::newRow("VBoxManage fails to list snapshots")
        << "devices factoryreset 1 force" << QByteArray()
        << QJsonObject{{"snapshot list", QJsonObject{{"exit", 1}}}}
        << "Restoring the original backup failed\nReason: error with VirtualBox. Check the korvex-shell.log file\n"
        << Failed << "";
    QTest::newRow("names are case-sensitive") << "devices factoryreset MyPhone force" << QByteArray() << none
                                              << "No such device MyPhone\n" << Failed << "";
    QTest::newRow("id out of range") << "devices factoryreset 3 force" << QByteArray() << none
                                     << "Invalid device Id\n" << Failed << "";
}

void TestLocalDevices::factoryReset()
{
    QFETCH(QString, command);
    QFETCH(QByteArray, key);
    QFETCH(QJsonObject, faults);
    QFETCH(QString, expected);
    QFETCH(int, exitCode);
    QFETCH(QString, restoredUuid);

    ShellRunner runner;
    QJsonObject state = machines({machine("Phone-2", "p2", "running", AgentAddress, {"factory"}),
                                  machine("Phone-1", "p1", "poweroff", {}, {"base", "factory"}),
                                  machine("myphone", "p3", "poweroff", {}, {"base"})});
    state.insert("faults", faults);
    useFake(runner, state);
    const ShellResult result = runner.run({"-c", command}, key);
    QVERIFY(result.finished);
    QCOMPARE(commandOutput(result.out), expected);
    QCOMPARE(result.exitCode, exitCode);

    const QStringList restores = fakeCalls(runner).filter(QRegularExpression("^snapshot \\S+ restore "));
    if (restoredUuid.isEmpty())
        QCOMPARE(restores, QStringList());
    else
        QCOMPARE(restores, QStringList("snapshot " + restoredUuid + " restore factory"));
}

void TestLocalDevices::deviceIdStoredInMachine_data()
{
    QTest::addColumn<bool>("storeBlocks");

    QTest::newRow("stored") << false;
    // The store holds the second pool thread until the next listing has started,
    // which the shell's loop thread must then run itself.
    QTest::newRow("listing while the store runs") << true;
}

void TestLocalDevices::deviceIdStoredInMachine()
{
    QFETCH(bool, storeBlocks);

    ShellRunner runner;
    QJsonObject state = machines({machine("Phone", "p1", "running", AgentAddress)});
    if (storeBlocks)
        state.insert("faults", QJsonObject{{"guestproperty set", QJsonObject{{"until", "list vms"}, {"count", 2}}}});
    useFake(runner, state);
    const ShellResult result =
        runner.run({"-f", runner.writeCommandFile("commands.txt", "android setdeviceid 3514\ndevices list\n")});
    QVERIFY(result.finished);
    QCOMPARE(commandOutput(result.out),
             "Device ID set to: 3514\n" + Header + "  0 |    *   |            On |  virtual |      127.0.0.41 | Phone\n");
    QCOMPARE(result.exitCode, Succeeded);
    const QStringList calls = fakeCalls(runner);
    QVERIFY2(calls.contains("guestproperty set p1 korvex_device_id 3514"), qPrintable(calls.join('\n')));
    QVERIFY2(!calls.contains("wait timeout"), qPrintable(calls.join('\n')));
}

void TestLocalDevices::machinesQueriedConcurrently()
{
    ShellRunner runner;
    // Each per-machine query waits until all nine have started; queried one by
    // one, they would give up and log "barrier timeout".
    QJsonObject state = machines({machine("A", "a1", "poweroff"), machine("B", "b1", "poweroff"),
                                  machine("C", "c1", "poweroff")});
    state.insert("barrier", 9);
    useFake(runner, state);
    const ShellResult result = runner.run({"-c", "version"});
    QVERIFY(result.finished);
    const QStringList calls = fakeCalls(runner);
    QVERIFY2(!calls.contains("barrier timeout"), qPrintable(calls.join('\n')));
    QCOMPARE(calls.filter(QRegularExpression("^(getextradata|showvminfo|guestproperty get) ")).size(), 9);
}

void TestLocalDevices::unusableVBoxManage_data()
{
    QTest::addColumn<QJsonObject>("faults"); // empty: no VBoxManage at all
    QTest::addColumn<QString>("reason");

    QTest::newRow("missing") << QJsonObject() << "/no-vboxmanage --version could not be started";
    QTest::newRow("failing") << QJsonObject{{"--version", QJsonObject{{"exit", 1}}}}
                             << "/VBoxManage --version exited with code 1";
    QTest::newRow("hanging") << QJsonObject{{"--version", QJsonObject{{"hang", true}}}}
                             << "/VBoxManage --version timed out after 2000 ms";
}

void TestLocalDevices::unusableVBoxManage()
{
    QFETCH(QJsonObject, faults);
    QFETCH(QString, reason);

    ShellRunner runner;
    if (!faults.isEmpty()) {
        useFake(runner, QJsonObject{{"faults", faults}});
        runner.environment().insert("KX_VBOXMANAGE_TIMEOUT_MS", "2000");
    }
    const ShellResult result = runner.run({"-c", "devices list"});
    QVERIFY(result.finished);
    QCOMPARE(QString::fromUtf8(result.out), Start + Welcome + "No devices available\n");
    QCOMPARE(result.exitCode, Succeeded);

    const QString log = runner.log();
    QVERIFY2(log.contains("[VBox] Plugin \"vboxmanage\" loaded"), qPrintable(log));
    QVERIFY2(log.contains(reason), qPrintable(log));
    const int rejected = log.indexOf("[critical] Failed to load engine, state 2\n");
    QVERIFY2(rejected > 0, qPrintable(log));
    QVERIFY(log.indexOf("[critical] Unable to find Virtual Machine engine. Plugin loading aborted.\n") > rejected);
}

void TestLocalDevices::missingPlugin()
{
    // A copy of the shell in a directory without plugins/.
    ShellRunner runner;
    QTemporaryDir directory;
    const QString shell = directory.path() + "/korvex-shell";
    QVERIFY(QFile::copy(ShellRunner::shellBinary(), shell));

    QProcess process;
    process.setProcessEnvironment(runner.environment());
    process.start(shell, {"-c", "devices list"});
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()), Start + Welcome + "No devices available\n");
    QCOMPARE(process.exitCode(), Succeeded);

    const QString log = runner.log();
    const QStringList expected{
        "[debug] [VBox] Loading \"vboxmanage\" plugin\n",
        "[critical] [VBox] Fail to load vboxmanage plugin from " + directory.path() + "/plugins/\n",
        "[critical] Failed to load engine, state 1\n",
        "[critical] Unable to find Virtual Machine engine. Plugin loading aborted.\n",
    };
    int position = 0;
    for (const QString &line : expected) {
        position = log.indexOf(line, position);
        QVERIFY2(position >= 0, qPrintable(line + " not in order in:\n" + log));
    }
}

void TestLocalDevices::remoteMode_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("tail");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("list, not connected")
        << SilentAddress << "devices list"
        << Header + "  0 |    *   | Not connected |   remote |      127.0.0.45 | 127.0.0.45:22666\n" << Succeeded;
    QTest::newRow("show, connected")
        << AgentAddress << "devices show"
        << Header + "  0 |    *   |     Connected |   remote |      127.0.0.41 | 127.0.0.41:22666\n" << Succeeded;
    QTest::newRow("factory reset refused") << AgentAddress << "devices factoryreset 0 force"
                                           << "Command not available in this mode (remote host)\n" << Failed;
}

void TestLocalDevices::remoteMode()
{
    QFETCH(QString, address);
    QFETCH(QString, command);
    QFETCH(QString, tail);
    QFETCH(int, exitCode);

    ShellRunner runner;
    const ShellResult result = runner.run({"-r", address, "-c", command});
    QVERIFY(result.finished);
    const QString out = QString::fromUtf8(result.out);
    QVERIFY2(out.endsWith(tail), qPrintable(out));
    QCOMPARE(result.exitCode, exitCode);
}

QTEST_GUILESS_MAIN(TestLocalDevices)
#include "tst_localdevices.moc"
