// Usage statistics against in-process HTTP services and proxies on loopback:
// batches, delivery exactly once across failing runs, the queue bound, the
// opt-in, proxies, broken databases, and the real shell with statistics off/on.
#include <QtConcurrent>
#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkProxy>
#include <QSettings>
#include <QTcpServer>
#include <QTcpSocket>

#include "devsim.h"
#include "eventqueue.h"
#include "jsonwebservice.h"
#include "shellrunner.h"
#include "statisticsconfig.h"
#include "usageevents.h"
#include "usagestatistics.h"

namespace {

const char ServiceAddress[] = "127.0.0.200";
const char ProxyAddress[] = "127.0.0.201";
const char DownAddress[] = "127.0.0.202";
const char DeviceAddress[] = "127.0.0.203";
const int WaitMs = 10000;
const int ShellRunMs = 30000;
// A delay that never runs out within a test.
const int NeverMs = 60 * 60 * 1000;
const int ShortMs = 300;
// The proxy's port is fixed so that the settings tables can name it; the address is ours alone.
const int ProxyPort = 18201;

// A minimal HTTP/1.1 server: records every request and answers it with a
// status (500 for the first `failures` requests), or never when status is 0.
class HttpRecorder : public QObject
{
public:
    struct Request
    {
        QByteArray target;
        QByteArray head; // request line and headers, lower-cased
        QByteArray body;
    };

    explicit HttpRecorder(int status = 200) : status(status)
    {
        connect(&m_server, &QTcpServer::newConnection, this, &HttpRecorder::accept);
    }

    bool listen(const char *address, quint16 port = 0) { return m_server.listen(QHostAddress(address), port); }
    QUrl url() const
    {
        return QUrl(QString("http://%1:%2/collect").arg(m_server.serverAddress().toString()).arg(m_server.serverPort()));
    }

    // Every event of every request, in the order received.
    QList<QJsonObject> events() const
    {
        QList<QJsonObject> all;
        for (const Request &request : requests)
            for (const QJsonValue &event : QJsonDocument::fromJson(request.body)["events"].toArray())
                all.append(event.toObject());
        return all;
    }

    int status;
    int failures = 0;
    QList<Request> requests;
    int connections = 0;

private:
    void accept()
    {
        while (QTcpSocket *socket = m_server.nextPendingConnection()) {
            ++connections;
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    }

    void read(QTcpSocket *socket)
    {
        QByteArray &buffer = m_buffers[socket];
        buffer += socket->readAll();
        for (;;) {
            const int headerEnd = buffer.indexOf("\r\n\r\n");
            if (headerEnd < 0)
                return;
            Request request;
            request.target = buffer.left(headerEnd).split(' ').value(1);
            request.head = buffer.left(headerEnd).toLower();
            const QRegularExpression lengthHeader("content-length: *(\\d+)");
            const int length = lengthHeader.match(request.head).captured(1).toInt();
            const int bodyStart = headerEnd + 4;
            if (buffer.size() < bodyStart + length)
                return;
            request.body = buffer.mid(bodyStart, length);
            buffer.remove(0, bodyStart + length);
            requests.append(request);

            const int answer = requests.size() <= failures ? 500 : status;
            if (answer != 0)
                socket->write(QString("HTTP/1.1 %1 Answer\r\nContent-Type: application/json\r\n"
                                      "Content-Length: 2\r\n\r\n{}").arg(answer).toUtf8());
        }
    }

    QTcpServer m_server;
    QHash<QTcpSocket *, QByteArray> m_buffers;
};

// The URL of a port on which nothing listens.
QUrl downUrl()
{
    QTcpServer server;
    server.listen(QHostAddress(DownAddress));
    const quint16 port = server.serverPort();
    server.close();
    return QUrl(QString("http://%1:%2/collect").arg(DownAddress).arg(port));
}

QStringList idsOf(const QList<QJsonObject> &events)
{
    QStringList ids;
    for (const QJsonObject &event : events)
        ids.append(event["id"].toString());
    return ids;
}

QStringList namesIn(EventQueue *queue)
{
    QStringList names;
    for (const QueuedEvent &event : queue->oldest(100))
        names.append(event.name);
    return names;
}

SettingsReader readerOf(const QVariantHash &values)
{
    return [values](const QString &key, const QVariant &defaultValue) { return values.value(key, defaultValue); };
}


// Runs the real shell while this thread's event loop keeps serving the test servers.
ShellResult runShell(ShellRunner &runner, const QStringList &arguments)
{
    ShellResult result;
    QProcess process;
    process.setProcessEnvironment(runner.environment());
    QEventLoop loop;
    QObject::connect(&process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), &loop, &QEventLoop::quit);
    QObject::connect(&process, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
    QTimer::singleShot(ShellRunMs, &loop, &QEventLoop::quit);
    process.start(ShellRunner::shellBinary(), arguments);
    process.closeWriteChannel();
    loop.exec();
    result.finished = process.state() == QProcess::NotRunning && process.exitStatus() == QProcess::NormalExit;
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(WaitMs);
    }
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    result.exitCode = process.exitCode();
    return result;
}

} // namespace

