// Usage statistics component: hand-over between threads, queue and sender.
#include "usagestatistics.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QTimer>
#include <QUuid>

#include "eventqueue.h"
#include "statisticssender.h"

UsageStatistics *UsageStatistics::fromSettings(QObject *parent)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app)
        return nullptr;
    const StatisticsConfig config = StatisticsConfig::fromSettings();
    if (!config.isActive())
        return nullptr;
    qDebug().noquote() << QString("[Statistics] on: queue \"%1\", service %2")
                              .arg(config.databasePath, config.serviceUrl.toDisplayString(QUrl::RemoveUserInfo));
    auto *statistics = new UsageStatistics(config);
    statistics->moveToThread(app->thread());
    statistics->setParent(parent);
    connect(app, &QCoreApplication::aboutToQuit, statistics, &UsageStatistics::shutdown);
    // What earlier runs left goes out as soon as the event loop runs.
    QTimer::singleShot(0, statistics, &UsageStatistics::resume);
    return statistics;
}

UsageStatistics::UsageStatistics(const StatisticsConfig &config, QObject *parent)
    : QObject(parent), m_config(config)
{
}

UsageStatistics::~UsageStatistics()
{
    UsageEvents::setSink(nullptr);
}

void UsageStatistics::record(const QString &component, const QString &name,
                             const UsageEvents::Properties &properties)
{
    QueuedEvent event;
    event.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    event.component = component;
    event.name = name;
    event.properties = properties;
    event.timestamp = QDateTime::currentDateTimeUtc();
    QMetaObject::invokeMethod(this, [this, event] { store(event); }, Qt::QueuedConnection);
}

void UsageStatistics::resume()
{
    if (StatisticsSender *sender = this->sender(); sender && !m_shutDown)
        sender->start();
}

void UsageStatistics::shutdown()
{
    if (m_shutDown)
        return;
    m_shutDown = true;
    UsageEvents::setSink(nullptr);
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    if (StatisticsSender *sender = this->sender())
        sender->flushAtExit(m_config.exitFlushMs);
}

EventQueue *UsageStatistics::queue()
{
    if (!m_queueTried) {
        m_queueTried = true;
        auto queue = std::make_unique<EventQueue>(m_config.databasePath, m_config.maxEvents,
                                                  m_config.claimTimeoutMs);
        if (queue->open())
            m_queue = std::move(queue);
    }
    return m_queue.get();
}

StatisticsSender *UsageStatistics::sender()
{
    if (!m_sender && queue())
        m_sender = std::make_unique<StatisticsSender>(m_queue.get(), m_config);
    return m_sender.get();
}

void UsageStatistics::store(const QueuedEvent &event)
{
    EventQueue *queue = this->queue();
    if (!queue || !queue->append(event))
        return;
    if (!m_shutDown)
        sender()->eventQueued();
}
