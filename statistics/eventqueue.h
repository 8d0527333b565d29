// The usage statistics' queue: events waiting to be sent, kept in an SQLite
// file so that they outlive the process. Every shell of the user shares the
// file: a shell claims the rows it sends, so no row goes out twice, and rows
// claimed by a shell that died are claimed again once the claim is stale.
// Used on one thread only (Qt's SQL connections are bound to the thread that
// opened them).
#pragma once

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QString>

struct QueuedEvent
{
    qint64 row = 0;   // assigned by the queue; orders the events oldest first
    QString id;       // unique per event, so the service can drop a batch it already has
    QString component;
    QString name;
    QMap<QString, QString> properties;
    QDateTime timestamp; // UTC
};

class EventQueue
{
public:
    // Claims older than staleClaimMs are taken to belong to a shell that died.
    EventQueue(const QString &path, int maxEvents, int staleClaimMs);
    ~EventQueue();
    EventQueue(const EventQueue &) = delete;
    EventQueue &operator=(const EventQueue &) = delete;

    // Opens (creating or upgrading) the file and its table; false, logged,
    // when it is unusable.
    bool open();

    // Stores the event, then drops the oldest ones beyond the bound.
    bool append(const QueuedEvent &event);
    // Claims up to limit of the oldest rows nobody holds (or whose claim is
    // stale) for this queue, in one transaction, and returns them.
    QList<QueuedEvent> claim(int limit);
    // Sent: the rows go. Not sent: the claim is given up for any shell to take.
    bool remove(const QList<qint64> &rows);
    bool release(const QList<qint64> &rows);
    // Rows that claim() would take now.
    int claimable() const;

private:
    bool exec(const QString &statement) const;
    bool upgradeSchema();
    QList<QueuedEvent> claimed() const;
    void logFailure(const QString &what, const QString &error) const;

    const QString m_path;
    const int m_maxEvents;
    const int m_staleClaimMs;
    const QString m_connection;
    const QString m_claimant; // this queue's mark on the rows it claimed
    bool m_open = false;
};