class TestUsageStatistics : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init() { m_dir = std::make_unique<QTemporaryDir>(); }

    void sendsEventsInBatches();
    void keepsEventsUntilAcknowledged_data();
    void keepsEventsUntilAcknowledged();
    void retriesTheSameBatch();
    void dropsOldestBeyondBound();
    void optIn_data();
    void optIn();
    void proxies_data();
    void proxies();
    void brokenDatabaseIsHarmless_data();
    void brokenDatabaseIsHarmless();
    void shellRecordsOnlyWhenEnabled();

private:
    StatisticsConfig config(const QUrl &url) const
    {
        StatisticsConfig config;
        config.enabled = true;
        config.serviceUrl = url;
        config.databasePath = m_dir->filePath("statistics.sqlite");
        config.gatherMs = NeverMs;
        config.firstRetryMs = NeverMs;
        config.exitFlushMs = WaitMs;
        return config;
    }

    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestUsageStatistics::initTestCase()
{
    for (const char *name : {"http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTP_PROXY", "ALL_PROXY"})
        qunsetenv(name);
}

void TestUsageStatistics::sendsEventsInBatches()
{
    HttpRecorder service;
    QVERIFY(service.listen(ServiceAddress));
    StatisticsConfig config = this->config(service.url());
    config.batchSize = 2;
    UsageStatistics statistics(config);

    const QDateTime before = QDateTime::currentDateTimeUtc().addMSecs(-1);
    const QList<QPair<QString, UsageEvents::Properties>> recorded = {
        {"device_id", {{"random", "true"}}},
        {"baseband", {{"kind", "sms"}}},
        {"android_id", {{"random", "false"}}},
        {"reset_factory", {{"android-version", "7.1"}, {"vm-version", "5.1.30"}, {"platform", "x86"}}},
        {"baseband", {{"kind", "raw"}}},
    };
    for (const auto &event : recorded) // from a worker thread, as the shell's commands do
        QtConcurrent::run([&] { statistics.record("shell", event.first, event.second); }).waitForFinished();
    QTRY_COMPARE_WITH_TIMEOUT(service.events().size(), recorded.size(), WaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(statistics.queue()->count(), 0, WaitMs);
    const QDateTime after = QDateTime::currentDateTimeUtc();

    QList<int> batchSizes;
    for (const HttpRecorder::Request &request : service.requests) {
        QVERIFY(request.head.startsWith("post /collect http/1.1"));
        QVERIFY(request.head.contains("content-type: application/json"));
        const QJsonObject body = QJsonDocument::fromJson(request.body).object();
        QCOMPARE(body["application"].toString(), QCoreApplication::applicationName());
        batchSizes.append(body["events"].toArray().size());
    }
    QCOMPARE(batchSizes, QList<int>({2, 2, 1}));

    const QList<QJsonObject> events = service.events();
    for (int i = 0; i < events.size(); ++i) {
        QCOMPARE(events[i]["component"].toString(), QString("shell"));
        QCOMPARE(events[i]["name"].toString(), recorded[i].first);
        QJsonObject properties;
        for (auto it = recorded[i].second.constBegin(); it != recorded[i].second.constEnd(); ++it)
            properties.insert(it.key(), it.value());
        QCOMPARE(events[i]["properties"].toObject(), properties);
        const QString text = events[i]["timestamp"].toString();
        const QDateTime timestamp = QDateTime::fromString(text, Qt::ISODateWithMs);
        QVERIFY2(text.endsWith('Z') && timestamp >= before && timestamp <= after, qPrintable(text));
    }
    const QStringList ids = idsOf(events);
    QCOMPARE(QSet<QString>(ids.begin(), ids.end()).size(), recorded.size());
}

void TestUsageStatistics::keepsEventsUntilAcknowledged_data()
{
    QTest::addColumn<bool>("listening");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("requestTimeoutMs");
    QTest::addColumn<int>("exitFlushMs");
    QTest::addColumn<QString>("log");

    QTest::newRow("service down") << false << 200 << WaitMs << WaitMs << "could not send 3 events";
    QTest::newRow("error 500") << true << 500 << WaitMs << WaitMs << "could not send 3 events \\(HTTP status 500\\)";
    QTest::newRow("slow service") << true << 0 << ShortMs << WaitMs << "could not send 3 events";
    QTest::newRow("no answer before exit")
        << true << 0 << NeverMs << ShortMs << "no answer from the service before exit: 3 events stay queued";
}

void TestUsageStatistics::keepsEventsUntilAcknowledged()
{
    QFETCH(bool, listening);
    QFETCH(int, status);
    QFETCH(int, requestTimeoutMs);
    QFETCH(int, exitFlushMs);
    QFETCH(QString, log);

    HttpRecorder failing(status);
    QVERIFY(!listening || failing.listen(ServiceAddress));
    QStringList ids;
    {
        StatisticsConfig config = this->config(listening ? failing.url() : downUrl());
        config.requestTimeoutMs = requestTimeoutMs;
        config.exitFlushMs = exitFlushMs;
        UsageStatistics firstRun(config);
        for (const QString &name : {"device_id", "android_id", "baseband"})
            firstRun.record("shell", name, {{"random", "true"}});
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(log));
        firstRun.shutdown();
        for (const QueuedEvent &event : firstRun.queue()->oldest(10))
            ids.append(event.id);
    }
    QCOMPARE(ids.size(), 3);
    // What reached the failing service goes again under the same ids, so it can drop repeats.
    for (const QString &id : idsOf(failing.events()))
        QVERIFY(ids.contains(id));

    HttpRecorder service;
    QVERIFY(service.listen(ServiceAddress));
    for (int run = 0; run < 2; ++run) {
        UsageStatistics laterRun(this->config(service.url()));
        laterRun.resume();
        QTRY_COMPARE_WITH_TIMEOUT(laterRun.queue()->count(), 0, WaitMs);
        laterRun.shutdown();
    }
    QCOMPARE(service.requests.size(), 1);
    QCOMPARE(idsOf(service.events()), ids);
}

