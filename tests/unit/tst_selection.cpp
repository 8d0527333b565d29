// Ordering of the local device list, selection by id, automatic selection and
// the position-based re-selection after a refresh.
#include <QBuffer>
#include <QSignalSpy>
#include <QTextStream>
#include <QtTest>

#include "console.h"
#include "selectionbanners.h"
#include "virtualmachineengine.h"

namespace {

const QString SeveralBanner = SelectionBanners::Several;
const QString NoneBanner = SelectionBanners::None;
const QString InvalidId = QStringLiteral("Invalid device Id\n");

QString offLine(int id)
{
    return QStringLiteral("Korvex virtual device %1 is off. Please select a new virtual device with command : devices select\n")
        .arg(id);
}

// "1,2,1" gives devices d0..d2 in those states at 127.0.0.40 + index.
QList<Device> makeDevices(const QString &states, const QString &prefix = QStringLiteral("d"))
{
    QList<Device> devices;
    const QStringList codes = states.split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (int i = 0; i < codes.size(); ++i) {
        devices << Device(prefix + QString::number(i), QHostAddress(QStringLiteral("127.0.0.%1").arg(40 + i)), 1,
                          codes.at(i).toInt(), nullptr);
    }
    return devices;
}

QStringList names(const QList<Device> &devices)
{
    QStringList result;
    for (const Device &device : devices)
        result << device.name();
    return result;
}

} // namespace

class TestSelection : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void sortsByNameIgnoringCase_data();
    void sortsByNameIgnoringCase();
    void selectDevice_data();
    void selectDevice();
    void autoSelect_data();
    void autoSelect();
    void reselectsAfterRefresh_data();
    void reselectsAfterRefresh();

private:
    // An engine whose plug-in load has ended (there is no plug-in beside the test).
    std::unique_ptr<VirtualMachineEngine> makeEngine();
    QString takeOutput();

    QBuffer m_output;
};

void TestSelection::initTestCase()
{
    // Each engine logs its failed plug-in load; nothing to learn from that here.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &message) {
        if (type == QtFatalMsg)
            qFatal("%s", qPrintable(message));
    });
}

void TestSelection::init()
{
    m_output.setData(QByteArray());
    m_output.open(QIODevice::ReadWrite);
    console().setDevice(&m_output);
}

void TestSelection::cleanup()
{
    console().setDevice(nullptr);
    m_output.close();
}

std::unique_ptr<VirtualMachineEngine> TestSelection::makeEngine()
{
    auto engine = std::make_unique<VirtualMachineEngine>();
    QSignalSpy ready(engine.get(), &VirtualMachineEngine::initializationFinished);
    if (!ready.wait(10000))
        qWarning("plug-in load did not end");
    takeOutput();
    return engine;
}

QString TestSelection::takeOutput()
{
    console().flush();
    const QString text = QString::fromUtf8(m_output.data());
    m_output.buffer().clear();
    m_output.seek(0);
    return text;
}

void TestSelection::sortsByNameIgnoringCase_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("case ignored") << QStringList{"beta", "Alpha"} << QStringList{"Alpha", "beta"};
    QTest::newRow("mixed") << QStringList{"phone B", "PHONE c", "Phone a"}
                           << QStringList{"Phone a", "phone B", "PHONE c"};
    QTest::newRow("plain text order, not numeric") << QStringList{"dev2", "dev10", "Dev1"}
                                                   << QStringList{"Dev1", "dev10", "dev2"};
}

void TestSelection::sortsByNameIgnoringCase()
{
    QFETCH(QStringList, names);
    QFETCH(QStringList, expected);

    QList<Device> devices;
    for (const QString &name : names)
        devices << Device(name, QHostAddress(), 1, 1, nullptr);
    VirtualMachineEngine::sortDevices(devices);
    QCOMPARE(::names(devices), expected);
}

void TestSelection::selectDevice_data()
{
    QTest::addColumn<QString>("states");
    QTest::addColumn<int>("id");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QString>("output");

    QTest::newRow("running") << "2,1" << 1 << true << "";
    QTest::newRow("negative id") << "1,1" << -1 << false << InvalidId;
    QTest::newRow("id equal to count") << "1,1" << 2 << false << InvalidId;
    QTest::newRow("off") << "1,2" << 1 << false << offLine(1);
    QTest::newRow("paused") << "3" << 0 << false << offLine(0);
}

