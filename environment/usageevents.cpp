// Usage-event hook: forwards events to the installed sink, if any.
#include "usageevents.h"

#include <QMutex>
#include <QMutexLocker>

namespace UsageEvents {
namespace {
QMutex s_lock;
Sink *s_sink = nullptr;
QString s_component;
} // namespace

void start(const QString &component)
{
    QMutexLocker locker(&s_lock);
    s_component = component;
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
