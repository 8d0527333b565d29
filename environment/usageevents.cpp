// Usage-event hook: forwards events to the installed sink, if any. start()
// brings up the usage statistics when the settings stores enable them.
#include "usageevents.h"

#include <QCoreApplication>
#include <QMutex>
#include <QMutexLocker>
#include <QPointer>

#include "usagestatistics.h"

namespace UsageEvents {
namespace {
QMutex s_lock;
Sink *s_sink = nullptr;
QString s_component;
} // namespace

void start(const QString &component)
{
    {
        QMutexLocker locker(&s_lock);
        s_component = component;
    }
    // Owned by the application, so it goes before the application does.
    static QPointer<UsageStatistics> statistics;
    if (!statistics)
        statistics = UsageStatistics::fromSettings(QCoreApplication::instance());
    if (statistics)
        setSink(statistics);
}

void setSink(Sink *sink)
{
    QMutexLocker locker(&s_lock);
    s_sink = sink;
}

void record(const QString &name, const Properties &properties)
{
    QMutexLocker locker(&s_lock);
    if (s_sink && !s_component.isEmpty())
        s_sink->record(s_component, name, properties);
}

} // namespace UsageEvents
