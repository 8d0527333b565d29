// SQLite queue of usage events, shared by every shell of the user.
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
#include <QUuid>
#include <QVariant>

namespace {

const char Driver[] = "QSQLITE";
const char DriverPlugin[] = "/sqldrivers/libqsqlite";
// Another shell may hold the file while it writes; wait for it rather than
// fail, within a bound that several busy shells stay well inside.
const char ConnectOptions[] = "QSQLITE_BUSY_TIMEOUT=10000";

const char CreateTable[] =
    "CREATE TABLE IF NOT EXISTS events ("
    " seq INTEGER PRIMARY KEY AUTOINCREMENT,"
    " id TEXT NOT NULL,"
    " component TEXT NOT NULL,"
    " name TEXT NOT NULL,"
    " properties TEXT NOT NULL,"
    " timestamp TEXT NOT NULL,"
    " claimed_by TEXT,"
    " claimed_at INTEGER)";
// Queues of earlier releases have no claim columns.
const char *const ClaimColumns[] = {"claimed_by TEXT", "claimed_at INTEGER"};
// Rows nobody holds, or held by a claim older than the bound.
const char Claimable[] = "claimed_by IS NULL OR claimed_at < ?";
const char Columns[] = "seq, id, component, name, properties, timestamp";

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

QString rowList(const QList<qint64> &rows)
{
    QStringList numbers;
    for (qint64 row : rows)
        numbers.append(QString::number(row));
    return numbers.join(',');
}

} // namespace

EventQueue::EventQueue(const QString &path, int maxEvents, int staleClaimMs)
    : m_path(path), m_maxEvents(maxEvents), m_staleClaimMs(staleClaimMs), m_connection(uniqueConnectionName()),
      m_claimant(QUuid::createUuid().toString(QUuid::WithoutBraces))
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
    m_open = exec(CreateTable) && upgradeSchema();
    if (!m_open)
        db.close();
    return m_open;
}

bool EventQueue::upgradeSchema()
{
    QSqlQuery columns(QSqlDatabase::database(m_connection, false));
    if (!columns.exec("PRAGMA table_info(events)")) {
        logFailure("read the columns of", columns.lastError().text());
        return false;
    }
    QStringList present;
    while (columns.next())
        present << columns.value(1).toString();
    for (const char *column : ClaimColumns) {
        const QString name = QString::fromLatin1(column).section(' ', 0, 0);
        if (present.contains(name))
            continue;
        // Another shell may be adding it at the same moment: then it is there.
        QSqlQuery add(QSqlDatabase::database(m_connection, false));
        QSqlQuery check(QSqlDatabase::database(m_connection, false));
        if (!add.exec(QString("ALTER TABLE events ADD COLUMN %1").arg(column))
            && !check.exec(QString("SELECT %1 FROM events LIMIT 0").arg(name))) {
            logFailure("upgrade", add.lastError().text());
            return false;
        }
    }
    return true;
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

QList<QueuedEvent> EventQueue::claim(int limit)
{
    if (!m_open)
        return {};
    // The write lock is taken at once, so two shells never claim the same rows.
    if (!exec("BEGIN IMMEDIATE"))
        return {};
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    QSqlQuery take(QSqlDatabase::database(m_connection, false));
    take.prepare(QString("UPDATE events SET claimed_by = ?, claimed_at = ? WHERE seq IN"
                         " (SELECT seq FROM events WHERE %1 ORDER BY seq LIMIT ?)").arg(Claimable));
    take.addBindValue(m_claimant);
    take.addBindValue(now);
    take.addBindValue(now - m_staleClaimMs);
    take.addBindValue(limit);
    if (!take.exec()) {
        logFailure("claim events in", take.lastError().text());
        exec("ROLLBACK");
        return {};
    }
    const QList<QueuedEvent> events = claimed();
    if (!exec("COMMIT")) {
        exec("ROLLBACK");
        return {};
    }
    return events;
}

QList<QueuedEvent> EventQueue::claimed() const
{
    QList<QueuedEvent> events;
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    query.prepare(QString("SELECT %1 FROM events WHERE claimed_by = ? ORDER BY seq").arg(Columns));
    query.addBindValue(m_claimant);
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
    return exec(QString("DELETE FROM events WHERE seq IN (%1)").arg(rowList(rows)));
}

bool EventQueue::release(const QList<qint64> &rows)
{
    if (!m_open || rows.isEmpty())
        return m_open;
    // Only this shell's claims: a row another shell took over stays its.
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    query.prepare(QString("UPDATE events SET claimed_by = NULL, claimed_at = NULL"
                          " WHERE claimed_by = ? AND seq IN (%1)").arg(rowList(rows)));
    query.addBindValue(m_claimant);
    if (query.exec())
        return true;
    logFailure("release events in", query.lastError().text());
    return false;
}

int EventQueue::claimable() const
{
    if (!m_open)
        return 0;
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    query.prepare(QString("SELECT COUNT(*) FROM events WHERE %1").arg(Claimable));
    query.addBindValue(QDateTime::currentMSecsSinceEpoch() - m_staleClaimMs);
    if (!query.exec() || !query.next()) {
        logFailure("count", query.lastError().text());
        return 0;
    }
    return query.value(0).toInt();
}
