// The Korvex extra data of each machine, kept by machine UUID in the product
// data directory, so that a listing asks VBoxManage for the marker only of
// machines it has not seen lately. Several shells may list one host at once:
// the file is replaced whole (written beside it, then renamed over it), and
// each save merges what other shells wrote meanwhile.
#pragma once

#include <QHash>
#include <QSet>
#include <QString>

#include <optional>

class MarkerCache
{
public:
    // A machine made a device (or no longer one) by `setextradata` after a
    // listing is seen again at most this long after it.
    static constexpr qint64 TrustSeconds = 15 * 60;

    // Empty path: kept in memory only.
    explicit MarkerCache(const QString &path);

    // The Korvex keys of the machine as last read, if that was under this name
    // within TrustSeconds; an empty hash means it is not a device.
    std::optional<QHash<QString, QString>> lookup(const QString &uuid, const QString &name) const;
    void store(const QString &uuid, const QString &name, const QHash<QString, QString> &korvexData);
    // Forgets machines that are no longer registered and writes the file when
    // anything changed since it was read.
    void save(const QSet<QString> &registered);

    // The file in the product data directory.
    static QString defaultPath();

private:
    struct Entry
    {
        QString name;
        qint64 checked = 0; // seconds since the epoch
        QHash<QString, QString> korvexData;
    };
    using Entries = QHash<QString, Entry>;

    Entries read() const;

    const QString m_path;
    Entries m_entries;
    QSet<QString> m_changed; // UUIDs stored since the file was read
};
