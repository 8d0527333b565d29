// Configuration of the usage statistics: the opt-in flag and service URL from
// the settings stores, the bound of the queue and the sender's timings.
#pragma once

#include <QNetworkProxy>
#include <QString>
#include <QUrl>

#include "settingsreader.h"

struct StatisticsConfig
{
    bool enabled = false;
    QUrl serviceUrl;
    QString databasePath;
    // DefaultProxy stands for the system's (or the environment's) proxy.
    QNetworkProxy proxy{QNetworkProxy::DefaultProxy};
    int maxEvents = 1000;
    int batchSize = 50;
    // How long events gather before a partial batch goes out.
    int gatherMs = 30 * 1000;
    int requestTimeoutMs = 10 * 1000;
    int firstRetryMs = 10 * 1000;
    int maxRetryMs = 15 * 60 * 1000;
    // Events a shell claimed to send and has not sent in this time are taken
    // over by another shell: the first one died. Longer than any send.
    int claimTimeoutMs = 60 * 1000;
    // The longest the shell waits for the service when it exits; 0 leaves
    // everything queued for the next run.
    int exitFlushMs = 1500;

    // Statistics run only when enabled and given an http(s) service.
    bool isActive() const;

    // Parses the "statistics/" and "proxy/" keys; the database path is left empty.
    static StatisticsConfig read(const SettingsReader &value);
    // The stores' configuration, with the queue in the product data directory.
    static StatisticsConfig fromSettings();
};
