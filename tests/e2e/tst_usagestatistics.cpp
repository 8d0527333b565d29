// Usage statistics as users meet them: nothing stored or sent unless the
// settings opt in; events queued while the service is down sent by a later
// run, within the queue's bound; a failing service backed off; the proxy
// setting used; and several shells sharing one home, each event sent once,
// even when one of them is killed while it sends.
#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTcpServer>
#include <QTcpSocket>

#include <csignal>
#include <functional>
#include <memory>
#include <vector>

#include "devsim.h"
#include "eventqueue.h"
#include "shellrunner.h"

namespace {

const char ServiceAddress[] = "127.0.0.200";
// Nothing listens there: reached only through the proxy.
const char ProxiedUrl[] = "http://127.0.0.201:9/collect";
const char HeaderEnd[] = "\r\n\r\n";
const QByteArray TwoEvents = "phone call 0600000000\nandroid setandroidid random\n";

bool finished(const QProcess *shell)
{
    return shell->state() == QProcess::NotRunning;
}

// A stand-in statistics service (or HTTP proxy): answers each whole request
// with the status asked for, or holds it unanswered.
class Service : public QTcpServer
{
public:
    enum Answer { Accept, Fail, Hold };

    Service()
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            QTcpSocket *socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
        });
    }

    Answer answer = Accept;
    QStringList requestLines;
    QStringList names;              // of the events acknowledged, in order
    QMultiHash<QString, int> ids;   // of the events acknowledged, each with how often

private:
    void read(QTcpSocket *socket)
    {
        QByteArray &buffer = m_buffers[socket];
        buffer += socket->readAll();
        const int headerEnd = buffer.indexOf(HeaderEnd);
        const QRegularExpressionMatch length =
            QRegularExpression("Content-Length: (\\d+)", QRegularExpression::CaseInsensitiveOption)
                .match(buffer.left(headerEnd));
        const int bodyStart = headerEnd + int(strlen(HeaderEnd));
        if (headerEnd < 0 || !length.hasMatch() || buffer.size() < bodyStart + length.captured(1).toInt())
            return;
        requestLines << QString::fromUtf8(buffer.left(buffer.indexOf("\r\n")));
        const QJsonArray events = QJsonDocument::fromJson(buffer.mid(bodyStart)).object().value("events").toArray();
        buffer.clear();
        if (answer == Hold)
            return;
        const QByteArray status = answer == Accept ? "200 OK" : "500 Internal Server Error";
        socket->write("HTTP/1.1 " + status + "\r\nContent-Type: application/json\r\nContent-Length: 2\r\n\r\n{}");
        for (int i = 0; answer == Accept && i < events.size(); ++i) {
            names << events[i].toObject().value("name").toString();
            ids.insert(events[i].toObject().value("id").toString(), 1);
        }
    }
    QHash<QTcpSocket *, QByteArray> m_buffers;
};

} // namespace

class TestUsageStatistics : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void optInAndQueue();
    void backOffAndProxy();
    void sharedHome();

private:
    // Writes the user's statistics settings, the service's URL first.
    void configure(const QString &url, const QVariantHash &settings = {});
    QString url() const { return QString("http://%1:%2/collect").arg(ServiceAddress).arg(m_service->serverPort()); }
    // Starts a shell on the device with a command file; this thread serves the requests meanwhile.
    QProcess *start(const QByteArray &commands);
    static bool waitFor(const std::function<bool()> &condition);
    int queued() const;

    std::unique_ptr<DevSim> m_device;
    std::unique_ptr<Service> m_service;
    std::unique_ptr<ShellRunner> m_runner;
    std::vector<std::unique_ptr<QProcess>> m_shells;
};

void TestUsageStatistics::init()
{
    m_device = DevSim::startFree(203, 4);
    QVERIFY(m_device);
    m_service = std::make_unique<Service>();
    QVERIFY(m_service->listen(QHostAddress(ServiceAddress)));
    m_runner = std::make_unique<ShellRunner>();
    m_runner->environment().insert("XDG_CONFIG_HOME", m_runner->home() + "/config");
    m_shells.clear();
}

void TestUsageStatistics::configure(const QString &url, const QVariantHash &settings)
{
    QSettings store(m_runner->home() + "/config/Talvane/Korvex.conf", QSettings::IniFormat);
    store.clear();
    store.setValue("statistics/enabled", true);
    store.setValue("statistics/url", url);
    store.setValue("statistics/exitWaitMs", 10000);
    for (auto it = settings.constBegin(); it != settings.constEnd(); ++it)
        store.setValue(it.key(), it.value());
}

