// Kept Korvex markers: {"machines": {"<uuid>": {"name", "checked", "korvex": {key: value}}}}.
#include "markercache.h"

#include <QDateTime>
#include <QDebug>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include "homedirectory.h"

namespace {

const char FileName[] = "/vboxmanage-machines.json";
const char MachinesKey[] = "machines";
const char NameKey[] = "name";
const char CheckedKey[] = "checked";
const char KorvexKey[] = "korvex";

QJsonObject toJson(const QHash<QString, QString> &values)
{
    QJsonObject object;
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        object.insert(it.key(), it.value());
    return object;
}

QHash<QString, QString> fromJson(const QJsonObject &object)
{
    QHash<QString, QString> values;
    for (auto it = object.constBegin(); it != object.constEnd(); ++it)
        values.insert(it.key(), it.value().toString());
    return values;
}

} // namespace

MarkerCache::MarkerCache(const QString &path) : m_path(path), m_entries(read())
{
}

QString MarkerCache::defaultPath()
{
    return dataDirectory() + QLatin1String(FileName);
}

std::optional<QHash<QString, QString>> MarkerCache::lookup(const QString &uuid, const QString &name) const
{
    const auto it = m_entries.constFind(uuid);
    if (it == m_entries.constEnd() || it->name != name)
        return std::nullopt;
    const qint64 age = QDateTime::currentSecsSinceEpoch() - it->checked;
    if (age < 0 || age >= TrustSeconds)
        return std::nullopt;
    return it->korvexData;
}

void MarkerCache::store(const QString &uuid, const QString &name, const QHash<QString, QString> &korvexData)
{
    m_entries.insert(uuid, Entry{name, QDateTime::currentSecsSinceEpoch(), korvexData});
    m_changed.insert(uuid);
}

void MarkerCache::save(const QSet<QString> &registered)
{
    bool pruned = false;
    for (auto it = m_entries.begin(); it != m_entries.end();) {
        if (registered.contains(it.key())) {
            ++it;
        } else {
            it = m_entries.erase(it);
            pruned = true;
        }
    }
    if (m_path.isEmpty() || (m_changed.isEmpty() && !pruned))
        return;

    // Another shell may have saved since this one read the file: keep its entries.
    Entries merged = read();
    for (auto it = merged.begin(); it != merged.end();)
        it = registered.contains(it.key()) ? std::next(it) : merged.erase(it);
    for (const QString &uuid : qAsConst(m_changed)) {
        if (m_entries.contains(uuid))
            merged.insert(uuid, m_entries.value(uuid));
    }

    QJsonObject machines;
    for (auto it = merged.cbegin(); it != merged.cend(); ++it) {
        machines.insert(it.key(), QJsonObject{{QLatin1String(NameKey), it->name},
                                              {QLatin1String(CheckedKey), it->checked},
                                              {QLatin1String(KorvexKey), toJson(it->korvexData)}});
    }
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly)
        || file.write(QJsonDocument(QJsonObject{{QLatin1String(MachinesKey), machines}}).toJson(
               QJsonDocument::Compact))
            < 0
        || !file.commit()) {
        qDebug() << "[VBox]" << "Machine cache not saved:" << m_path << file.errorString();
        return;
    }
    m_changed.clear();
}

MarkerCache::Entries MarkerCache::read() const
{
    Entries entries;
    QFile file(m_path);
    if (m_path.isEmpty() || !file.open(QIODevice::ReadOnly))
        return entries;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError) {
        qDebug() << "[VBox]" << "Machine cache ignored:" << m_path << error.errorString();
        return entries;
    }
    const QJsonObject machines = document.object().value(QLatin1String(MachinesKey)).toObject();
    for (auto it = machines.constBegin(); it != machines.constEnd(); ++it) {
        const QJsonObject machine = it.value().toObject();
        entries.insert(it.key(), Entry{machine.value(QLatin1String(NameKey)).toString(),
                                       qint64(machine.value(QLatin1String(CheckedKey)).toDouble()),
                                       fromJson(machine.value(QLatin1String(KorvexKey)).toObject())});
    }
    return entries;
}
