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

// Answers every HTTP request with 200 and keeps the names of the events posted.
class Service : public QTcpServer
{
public:
    Service()
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = nextPendingConnection()) {
                ++connections;
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
            }
        });
    }
    QStringList events;
    int connections = 0;

private:
    void read(QTcpSocket *socket)
    {
        QByteArray &buffer = m_buffers[socket];
        buffer += socket->readAll();
        const int headerEnd = buffer.indexOf("\r\n\r\n");
        const auto length = QRegularExpression("(?i)content-length: *(\\d+)").match(buffer.left(headerEnd));
        if (headerEnd < 0 || buffer.size() < headerEnd + 4 + length.captured(1).toInt())
            return;
        for (const QJsonValue &event : QJsonDocument::fromJson(buffer.mid(headerEnd + 4))["events"].toArray())
            events << event["name"].toString();
        buffer.clear();
        socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 2\r\n\r\n{}");
    }
    QHash<QTcpSocket *, QByteArray> m_buffers;
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
    const QString url = QString("http://%1:%2/collect").arg(ServiceAddress).arg(service.serverPort());
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

    const QByteArray off = run(false, url);
    QVERIFY(!QFileInfo::exists(database));
    QCOMPARE(service.connections, 0);

    // Nothing listens on the service's port + 1.
    QCOMPARE(run(true, QString(url).replace(QString::number(service.serverPort()),
                                             QString::number(service.serverPort() + 1))), off);
    QCOMPARE(queued(), 2);
    QCOMPARE(service.connections, 0);

    QCOMPARE(run(true, url), off);
    QCOMPARE(service.events, (QStringList{"baseband", "android_id", "baseband", "android_id"}));
    QCOMPARE(queued(), 0);
}

QTEST_GUILESS_MAIN(TestUsageStatistics)
#include "tst_usagestatistics.moc"
