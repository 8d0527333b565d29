// Local devices end to end: the real shell and plug-in driving the fake
// VBoxManage (tests/fakes/VBoxManage) as each VirtualBox release prints, in
// English and Russian, on hosts with and without C.UTF-8. Each test writes the
// fake's state and reads back the calls it logged.
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

#include <memory>
#include <vector>

#include "devsim.h"
#include "shellrunner.h"

namespace {

const QString AgentAddress = QStringLiteral("127.0.0.41");
const QString Start = QStringLiteral("Connection mode: local host\n");
const QString Welcome = QStringLiteral("Welcome to Korvex Shell\n");
const QString Header = QStringLiteral(
    "Available devices:\n\n"
    " Id | Select |    Status     |   Type   |   IP Address    |      Name\n"
    "----+--------+---------------+----------+-----------------+---------------\n");
// The exit status of a shell that a sanitizer stopped.
constexpr int SanitizerReport = 86;
const QStringList Releases{"5.2.26r128414", "6.1.32r149290", "7.0.14r161095", "7.1.6r167084"};
const QString VBoxError = "Restoring the original backup failed\nReason: error with VirtualBox. Check the "
                          "korvex-shell.log file\n";

QJsonObject machine(const QString &name, const QString &uuid, const QString &vmState, const QString &ip = {},
                    bool korvex = true, const QStringList &snapshots = {})
{
    return {{"name", name}, {"uuid", uuid}, {"state", vmState}, {"ip", ip},
            {"snapshots", QJsonArray::fromStringList(snapshots)},
            {"extradata", korvex ? QJsonObject{{"korvex/vm-version", "2.8.1"}} : QJsonObject()}};
}

// Points the runner's shell at the fake with this state (again: a new state); the fake also
// answers `locale -a`.
void useFake(ShellRunner &runner, const QJsonObject &state)
{
    QFile file(runner.home() + "/vbox-state.json");
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QJsonDocument(state).toJson());
    QProcessEnvironment &environment = runner.environment();
    if (environment.contains("KX_FAKE_VBOX_STATE"))
        return;
    const QString fake = QStringLiteral(KORVEX_SOURCE_DIR "/tests/fakes/VBoxManage");
    QVERIFY(QDir().mkpath(runner.home() + "/bin") && QFile::link(fake, runner.home() + "/bin/locale"));
    environment.insert("PATH", runner.home() + "/bin:" + environment.value("PATH"));
    environment.insert("KX_VBOXMANAGE", fake);
    environment.insert("KX_FAKE_VBOX_STATE", file.fileName());
    environment.insert("KX_FAKE_VBOX_LOG", runner.home() + "/vbox-calls.log");
}

// Runs "devices list" on a host the fake plays.
ShellResult listDevices(ShellRunner &runner, const QJsonObject &state)
{
    useFake(runner, state);
    return runner.run({"-c", "devices list"});
}

QStringList fakeLog(const ShellRunner &runner)
{
    QFile file(runner.home() + "/vbox-calls.log");
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts)
                                          : QStringList();
}

// What the commands printed: everything after the welcome and the selection line.
QString commandOutput(const QByteArray &out)
{
    const QString text = QString::fromUtf8(out);
    return text.mid(text.indexOf(Welcome) + Welcome.size())
        .remove(QRegularExpression("^\nKorvex virtual device selected: [^\n]*\n\n"));
}

// The rows of the last device table, as "<name> <status> <address>".
QStringList tableRows(const QByteArray &out)
{
    const QString text = QString::fromUtf8(out);
    QStringList rows;
    for (const QString &line : text.mid(text.lastIndexOf(Header)).split('\n').filter(QRegularExpression("^ +\\d+ \\|")))
        rows << QStringList{line.section("| ", 5), line.section('|', 2, 2).trimmed(), line.section('|', 4, 4).trimmed()}
                    .join(' ').trimmed();
    return rows;
}

} // namespace

class TestLocalDevices : public QObject
{
    Q_OBJECT
    DevSim m_agent{AgentAddress};

private slots:
    void initTestCase() { QVERIFY(m_agent.start()); }
    void cleanupTestCase() { m_agent.stop(); }

