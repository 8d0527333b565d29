// Sends the queued usage events to the statistics service as JSON batches. A
// batch is claimed in the queue before it goes, so that no other shell sends
// it too, and leaves the queue only once the service acknowledged it (HTTP
// 2xx), so a service that is down, slow or failing loses nothing; a failed
// batch is given back and retried after a delay that doubles up to a ceiling.
// Lives on a thread with an event loop (the main thread).
#pragma once

#include <QList>
#include <QObject>
#include <QTimer>

#include "jsonwebservice.h"
#include "statisticsconfig.h"

class EventQueue;
struct QueuedEvent;
class QJsonDocument;
class QNetworkReply;

class StatisticsSender : public QObject
{
    Q_OBJECT

public:
    // The queue must be open and outlive the sender.
    StatisticsSender(EventQueue *queue, const StatisticsConfig &config, QObject *parent = nullptr);
    ~StatisticsSender() override;

    // Sends what earlier runs left in the queue.
    void start();
    // A new event is queued: a full batch goes at once, a partial one after the gathering delay.
    void eventQueued();
    // Last sending before exit: what is queued goes out for at most boundMs; a
    // batch still unanswered then is abandoned and stays queued. Nothing is sent
    // afterwards.
    void flushAtExit(int boundMs);

signals:
    // Nothing in flight and nothing to send before the next timer.
    void idle();

private:
    void sendBatch();
    void onReplyFinished();
    bool backingOff() const { return m_retryDelayMs > 0 && m_timer.isActive(); }
    void dropReply();

    EventQueue *const m_queue;
    const StatisticsConfig m_config;
    JsonWebService m_service;
    QTimer m_timer; // gathering delay or retry delay
    QNetworkReply *m_reply = nullptr;
    QList<qint64> m_rowsInFlight;
    int m_retryDelayMs = 0; // non-zero since the last failure
};
