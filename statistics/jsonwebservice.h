// HTTP client for JSON web services, used by the usage statistics. Its requests
// go through the proxy of the settings stores, else the system's; nothing else
// in the process (the device client above all) is affected by that proxy.
#pragma once

#include <QNetworkProxy>
#include <QObject>
#include <QString>

#include "settingsreader.h"

class QJsonDocument;
class QNetworkAccessManager;
class QNetworkReply;
class QUrl;

class JsonWebService : public QObject
{
    Q_OBJECT

public:
    // A proxy of type DefaultProxy means the system's (environment) proxy.
    explicit JsonWebService(const QNetworkProxy &proxy = QNetworkProxy(QNetworkProxy::DefaultProxy),
                            QObject *parent = nullptr);

    // Posts the document; the caller owns the reply. A transfer that makes no
    // progress for timeoutMs is aborted.
    QNetworkReply *post(const QUrl &url, const QJsonDocument &document, int timeoutMs);

    // True for a reply that finished with an HTTP 2xx status.
    static bool succeeded(const QNetworkReply *reply);
    // Why a reply did not succeed, for the log.
    static QString failure(const QNetworkReply *reply);

    // The "proxy/" keys: type ("system", "none", "http" or "socks5"), host,
    // port, user and password.
    static QNetworkProxy proxyFromSettings(const SettingsReader &value);

private:
    QNetworkAccessManager *manager();

    QNetworkProxy m_proxy;
    // Created with the first request: nothing of the network stack is set up before.
    QNetworkAccessManager *m_manager = nullptr;
};