    void listing_data()
    {
        QTest::addColumn<QJsonObject>("state");
        for (const QString &version : Releases) {
            // No translation before 7.0.
            for (const QString &language : version < "7" ? QStringList{"en"} : QStringList{"en", "ru"}) {
                for (bool cUtf8 : {true, false}) {
                    QTest::addRow("%s %s %s", qPrintable(version.left(3)), qPrintable(language),
                                  cUtf8 ? "C.UTF-8" : "no C.UTF-8")
                        << QJsonObject{{"version", version}, {"language", language}, {"warning", !cUtf8},
                                       {"locales", cUtf8 ? QJsonArray{"C", "C.utf8"} : QJsonArray{"C", "ru_RU.utf8"}},
                                       {"delay", 0.05}};
                }
            }
        }
    }

    void listing()
    {
        QFETCH(QJsonObject, state);
        // In list order: a non-ASCII name before others, a machine that is not a device,
        // an inaccessible one, and a powered-off device whose session a second caller would break.
        state.insert("machines", QJsonArray{machine("Телефон Б", "b1", "paused", "127.0.0.42"),
                                            machine("Other", "o1", "running", "127.0.0.50", false),
                                            machine("?", "i1", "inaccessible"),
                                            machine("Phone A", "a1", "running", AgentAddress),
                                            machine("zeta", "z1", "poweroff")});
        ShellRunner runner;
        const ShellResult result = listDevices(runner, state);
        QVERIFY2(result.finished && result.exitCode != SanitizerReport, result.err.constData());
        QCOMPARE(QString::fromUtf8(result.out),
                 Start + Welcome + "\nKorvex virtual device selected: Phone A\n\n" + Header
                     + "  0 |    *   |            On |  virtual |      127.0.0.41 | Phone A\n"
                     + "  1 |        |           Off |  virtual |                 | zeta\n"
                     + "  2 |        |       Paused  |  virtual |      127.0.0.42 | Телефон Б\n");

        const QString log = runner.log();
        QVERIFY2(log.contains("VM engine version: \"" + state["version"].toString() + "\"\n"), qPrintable(log));
        QCOMPARE(log.count("[debug] [VBox] Machine skipped:"), 2); // one per listing
        QVERIFY2(!log.contains(QRegularExpression("\\[(warning|critical)\\] \\[VBox\\]")), qPrintable(log));
        // Sessions only on devices, one at a time: no conflict, none for the others. The
        // marker of Other is read once; the inaccessible machine is asked at each listing.
        const QStringList touched = fakeLog(runner).filter(QRegularExpression("lock conflict| [io]1( |$)"));
        QCOMPARE(touched.filter(QRegularExpression("^getextradata [io]1 enumerate$")), touched);
        QCOMPARE(touched.size(), 3);
    }

