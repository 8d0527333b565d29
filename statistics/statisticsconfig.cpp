// Statistics settings: keys, defaults and validation.
#include "statisticsconfig.h"

#include <QDebug>

#include "homedirectory.h"
#include "jsonwebservice.h"

namespace {

const char EnabledKey[] = "statistics/enabled";
const char UrlKey[] = "statistics/url";
const char MaxEventsKey[] = "statistics/maxEvents";
const char BatchSizeKey[] = "statistics/batchSize";

const char DatabaseFileName[] = "/statistics.sqlite";

const int MaxQueueBound = 100000;
const int MaxBatchSize = 1000;

// A whole number from 1 to upper, else the fallback (with a warning for a bad value).
int boundedCount(const SettingsReader &value, const char *key, int fallback, int upper)
{
    const QVariant raw = value(key, fallback);
    bool ok = false;
    const int number = raw.toInt(&ok);
    if (ok && number >= 1 && number <= upper)
        return number;
    qWarning().noquote() << QString("[Statistics] %1 = \"%2\" is not a number from 1 to %3; using %4")
                                .arg(key, raw.toString()).arg(upper).arg(fallback);
    return fallback;
}

} // namespace

bool StatisticsConfig::isActive() const
{
    const QString scheme = serviceUrl.scheme();
    return enabled && serviceUrl.isValid() && !serviceUrl.host().isEmpty()
           && (scheme == "http" || scheme == "https");
}

StatisticsConfig StatisticsConfig::read(const SettingsReader &value)
{
    StatisticsConfig config;
    config.enabled = value(EnabledKey, false).toBool();
    if (!config.enabled)
        return config;
    config.serviceUrl = QUrl(value(UrlKey, QString()).toString().trimmed());
    if (!config.isActive()) {
        qWarning().noquote() << QString("[Statistics] enabled, but %1 is not an http(s) URL: statistics stay off")
                                    .arg(UrlKey);
        return config;
    }
    config.maxEvents = boundedCount(value, MaxEventsKey, config.maxEvents, MaxQueueBound);
    config.batchSize = boundedCount(value, BatchSizeKey, config.batchSize, MaxBatchSize);
    config.proxy = JsonWebService::proxyFromSettings(value);
    return config;
}

StatisticsConfig StatisticsConfig::fromSettings()
{
    StatisticsConfig config = read(storeSettingsReader());
    // The data directory is only worked out when something will be stored there.
    if (config.isActive())
        config.databasePath = dataDirectory() + DatabaseFileName;
    return config;
}