void TestUsageStatistics::retriesTheSameBatch()
{
    HttpRecorder service;
    service.failures = 1;
    QVERIFY(service.listen(ServiceAddress));
    StatisticsConfig config = this->config(service.url());
    config.batchSize = 2;
    config.firstRetryMs = 50;
    UsageStatistics statistics(config);

    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("could not send 2 events \\(HTTP status 500\\)"));
    statistics.record("shell", "baseband", {{"kind", "call"}});
    statistics.record("shell", "baseband", {{"kind", "sms"}});
    QTRY_COMPARE_WITH_TIMEOUT(service.requests.size(), 2, WaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(statistics.queue()->count(), 0, WaitMs);
    QCOMPARE(service.requests[1].body, service.requests[0].body);
}

void TestUsageStatistics::dropsOldestBeyondBound()
{
    StatisticsConfig config = this->config(downUrl());
    config.maxEvents = 3;
    UsageStatistics statistics(config);

    for (int i = 0; i < 2; ++i)
        QTest::ignoreMessage(QtWarningMsg, "[Statistics] event queue full (3 events): dropped the 1 oldest");
    for (const QString &name : {"e1", "e2", "e3", "e4", "e5"})
        statistics.record("shell", name, {});
    QTRY_COMPARE_WITH_TIMEOUT(namesIn(statistics.queue()), QStringList({"e3", "e4", "e5"}), WaitMs);
}

