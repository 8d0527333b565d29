// Batched, acknowledged sending of usage events.
#include "statisticssender.h"

#include <QCoreApplication>
#include <QDebug>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>

#include "eventqueue.h"

StatisticsSender::StatisticsSender(EventQueue *queue, const StatisticsConfig &config, QObject *parent)
    : QObject(parent), m_queue(queue), m_config(config), m_service(config.proxy)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &StatisticsSender::sendBatch);
}

StatisticsSender::~StatisticsSender()
{
    dropReply();
}

namespace {

// The request body of a batch.
QJsonDocument batchDocument(const QList<QueuedEvent> &events)
{
    QJsonArray array;
    for (const QueuedEvent &event : events) {
        QJsonObject properties;
        for (auto it = event.properties.constBegin(); it != event.properties.constEnd(); ++it)
            properties.insert(it.key(), it.value());
        array.append(QJsonObject{
            {"id", event.id},
            {"component", event.component},
            {"name", event.name},
            {"timestamp", event.timestamp.toUTC().toString(Qt::ISODateWithMs)},
            {"properties", properties},
        });
    }
    return QJsonDocument(QJsonObject{
        {"application", QCoreApplication::applicationName()},
        {"version", QCoreApplication::applicationVersion()},
        {"events", array},
    });
}

} // namespace

void StatisticsSender::start()
{
    if (!m_reply && !backingOff() && m_queue->claimable() > 0)
        sendBatch();
}

void StatisticsSender::eventQueued()
{
    // A reply in flight or a pending retry picks the new event up.
    if (m_reply || backingOff())
        return;
    if (m_queue->claimable() >= m_config.batchSize)
        sendBatch();
    else if (!m_timer.isActive())
        m_timer.start(m_config.gatherMs);
}

void StatisticsSender::flushAtExit(int boundMs)
{
    if (!m_reply && !backingOff() && boundMs > 0)
        sendBatch();
    m_timer.stop();
    if (m_reply) {
        QEventLoop loop;
        connect(this, &StatisticsSender::idle, &loop, &QEventLoop::quit);
        QTimer::singleShot(boundMs, &loop, &QEventLoop::quit);
        loop.exec();
        m_timer.stop();
    }
    if (m_reply) {
        qWarning().noquote() << QString("[Statistics] no answer from the service before exit: %1 events stay queued")
                                    .arg(m_rowsInFlight.size());
        dropReply();
    }
}

void StatisticsSender::sendBatch()
{
    m_timer.stop();
    const QList<QueuedEvent> events = m_queue->claim(m_config.batchSize);
    if (events.isEmpty()) {
        emit idle();
        return;
    }
    m_rowsInFlight.clear();
    for (const QueuedEvent &event : events)
        m_rowsInFlight.append(event.row);
    m_reply = m_service.post(m_config.serviceUrl, batchDocument(events), m_config.requestTimeoutMs);
    connect(m_reply, &QNetworkReply::finished, this, &StatisticsSender::onReplyFinished);
}

void StatisticsSender::onReplyFinished()
{
    QNetworkReply *reply = m_reply;
    m_reply = nullptr;
    reply->deleteLater();

    if (JsonWebService::succeeded(reply)) {
        qDebug().noquote() << QString("[Statistics] the service acknowledged %1 events").arg(m_rowsInFlight.size());
        m_queue->remove(m_rowsInFlight);
        m_rowsInFlight.clear();
        m_retryDelayMs = 0;
        // Whatever is left has waited long enough already.
        if (m_queue->claimable() > 0) {
            sendBatch();
            return;
        }
    } else {
        m_retryDelayMs = m_retryDelayMs == 0 ? m_config.firstRetryMs
                                             : qMin(2 * m_retryDelayMs, m_config.maxRetryMs);
        qWarning().noquote() << QString("[Statistics] could not send %1 events (%2): retrying in %3 s")
                                    .arg(m_rowsInFlight.size())
                                    .arg(JsonWebService::failure(reply))
                                    .arg(m_retryDelayMs / 1000.0);
        m_queue->release(m_rowsInFlight);
        m_rowsInFlight.clear();
        m_timer.start(m_retryDelayMs);
    }
    emit idle();
}

void StatisticsSender::dropReply()
{
    if (!m_reply)
        return;
    m_reply->disconnect(this);
    m_reply->abort();
    m_reply->deleteLater();
    m_reply = nullptr;
    // Unanswered: the next shell, or the next run, sends them.
    m_queue->release(m_rowsInFlight);
    m_rowsInFlight.clear();
}