QProcess *TestUsageStatistics::start(const QByteArray &commands)
{
    const QString file = m_runner->writeCommandFile(QString("commands%1.txt").arg(m_shells.size()), commands);
    m_shells.push_back(std::make_unique<QProcess>());
    QProcess *shell = m_shells.back().get();
    shell->setProcessEnvironment(m_runner->environment());
    shell->start(ShellRunner::shellBinary(), {"-r", m_device->address(), "-f", file});
    return shell;
}

bool TestUsageStatistics::waitFor(const std::function<bool()> &condition)
{
    QDeadlineTimer deadline(60000);
    while (!condition() && !deadline.hasExpired())
        QTest::qWait(20);
    return condition();
}

int TestUsageStatistics::queued() const
{
    EventQueue queue(m_runner->home() + "/Korvex/statistics.sqlite", 1000, 0);
    return queue.open() ? queue.claimable() : -1;
}

void TestUsageStatistics::optInAndQueue()
{
    configure(url());
    QSettings(m_runner->home() + "/config/Talvane/Korvex.conf", QSettings::IniFormat)
        .setValue("statistics/enabled", false);
    QProcess *off = start(TwoEvents);
    QVERIFY(waitFor([&] { return finished(off); }));
    QVERIFY(!QFileInfo::exists(m_runner->home() + "/Korvex/statistics.sqlite"));

    // The service down, a queue of one: the newest event waits for the next run.
    configure(url().replace(ServiceAddress, "127.0.0.201"), {{"statistics/maxEvents", 1}});
    QProcess *down = start(TwoEvents);
    QVERIFY(waitFor([&] { return finished(down); }));
    QCOMPARE(down->readAllStandardOutput(), off->readAllStandardOutput());
    QCOMPARE(queued(), 1);

    configure(url());
    QProcess *up = start(TwoEvents);
    QVERIFY(waitFor([&] { return finished(up); }));
    QCOMPARE(m_service->names, (QStringList{"android_id", "baseband", "android_id"}));
    QCOMPARE(queued(), 0);
}

void TestUsageStatistics::backOffAndProxy()
{
    // A failing service is not asked again before its retry delay, even at exit.
    m_service->answer = Service::Fail;
    configure(url(), {{"statistics/batchSize", 1}});
    QProcess *failing = start(TwoEvents + "pause 2\n");
    QVERIFY(waitFor([&] { return finished(failing); }));
    QCOMPARE(m_service->requestLines.size(), 1);
    QVERIFY(m_runner->log().contains("[Statistics] could not send 1 events"));
    QVERIFY(m_runner->log().contains("retrying in 10 s"));
    QCOMPARE(queued(), 2);

    // Through the proxy of the settings, which the service stands in for.
    m_service->answer = Service::Accept;
    configure(ProxiedUrl, {{"proxy/type", "http"}, {"proxy/host", ServiceAddress},
                           {"proxy/port", m_service->serverPort()}});
    QProcess *proxied = start("");
    QVERIFY(waitFor([&] { return finished(proxied); }));
    QCOMPARE(m_service->requestLines.last(), QString("POST %1 HTTP/1.1").arg(ProxiedUrl));
    QCOMPARE(m_service->names.size(), 2);
}

void TestUsageStatistics::sharedHome()
{
    constexpr int Shells = 6;
    constexpr int EventsEach = 10;
    configure(url(), {{"statistics/batchSize", 3}, {"statistics/claimTimeoutMs", 2000}});

    // One shell is killed while the service holds its first batch.
    m_service->answer = Service::Hold;
    QProcess *killed = start(TwoEvents.repeated(2) + "pause 60\n");
    QVERIFY(waitFor([&] { return !m_service->requestLines.isEmpty(); }));
    ::kill(pid_t(killed->processId()), SIGKILL);
    QVERIFY(waitFor([&] { return finished(killed); }));
    m_service->answer = Service::Accept;
    QTest::qWait(2100); // its claim goes stale

    for (int i = 0; i < Shells; ++i)
        start(TwoEvents.repeated(EventsEach / 2));
    QVERIFY(waitFor([&] {
        return std::all_of(m_shells.begin(), m_shells.end(), [](const auto &shell) { return finished(shell.get()); });
    }));
    QCOMPARE(m_service->ids.size(), Shells * EventsEach + 4);
    QCOMPARE(m_service->ids.uniqueKeys().size(), m_service->ids.size());
    QCOMPARE(queued(), 0);
}

QTEST_GUILESS_MAIN(TestUsageStatistics)
#include "tst_usagestatistics.moc"