void TestUsageStatistics::optIn_data()
{
    QTest::addColumn<QVariantHash>("settings");
    QTest::addColumn<bool>("active");

    const QString url = "http://127.0.0.200:8080/collect";
    QTest::newRow("nothing set") << QVariantHash{} << false;
    QTest::newRow("url only") << QVariantHash{{"statistics/url", url}} << false;
    QTest::newRow("enabled without url") << QVariantHash{{"statistics/enabled", true}} << false;
    QTest::newRow("disabled in a file") << QVariantHash{{"statistics/enabled", "false"}, {"statistics/url", url}}
                                        << false;
    QTest::newRow("not http") << QVariantHash{{"statistics/enabled", true}, {"statistics/url", "ftp://h/x"}} << false;
    QTest::newRow("enabled in a file") << QVariantHash{{"statistics/enabled", "true"}, {"statistics/url", url}}
                                       << true;
}

void TestUsageStatistics::optIn()
{
    QFETCH(QVariantHash, settings);
    QFETCH(bool, active);
    QCOMPARE(StatisticsConfig::read(readerOf(settings)).isActive(), active);
}

void TestUsageStatistics::proxies_data()
{
    QTest::addColumn<QVariantHash>("settings");
    QTest::addColumn<QByteArray>("environmentProxy");
    QTest::addColumn<bool>("throughProxy");

    const QByteArray proxy = QByteArray("http://") + ProxyAddress + ":" + QByteArray::number(ProxyPort);
    QTest::newRow("http proxy of the settings")
        << QVariantHash{{"proxy/type", "http"}, {"proxy/host", ProxyAddress}, {"proxy/port", ProxyPort}}
        << QByteArray() << true;
    QTest::newRow("system proxy of the environment") << QVariantHash{} << proxy << true;
    QTest::newRow("no proxy despite the environment") << QVariantHash{{"proxy/type", "none"}} << proxy << false;
    QTest::newRow("incomplete settings fall back to the system")
        << QVariantHash{{"proxy/type", "http"}} << proxy << true;
}

