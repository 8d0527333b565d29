// The usage statistics' queue: events waiting to be sent, kept in an SQLite
// file so that they outlive the process. Used on one thread only (Qt's SQL
// connections are bound to the thread that opened them).
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
    EventQueue(const QString &path, int maxEvents);
    ~EventQueue();
    EventQueue(const EventQueue &) = delete;
    EventQueue &operator=(const EventQueue &) = delete;

    // Opens (creating) the file and its table; false, logged, when it is unusable.
    bool open();
    bool isOpen() const { return m_open; }

    // Stores the event, then drops the oldest ones beyond the bound.
    bool append(const QueuedEvent &event);
    QList<QueuedEvent> oldest(int limit) const;
    bool remove(const QList<qint64> &rows);
    int count() const;

private:
    bool exec(const QString &statement) const;
    void logFailure(const QString &what, const QString &error) const;

    const QString m_path;
    const int m_maxEvents;
    const QString m_connection;
    bool m_open = false;
};