    void machineStates_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("states"); // VMState:status shown, in name order
        QString common = "running:On poweroff:Off saved:Off teleported:Off paused:Paused aborted:Aborted "
                         "gurumeditation:Aborted unknown:unknown";
        for (const char *transition : {"starting", "stopping", "saving", "restoring", "teleporting", "teleportingin",
                                       "teleportingpausedvm", "livesnapshotting", "onlinesnapshotting", "snapshotting",
                                       "restoringsnapshot", "deletingsnapshot", "deletingsnapshotlive",
                                       "deletingsnapshotlivepaused", "settingup"})
            common += QStringLiteral(" %1:Process").arg(transition);
        QTest::newRow("5.2") << Releases[0] << common + " faulttolerantsyncing:Process";
        QTest::newRow("7.1") << Releases[3] << common + " aborted-saved:Aborted";
    }

    void machineStates()
    {
        QFETCH(QString, version);
        QFETCH(QString, states);
        QJsonArray machines;
        QStringList expected;
        for (const QString &entry : states.split(' ')) {
            const QString name = QStringLiteral("m%1").arg(machines.size(), 2, 10, QLatin1Char('0'));
            // The running device has no address yet.
            machines << machine(name, "u" + name, entry.section(':', 0, 0));
            expected << entry.section(':', 1);
        }
        ShellRunner runner;
        const ShellResult result = listDevices(runner, QJsonObject{{"version", version}, {"machines", machines}});
        QVERIFY2(result.finished && result.exitCode != SanitizerReport, result.err.constData());
        QStringList actual;
        // Status and address: the devices have none, the running one included.
        for (const QString &line : commandOutput(result.out).split('\n').filter(QRegularExpression("^ +\\d+ \\|")))
            actual << line.section('|', 2, 2).trimmed() + line.section('|', 4, 4).trimmed();
        QCOMPARE(actual, expected);
    }

    void addresses_data()
    {
        QTest::addColumn<QJsonObject>("host");
        QTest::addColumn<QJsonObject>("guest"); // the device's own keys
        QTest::addColumn<QString>("row");
        QTest::addColumn<QString>("logged");

        const QJsonObject paused{{"state", "paused"}, {"ip", "192.168.56.101"}};
        auto with = [&paused](const QJsonObject &keys) {
            QJsonObject guest = paused;
            for (auto it = keys.begin(); it != keys.end(); ++it)
                guest.insert(it.key(), it.value());
            return guest;
        };
        QTest::newRow("lines trimmed") << QJsonObject{{"version", Releases[1]}, {"trimmed", true}} << paused
                                       << "Paused 192.168.56.101" << "(MAC 080027";
        QTest::newRow("no MAC, NAT first") << QJsonObject{{"version", Releases[0]}} << with({{"macs", false}})
                                           << "Paused 192.168.56.101"
                                           << "publishes no MAC; its address is outside NAT networks 10.0.2.0/24";
        QTest::newRow("no MAC, host-only first")
            << QJsonObject{{"version", Releases[3]}} << with({{"macs", false}, {"reversed", true}})
            << "Paused 192.168.56.101" << "guest interface 0 publishes no MAC";
        QTest::newRow("no MAC, NAT networks of its own")
            << QJsonObject{{"version", Releases[2]}}
            << with({{"macs", false}, {"adapters", QJsonArray{"nat", "nat 172.16.5.0/24", "bridged"}}})
            << "Paused 192.168.56.101" << "outside NAT networks 10.0.2.0/24, 172.16.5.0/24";
        QTest::newRow("no MAC, only NAT and loopback")
            << QJsonObject{{"version", Releases[2]}}
            << with({{"macs", false}, {"ip", "127.0.0.9"},
                     {"adapters", QJsonArray{"nat", "nat 192.168.56.0/24", "bridged"}}})
            << "Paused"
            << "192.168.56.15 (no MAC) is in NAT network 192.168.56.0/24; interface 2 127.0.0.9 (no MAC) is loopback";
        QTest::newRow("showvminfo fails after its block")
            << QJsonObject{{"version", Releases[0]}}
            << QJsonObject{{"state", "running"}, {"ip", AgentAddress}, {"showvminfo", "fails"}}
            << "On " + AgentAddress << "The object is not ready";
    }

    void addresses()
    {
        QFETCH(QJsonObject, host);
        QFETCH(QJsonObject, guest);
        QFETCH(QString, row);
        QFETCH(QString, logged);
        QJsonObject device = machine("Phone", "p1", "poweroff");
        for (auto it = guest.begin(); it != guest.end(); ++it)
            device.insert(it.key(), it.value());
        host.insert("machines", QJsonArray{device});
        ShellRunner runner;
        const ShellResult result = listDevices(runner, host);
        QVERIFY2(result.finished && result.exitCode != SanitizerReport, result.err.constData());
        QCOMPARE(tableRows(result.out), QStringList{"Phone " + row});
        QVERIFY2(runner.log().contains(logged), qPrintable(runner.log()));
    }

    void acrossRuns_data()
    {
        QTest::addColumn<QJsonArray>("before");
        QTest::addColumn<QJsonArray>("after");
        QTest::addColumn<QString>("cache"); // what the second run finds: "" as the first left it, "aged", or this text
        QTest::addColumn<int>("shells");    // at once in the second run
        QTest::addColumn<int>("markersRead"); // by the second run; -1: depends on the shells' timing

        const QJsonArray host{machine("Phone A", "a1", "poweroff"), machine("Other", "o1", "poweroff", {}, false)};
        const QJsonArray added{host[0], host[1], machine("Phone B", "b1", "saved")};
        QTest::newRow("unchanged") << host << host << "" << 1 << 0;
        QTest::newRow("machine added") << host << added << "" << 1 << 1;
        QTest::newRow("machine removed") << added << host << "" << 1 << 0;
        QTest::newRow("renamed") << host << QJsonArray{machine("Phone Z", "a1", "poweroff"), host[1]} << "" << 1 << 1;
        QTest::newRow("made a device, seen after a while")
            << host << QJsonArray{host[0], machine("Other", "o1", "poweroff")} << "aged" << 1 << 2;
        QTest::newRow("half-written cache") << host << host << "{\"machines\": {\"a1\"" << 1 << 2;
        QTest::newRow("several shells at once") << host << added << "{" << 4 << -1;
    }

    void acrossRuns()
    {
        QFETCH(QJsonArray, before);
        QFETCH(QJsonArray, after);
        QFETCH(QString, cache);
        QFETCH(int, shells);
        QFETCH(int, markersRead);

        ShellRunner runner;
        QVERIFY(listDevices(runner, QJsonObject{{"machines", before}}).finished);
        QFile kept(runner.home() + "/Korvex/vboxmanage-machines.json");
        QVERIFY(kept.open(QIODevice::ReadWrite));
        QString content = QString::fromUtf8(kept.readAll());
        if (cache == "aged")
            content.replace(QRegularExpression("\"checked\":\\d+"), "\"checked\":0");
        else if (!cache.isEmpty())
            content = cache;
        kept.resize(0);
        kept.write(content.toUtf8());
        kept.close();
        useFake(runner, QJsonObject{{"machines", after}});
        QFile::remove(runner.home() + "/vbox-calls.log");
        QStringList expected;
        for (const QJsonValue &entry : after) {
            if (entry["extradata"].toObject().contains("korvex/vm-version"))
                expected << entry["name"].toString() + " Off";
        }
        expected.sort();

        std::vector<std::unique_ptr<QProcess>> processes(shells);
        for (auto &process : processes) {
            process = std::make_unique<QProcess>();
            process->setProcessEnvironment(runner.environment());
            process->start(ShellRunner::shellBinary(), {"-c", "devices list"});
        }
        for (auto &process : processes) {
            QVERIFY(process->waitForFinished(180000));
            QCOMPARE(tableRows(process->readAllStandardOutput()), expected);
        }
        if (markersRead >= 0)
            QCOMPARE(fakeLog(runner).filter(QRegularExpression("^getextradata ")).size(), markersRead);
        // Whatever the second run found, it left a whole cache that a third one trusts.
        QFile::remove(runner.home() + "/vbox-calls.log");
        QCOMPARE(tableRows(runner.run({"-c", "devices list"}).out), expected);
        QCOMPARE(fakeLog(runner).filter(QRegularExpression("^getextradata ")), QStringList());
    }

    void factoryReset_data()
    {
        QTest::addColumn<QString>("vmState");
        QTest::addColumn<bool>("factory");
        QTest::addColumn<double>("restoreSeconds");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QString>("logged"); // in the shell's log, or after a line end in the fake's
        QTest::addColumn<QByteArray>("answer"); // to the question; none: forced

        const QString asked = "Resetting virtual device 'Phone' to factory settings\nWARNING: All settings and data "
                              "of will be deleted!\nAre you sure? [y/N] : ";
        QTest::newRow("done") << "poweroff" << true << 0.0 << "Restoring the original backup completed\n"
                              << "\nsnapshot p1 restore factory" << QByteArray();
        QTest::newRow("answered y") << "poweroff" << true << 0.0
                                    << asked + "y\nRestoring the original backup completed\n"
                                    << "\nsnapshot p1 restore factory" << QByteArray("y");
        QTest::newRow("answered Y") << "poweroff" << true << 0.0 << asked + "Y\n" << "" << QByteArray("Y");
        QTest::newRow("no factory snapshot")
            << "saved" << false << 0.0 << "Restoring the original backup failed\nReason: initial backup not found\n"
            << "No snapshot named \"factory\" in \"Phone\"" << QByteArray();
        QTest::newRow("refused, reason logged")
            << "paused" << true << 0.0 << VBoxError
            << "Cannot delete the current state of the running machine (machine state: Paused)" << QByteArray();
        QTest::newRow("time-out cancels the restore")
            << "poweroff" << true << 30.0 << VBoxError << "\nrestore cancelled" << QByteArray();
        QTest::newRow("running")
            << "running" << true << 0.0
            << "Virtual device to restore is ON: Phone\nStop the virtual device to continue\n" << "" << QByteArray();
    }

    void factoryReset()
    {
        QFETCH(QString, vmState);
        QFETCH(bool, factory);
        QFETCH(double, restoreSeconds);
        QFETCH(QString, expected);
        QFETCH(QString, logged);
        QFETCH(QByteArray, answer);

        const QStringList snapshots = factory ? QStringList{"base", "factory"} : QStringList{"base"};
        ShellRunner runner;
        const QJsonObject device = machine("Phone", "p1", vmState, AgentAddress, true, snapshots);
        useFake(runner, QJsonObject{{"machines", QJsonArray{device}}, {"restore", restoreSeconds}});
        runner.environment().insert("KX_VBOXMANAGE_TIMEOUT_MS", "10000");
        const ShellResult result =
            runner.run({"-c", answer.isNull() ? "devices factoryreset Phone force" : "devices factoryreset Phone"},
                       answer);
        QVERIFY2(result.finished && result.exitCode != SanitizerReport, result.err.constData());
        QCOMPARE(commandOutput(result.out), expected);
        const QString log = logged.startsWith('\n') ? fakeLog(runner).join('\n') : runner.log();
        QVERIFY2(log.contains(logged.mid(logged.startsWith('\n'))), qPrintable(log));
        if (!answer.isNull())
            QCOMPARE(fakeLog(runner).filter(QRegularExpression("^snapshot .* restore")).isEmpty(), answer != "y");
    }

    void deviceIdStored_data()
    {
        QTest::addColumn<QJsonObject>("state");
        QTest::newRow("stored") << QJsonObject();
        QTest::newRow("slow host") << QJsonObject{{"delay", 0.5}};
        // The store holds a pool thread and the device's session until the next listing has started.
        QTest::newRow("listing while the store runs")
            << QJsonObject{{"wait", QJsonObject{{"guestproperty set", QJsonArray{"list vms", 2}}}}};
    }

    void deviceIdStored()
    {
        QFETCH(QJsonObject, state);
        state.insert("machines", QJsonArray{machine("Phone", "p1", "running", AgentAddress)});
        ShellRunner runner;
        useFake(runner, state);
        const ShellResult result =
            runner.run({"-f", runner.writeCommandFile("commands.txt", "android setdeviceid 3514\ndevices list\n")});
        QVERIFY2(result.finished && result.exitCode != SanitizerReport, result.err.constData());
        const QString device = "  0 |    *   |            On |  virtual |      127.0.0.41 | Phone\n";
        QCOMPARE(commandOutput(result.out), "Device ID set to: 3514\n" + Header + device);
        QVERIFY2(fakeLog(runner).contains("guestproperty set p1 korvex_device_id 3514"), qPrintable(runner.log()));
    }

    void unusable_data()
    {
        QTest::addColumn<QJsonObject>("state"); // empty: no VBoxManage at all
        QTest::addColumn<QString>("reason");
        QTest::addColumn<int>("code");

        QTest::newRow("missing") << QJsonObject() << "/no-vboxmanage --version could not be started" << 2;
        QTest::newRow("hanging") << QJsonObject{{"wait", QJsonObject{{"--version", QJsonArray{"never", 1}}}}}
                                 << "/VBoxManage --version timed out after 10000 ms" << 2;
        QTest::newRow("service down")
            << QJsonObject{{"service", "down"}, {"version", Releases[3]}, {"language", "ru"}}
            << "[critical] [VBox] the VirtualBox service cannot be reached: exited with code 1: VBoxManage: error: "
               "Failed to create the VirtualBox object! VBoxManage: error: Code NS_ERROR_ABORT" << 4;
    }

    void unusable()
    {
        QFETCH(QJsonObject, state);
        QFETCH(QString, reason);
        QFETCH(int, code);

        ShellRunner runner;
        if (!state.isEmpty())
            useFake(runner, state);
        runner.environment().insert("KX_VBOXMANAGE_TIMEOUT_MS", "10000");
        const ShellResult result = runner.run({"-c", "devices list"});
        QVERIFY2(result.finished && result.exitCode != SanitizerReport, result.err.constData());
        QCOMPARE(QString::fromUtf8(result.out), Start + Welcome + "No devices available\n");
        for (const QString &line : {reason, QStringLiteral("[critical] Failed to load engine, state %1\n").arg(code)})
            QVERIFY2(runner.log().contains(line), qPrintable(runner.log()));
    }

    void missingPlugin()
    {
        // A copy of the shell in a directory without plugins/.
        ShellRunner runner;
        QTemporaryDir directory;
        QVERIFY(QFile::copy(ShellRunner::shellBinary(), directory.path() + "/korvex-shell"));
        QProcess process;
        process.setProcessEnvironment(runner.environment());
        process.start(directory.path() + "/korvex-shell", {"-c", "devices list"});
        QVERIFY(process.waitForFinished(180000));
        QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()), Start + Welcome + "No devices available\n");
        const QString log = runner.log();
        for (const QString &line :
             {"[critical] [VBox] Fail to load vboxmanage plugin from " + directory.path() + "/plugins/\n",
              QStringLiteral("[critical] Failed to load engine, state 1\n"),
              QStringLiteral("[critical] Unable to find Virtual Machine engine. Plugin loading aborted.\n")})
            QVERIFY2(log.contains(line), qPrintable(log));
    }
};

QTEST_GUILESS_MAIN(TestLocalDevices)
#include "tst_localdevices.moc"
