// Usage statistics as a user meets them: nothing stored or sent unless the
// settings opt in, and events queued while the service is down sent by a later run.
#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QSettings>
#include <QTcpServer>
#include <QTcpSocket>

#include "devsim.h"
#include "eventqueue.h"
#include "shellrunner.h"

namespace {

const char ServiceAddress[] = "127.0.0.200";

// Answers each HTTP request, once its JSON body is whole, with 200 and "{}".
class Service : public QTcpServer
{
public:
    Service()
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            QTcpSocket *socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
                received += socket->readAll();
                if (received.trimmed().endsWith('}'))
                    socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 2\r\n\r\n{}");
            });
        });
    }
    // Names of the events posted, in order.
    QStringList events() const
    {
        QStringList names;
        auto it = QRegularExpression("\"name\" *: *\"(\\w+)\"").globalMatch(received);
        while (it.hasNext())
            names << it.next().captured(1);
        return names;
    }
    QByteArray received;
};

} // namespace

class TestUsageStatistics : public QObject
{
    Q_OBJECT

private slots:
    void optInAndQueue();
};

void TestUsageStatistics::optInAndQueue()
{
    const auto device = DevSim::startFree(203, 4);
    QVERIFY(device);
    Service service;
    QVERIFY(service.listen(QHostAddress(ServiceAddress)));
    const auto url = [&](int offset) {
        return QString("http://%1:%2/collect").arg(ServiceAddress).arg(service.serverPort() + offset);
    };
    ShellRunner runner;
    runner.environment().insert("XDG_CONFIG_HOME", runner.home() + "/config");
    const QString commands = runner.writeCommandFile("commands.txt", "phone call 0600000000\nandroid setandroidid random\n");
    const QString database = runner.home() + "/Korvex/statistics.sqlite";

    // Runs the shell while this thread serves the HTTP requests.
    const auto run = [&](bool enabled, const QString &serviceUrl) {
        QSettings settings(runner.home() + "/config/Talvane/Korvex.conf", QSettings::IniFormat);
        settings.setValue("statistics/enabled", enabled);
        settings.setValue("statistics/url", serviceUrl);
        settings.setValue("statistics/exitWaitMs", 10000);
        settings.sync();
        QProcess shell;
        QEventLoop loop;
        connect(&shell, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), &loop, &QEventLoop::quit);
        QTimer::singleShot(30000, &loop, &QEventLoop::quit);
        shell.setProcessEnvironment(runner.environment());
        shell.start(ShellRunner::shellBinary(), {"-r", device->address(), "-f", commands});
        loop.exec();
        return shell.readAllStandardOutput();
    };
    const auto queued = [&] {
        EventQueue queue(database, 100);
        return queue.open() ? queue.oldest(100).size() : -1;
    };

    const QByteArray off = run(false, url(0));
    QVERIFY(!QFileInfo::exists(database));
    QCOMPARE(service.received, QByteArray());

    // Nothing listens on the service's port + 1.
    QCOMPARE(run(true, url(1)), off);
    QCOMPARE(queued(), 2);
    QCOMPARE(service.received, QByteArray());

    QCOMPARE(run(true, url(0)), off);
    QCOMPARE(service.events(), (QStringList{"baseband", "android_id", "baseband", "android_id"}));
    QCOMPARE(queued(), 0);
}

QTEST_GUILESS_MAIN(TestUsageStatistics)
#include "tst_usagestatistics.moc"