void TestUsageStatistics::proxies()
{
    QFETCH(QVariantHash, settings);
    QFETCH(QByteArray, environmentProxy);
    QFETCH(bool, throughProxy);

    HttpRecorder service;
    HttpRecorder proxy;
    QVERIFY(service.listen(ServiceAddress));
    QVERIFY(proxy.listen(ProxyAddress, ProxyPort));
    if (!environmentProxy.isEmpty())
        qputenv("http_proxy", environmentProxy);
    const auto restore = qScopeGuard([] { qunsetenv("http_proxy"); });

    StatisticsConfig config = this->config(service.url());
    config.batchSize = 1;
    config.proxy = JsonWebService::proxyFromSettings(readerOf(settings));
    UsageStatistics statistics(config);
    statistics.record("shell", "device_id", {{"random", "false"}});
    HttpRecorder &reached = throughProxy ? proxy : service;
    QTRY_COMPARE_WITH_TIMEOUT(reached.requests.size(), 1, WaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(statistics.queue()->count(), 0, WaitMs);
    QCOMPARE(reached.events().value(0)["name"].toString(), QString("device_id"));
    QCOMPARE((throughProxy ? service : proxy).connections, 0);
    if (throughProxy)
        QCOMPARE(proxy.requests[0].target, service.url().toEncoded());
}

void TestUsageStatistics::brokenDatabaseIsHarmless_data()
{
    QTest::addColumn<QString>("brokenPath");
    QTest::newRow("corrupt file") << "statistics.sqlite";
    QTest::newRow("directory is a file") << "file/statistics.sqlite";
}

void TestUsageStatistics::brokenDatabaseIsHarmless()
{
    QFETCH(QString, brokenPath);

    const QByteArray garbage = QByteArray("not an SQLite file ").repeated(300);
    QFile blocker(m_dir->filePath(brokenPath.section('/', 0, 0)));
    QVERIFY(blocker.open(QIODevice::WriteOnly) && blocker.write(garbage) == garbage.size());
    blocker.close();

    HttpRecorder service;
    QVERIFY(service.listen(ServiceAddress));
    StatisticsConfig config = this->config(service.url());
    config.databasePath = m_dir->filePath(brokenPath);
    config.batchSize = 1;
    UsageStatistics statistics(config);

    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("cannot .* the event queue"));
    statistics.record("shell", "device_id", {{"random", "true"}});
    statistics.record("shell", "android_id", {{"random", "true"}});
    statistics.shutdown();
    QVERIFY(!statistics.queue());
    QCOMPARE(service.connections, 0);
    QVERIFY(blocker.open(QIODevice::ReadOnly));
    QCOMPARE(blocker.readAll(), garbage);
}

void TestUsageStatistics::shellRecordsOnlyWhenEnabled()
{
    DevSim device(DeviceAddress);
    QVERIFY(device.start());
    HttpRecorder service;
    QVERIFY(service.listen(ServiceAddress));

    QList<ShellResult> results;
    for (bool enabled : {false, true}) {
        ShellRunner runner;
        QSettings settings(runner.home() + "/config/Talvane/Korvex.conf", QSettings::IniFormat);
        settings.setValue("statistics/enabled", enabled);
        settings.setValue("statistics/url", service.url().toString());
        // Leave a loaded machine time to answer; the sending stops as soon as it has.
        settings.setValue("statistics/exitWaitMs", WaitMs);
        settings.sync();
        runner.environment().insert("XDG_CONFIG_HOME", runner.home() + "/config");
        const QString commands = runner.writeCommandFile(
            "commands.txt", "phone call 0600000000\nandroid setandroidid random\n");
        results.append(runShell(runner, {"-r", DeviceAddress, "-f", commands}));
        QVERIFY(results.last().finished);

        // Off: no file and no connection; on: everything acknowledged before exit.
        const QString database = runner.home() + "/Korvex/statistics.sqlite";
        QCOMPARE(QFileInfo::exists(database), enabled);
        QCOMPARE(service.events().size(), enabled ? 2 : 0);
        QCOMPARE(service.connections > 0, enabled);
        EventQueue queue(database, 10);
        QVERIFY(!enabled || (queue.open() && queue.count() == 0));
    }
    // Statistics never show on standard output.
    QCOMPARE(results[1].out, results[0].out);
    QCOMPARE(results[1].exitCode, results[0].exitCode);

    const QList<QJsonObject> events = service.events();
    QCOMPARE(events[0]["component"].toString(), QString("shell"));
    QCOMPARE(events[0]["name"].toString(), QString("baseband"));
    QCOMPARE(events[0]["properties"].toObject(), QJsonObject({{"kind", "call"}}));
    QCOMPARE(events[1]["name"].toString(), QString("android_id"));
    QCOMPARE(events[1]["properties"].toObject(), QJsonObject({{"random", "true"}}));
}

QTEST_GUILESS_MAIN(TestUsageStatistics)
#include "tst_usagestatistics.moc"
