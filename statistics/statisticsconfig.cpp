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
const char ExitWaitKey[] = "statistics/exitWaitMs";
const char ClaimTimeoutKey[] = "statistics/claimTimeoutMs";

const char DatabaseFileName[] = "/statistics.sqlite";

const int MaxQueueBound = 100000;
const int MaxBatchSize = 1000;
// Exit must stay quick whatever the settings say.
const int MaxExitWaitMs = 10 * 1000;
const int MaxClaimTimeoutMs = 24 * 60 * 60 * 1000;

// A whole number from lower to upper, else the fallback (with a warning for a bad value).
int boundedNumber(const SettingsReader &value, const char *key, int fallback, int lower, int upper)
{
    const QVariant raw = value(key, fallback);
    bool ok = false;
    const int number = raw.toInt(&ok);
    if (ok && number >= lower && number <= upper)
        return number;
    qWarning().noquote() << QString("[Statistics] %1 = \"%2\" is not a number from %3 to %4; using %5")
                                .arg(key, raw.toString()).arg(lower).arg(upper).arg(fallback);
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
    config.maxEvents = boundedNumber(value, MaxEventsKey, config.maxEvents, 1, MaxQueueBound);
    config.batchSize = boundedNumber(value, BatchSizeKey, config.batchSize, 1, MaxBatchSize);
    config.exitFlushMs = boundedNumber(value, ExitWaitKey, config.exitFlushMs, 0, MaxExitWaitMs);
    config.claimTimeoutMs = boundedNumber(value, ClaimTimeoutKey, config.claimTimeoutMs, 0, MaxClaimTimeoutMs);
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