void TestSelection::selectDevice()
{
    QFETCH(QString, states);
    QFETCH(int, id);
    QFETCH(bool, result);
    QFETCH(QString, output);

    auto engine = makeEngine();
    const QList<Device> devices = makeDevices(states);
    // Start from a selected first device when there is one to select.
    engine->applyRefreshedList(devices);
    if (!devices.isEmpty() && devices.first().state() == On)
        QVERIFY(engine->selectDevice(0));
    const int before = engine->selectedIndex();
    takeOutput();

    QCOMPARE(engine->selectDevice(id), result);
    QCOMPARE(takeOutput(), output);
    QCOMPARE(engine->selectedIndex(), result ? id : before);
    if (result) {
        QCOMPARE(engine->client()->address(), devices.at(id).address());
        QCOMPARE(engine->client()->port(), int(KorvexClient::AgentPort));
        QCOMPARE(engine->selectedDevice().name(), devices.at(id).name());
        QVERIFY(engine->isSelectedDeviceOn());
    }
}

void TestSelection::autoSelect_data()
{
    QTest::addColumn<QString>("states");
    QTest::addColumn<int>("selectFirst"); // -1: no selection before
    QTest::addColumn<bool>("result");
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("output");

    QTest::newRow("empty list") << "" << -1 << false << -1 << NoneBanner;
    QTest::newRow("only the second on") << "2,1,2" << -1 << true << 1 << "";
    QTest::newRow("two on") << "1,1" << -1 << false << -1 << SeveralBanner;
    QTest::newRow("two on keep selection") << "1,1" << 0 << false << 0 << SeveralBanner;
    QTest::newRow("none on") << "2,3,4,5,0" << -1 << false << -1 << NoneBanner;
}

void TestSelection::autoSelect()
{
    QFETCH(QString, states);
    QFETCH(int, selectFirst);
    QFETCH(bool, result);
    QFETCH(int, index);
    QFETCH(QString, output);

    auto engine = makeEngine();
    engine->applyRefreshedList(makeDevices(states));
    if (selectFirst >= 0)
        QVERIFY(engine->selectDevice(selectFirst));
    takeOutput();

    QCOMPARE(engine->autoSelect(), result);
    QCOMPARE(takeOutput(), output);
    QCOMPARE(engine->selectedIndex(), index);
    QCOMPARE(engine->hasSelection(), index != -1);
}

void TestSelection::reselectsAfterRefresh_data()
{
    QTest::addColumn<QString>("oldStates");
    QTest::addColumn<int>("oldIndex");
    QTest::addColumn<QString>("newStates");
    QTest::addColumn<int>("index");
    QTest::addColumn<bool>("on");
    QTest::addColumn<QString>("output");

    QTest::newRow("kept") << "2,1" << 1 << "2,1" << 1 << true << "";
    QTest::newRow("switched off keeps index") << "1,2" << 0 << "2,2" << 0 << false << offLine(0);
    QTest::newRow("list shrunk, auto-selects") << "2,2,1" << 2 << "1,2" << 0 << true << "";
    QTest::newRow("list shrunk, none running") << "2,2,1" << 2 << "2,2" << -1 << false << NoneBanner;
    QTest::newRow("list shrunk, several running") << "2,2,1" << 2 << "1,1" << -1 << false << SeveralBanner;
    QTest::newRow("list emptied") << "1" << 0 << "" << -1 << false << NoneBanner;
    QTest::newRow("nothing selected yet") << "" << -1 << "2,1" << 1 << true << "";
    QTest::newRow("another machine at the same id") << "1,2" << 0 << "1,1" << 0 << true << "";
}

void TestSelection::reselectsAfterRefresh()
{
    QFETCH(QString, oldStates);
    QFETCH(int, oldIndex);
    QFETCH(QString, newStates);
    QFETCH(int, index);
    QFETCH(bool, on);
    QFETCH(QString, output);

    auto engine = makeEngine();
    engine->applyRefreshedList(makeDevices(oldStates, QStringLiteral("old")));
    if (oldIndex >= 0) {
        engine->selectDevice(oldIndex);
        QCOMPARE(engine->selectedIndex(), oldIndex);
    }
    takeOutput();

    const QList<Device> fresh = makeDevices(newStates, QStringLiteral("new"));
    engine->applyRefreshedList(fresh);
    QCOMPARE(takeOutput(), output);
    QCOMPARE(names(engine->devices()), names(fresh));
    QCOMPARE(engine->selectedIndex(), index);
    QCOMPARE(engine->isSelectedDeviceOn(), on);
    // Without a selection the engine answers with a default record.
    QCOMPARE(engine->selectedDevice().name(), index >= 0 ? fresh.at(index).name() : QString());
    QCOMPARE(engine->selectedDevice().address().isNull(), index < 0);
}

QTEST_GUILESS_MAIN(TestSelection)
#include "tst_selection.moc"
