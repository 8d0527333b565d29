// Hook through which commands and start-up report what they did as named
// usage events with text properties. Without a sink the events are dropped.
#pragma once

#include <QMap>
#include <QString>

namespace UsageEvents {

using Properties = QMap<QString, QString>;

class Sink
{
public:
    virtual ~Sink() = default;
    virtual void record(const QString &component, const QString &name, const Properties &properties) = 0;
};

// Start recording for a component tag ("shell"); events before this are dropped.
void start(const QString &component);
// Installs the sink (not owned); nullptr drops events again.
void setSink(Sink *sink);
void record(const QString &name, const Properties &properties = {});

} // namespace UsageEvents
