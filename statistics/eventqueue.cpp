// SQLite queue of usage events.
#include "eventqueue.h"

#include <atomic>

#include <QDebug>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLibraryInfo>
#include <QPluginLoader>
#include <QSqlDatabase>
#include <QSqlDriverPlugin>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QVariant>

namespace {

const char Driver[] = "QSQLITE";
const char DriverPlugin[] = "/sqldrivers/libqsqlite";
// Another shell may hold the file for a moment; wait for it rather than fail.
const char ConnectOptions[] = "QSQLITE_BUSY_TIMEOUT=2000";

const char CreateTable[] =
    "CREATE TABLE IF NOT EXISTS events ("
    " seq INTEGER PRIMARY KEY AUTOINCREMENT,"
    " id TEXT NOT NULL,"
    " component TEXT NOT NULL,"
    " name TEXT NOT NULL,"
    " properties TEXT NOT NULL,"
    " timestamp TEXT NOT NULL)";

QString uniqueConnectionName()
{
    static std::atomic<int> counter{0};
    return QString("korvex-statistics-%1").arg(++counter);
}

// The shell narrows the library paths to its own directory, which hides Qt's
// SQL drivers: then the SQLite plug-in of the Qt installation is loaded directly.
QSqlDatabase addSqliteDatabase(const QString &connection)
{
    if (QSqlDatabase::isDriverAvailable(Driver))
        return QSqlDatabase::addDatabase(Driver, connection);
    QPluginLoader loader(QLibraryInfo::location(QLibraryInfo::PluginsPath) + DriverPlugin);
    auto *plugin = qobject_cast<QSqlDriverPlugin *>(loader.instance());
    QSqlDriver *driver = plugin ? plugin->create(Driver) : nullptr;
    if (!driver)
        return {};
    return QSqlDatabase::addDatabase(driver, connection);
}

QString encodeProperties(const QMap<QString, QString> &properties)
{
    QJsonObject object;
    for (auto it = properties.constBegin(); it != properties.constEnd(); ++it)
        object.insert(it.key(), it.value());
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QMap<QString, QString> decodeProperties(const QString &text)
{
    QMap<QString, QString> properties;
    const QJsonObject object = QJsonDocument::fromJson(text.toUtf8()).object();
    for (auto it = object.constBegin(); it != object.constEnd(); ++it)
        properties.insert(it.key(), it.value().toString());
    return properties;
}

} // namespace

EventQueue::EventQueue(const QString &path, int maxEvents)
    : m_path(path), m_maxEvents(maxEvents), m_connection(uniqueConnectionName())
{
}

EventQueue::~EventQueue()
{
    if (!QSqlDatabase::contains(m_connection))
        return;
    QSqlDatabase::database(m_connection, false).close();
    QSqlDatabase::removeDatabase(m_connection);
}

bool EventQueue::open()
{
    if (m_open)
        return true;
    QSqlDatabase db = QSqlDatabase::contains(m_connection) ? QSqlDatabase::database(m_connection, false)
                                                           : addSqliteDatabase(m_connection);
    if (!db.isValid()) {
        logFailure("open", "no SQLite driver");
        return false;
    }
    db.setDatabaseName(m_path);
    db.setConnectOptions(ConnectOptions);
    if (!db.open()) {
        logFailure("open", db.lastError().text());
        return false;
    }
    // SQLite opens any file lazily: a damaged one shows only at the first statement.
    m_open = exec(CreateTable);
    if (!m_open)
        db.close();
    return m_open;
}

bool EventQueue::exec(const QString &statement) const
{
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    if (query.exec(statement))
        return true;
    logFailure("run a statement on", query.lastError().text());
    return false;
}

void EventQueue::logFailure(const QString &what, const QString &error) const
{
    qWarning().noquote() << QString("[Statistics] cannot %1 the event queue \"%2\": %3").arg(what, m_path, error);
}

bool EventQueue::append(const QueuedEvent &event)
{
    if (!m_open)
        return false;
    QSqlDatabase db = QSqlDatabase::database(m_connection, false);
    QSqlQuery insert(db);
    insert.prepare("INSERT INTO events (id, component, name, properties, timestamp)"
                   " VALUES (?, ?, ?, ?, ?)");
    insert.addBindValue(event.id);
    insert.addBindValue(event.component);
    insert.addBindValue(event.name);
    insert.addBindValue(encodeProperties(event.properties));
    insert.addBindValue(event.timestamp.toUTC().toString(Qt::ISODateWithMs));
    if (!insert.exec()) {
        logFailure("store an event in", insert.lastError().text());
        return false;
    }

    QSqlQuery trim(db);
    // Everything up to the first event beyond the bound, counted from the newest.
    trim.prepare("DELETE FROM events WHERE seq <="
                 " (SELECT seq FROM events ORDER BY seq DESC LIMIT 1 OFFSET ?)");
    trim.addBindValue(m_maxEvents);
    if (!trim.exec())
        logFailure("trim", trim.lastError().text());
    else if (trim.numRowsAffected() > 0)
        qWarning().noquote() << QString("[Statistics] event queue full (%1 events): dropped the %2 oldest")
                                    .arg(m_maxEvents).arg(trim.numRowsAffected());
    return true;
}

QList<QueuedEvent> EventQueue::oldest(int limit) const
{
    QList<QueuedEvent> events;
    if (!m_open)
        return events;
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    query.prepare("SELECT seq, id, component, name, properties, timestamp FROM events"
                  " ORDER BY seq LIMIT ?");
    query.addBindValue(limit);
    if (!query.exec()) {
        logFailure("read", query.lastError().text());
        return events;
    }
    while (query.next()) {
        QueuedEvent event;
        event.row = query.value(0).toLongLong();
        event.id = query.value(1).toString();
        event.component = query.value(2).toString();
        event.name = query.value(3).toString();
        event.properties = decodeProperties(query.value(4).toString());
        event.timestamp = QDateTime::fromString(query.value(5).toString(), Qt::ISODateWithMs);
        events.append(event);
    }
    return events;
}

bool EventQueue::remove(const QList<qint64> &rows)
{
    if (!m_open || rows.isEmpty())
        return m_open;
    QStringList numbers;
    for (qint64 row : rows)
        numbers.append(QString::number(row));
    return exec(QString("DELETE FROM events WHERE seq IN (%1)").arg(numbers.join(',')));
}

int EventQueue::count() const
{
    if (!m_open)
        return 0;
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    if (!query.exec("SELECT COUNT(*) FROM events") || !query.next()) {
        logFailure("count", query.lastError().text());
        return 0;
    }
    return query.value(0).toInt();
}
