// The usage statistics component: the sink of the usage-event hook when the
// settings stores enable statistics. Events from any thread are handed to the
// object's thread (the main thread, which runs the event loop), stored in the
// queue and sent in batches; at exit the sender gets one short, bounded try.
#pragma once

#include <memory>

#include <QObject>

#include "statisticsconfig.h"
#include "usageevents.h"

class EventQueue;
class StatisticsSender;
struct QueuedEvent;

class UsageStatistics : public QObject, public UsageEvents::Sink
{
    Q_OBJECT

public:
    // The component the stores enable, on the application's thread; nullptr
    // when statistics are off, in which case nothing at all is set up.
    static UsageStatistics *fromSettings(QObject *parent);

    explicit UsageStatistics(const StatisticsConfig &config, QObject *parent = nullptr);
    ~UsageStatistics() override;

    // Thread-safe: timestamps the event and hands it to the object's thread.
    void record(const QString &component, const QString &name,
                const UsageEvents::Properties &properties) override;

    // Sends what earlier runs left in the queue.
    void resume();

    // Called when the application is about to quit: stores the events still on
    // their way, makes the last bounded sending and stops taking events.
    void shutdown();

private:
    // The queue, opened on first use; nullptr when it is unusable.
    EventQueue *queue();
    void store(const QueuedEvent &event);
    StatisticsSender *sender();

    const StatisticsConfig m_config;
    std::unique_ptr<EventQueue> m_queue;
    bool m_queueTried = false;
    std::unique_ptr<StatisticsSender> m_sender; // destroyed before the queue it uses
    bool m_shutDown = false;
};
