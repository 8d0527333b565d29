// JSON web-service client: requests, outcome and proxy settings.
#include "jsonwebservice.h"

#include <QCoreApplication>
#include <QDebug>
#include <QHash>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

namespace {

const char ProxyTypeKey[] = "proxy/type";
const char ProxyHostKey[] = "proxy/host";
const char ProxyPortKey[] = "proxy/port";
const char ProxyUserKey[] = "proxy/user";
const char ProxyPasswordKey[] = "proxy/password";

const char JsonContentType[] = "application/json";

struct ProxyKind
{
    QNetworkProxy::ProxyType type;
    quint16 defaultPort;
};

const QHash<QString, ProxyKind> &proxyKinds()
{
    static const QHash<QString, ProxyKind> kinds = {
        {"system", {QNetworkProxy::DefaultProxy, 0}},
        {"none", {QNetworkProxy::NoProxy, 0}},
        {"http", {QNetworkProxy::HttpProxy, 8080}},
        {"socks5", {QNetworkProxy::Socks5Proxy, 1080}},
    };
    return kinds;
}

// The configured proxy for every request, or the system's when none is configured.
class ConfiguredProxyFactory : public QNetworkProxyFactory
{
public:
    explicit ConfiguredProxyFactory(const QNetworkProxy &proxy) : m_proxy(proxy) {}

    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery &query) override
    {
        if (m_proxy.type() == QNetworkProxy::DefaultProxy)
            return systemProxyForQuery(query);
        return {m_proxy};
    }

private:
    const QNetworkProxy m_proxy;
};

} // namespace

JsonWebService::JsonWebService(const QNetworkProxy &proxy, QObject *parent)
    : QObject(parent), m_proxy(proxy)
{
}

QNetworkAccessManager *JsonWebService::manager()
{
    if (!m_manager) {
        m_manager = new QNetworkAccessManager(this);
        m_manager->setProxyFactory(new ConfiguredProxyFactory(m_proxy));
    }
    return m_manager;
}

QNetworkReply *JsonWebService::post(const QUrl &url, const QJsonDocument &document, int timeoutMs)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, JsonContentType);
    request.setRawHeader("Accept", JsonContentType);
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      QString("%1/%2").arg(QCoreApplication::applicationName(),
                                           QCoreApplication::applicationVersion()));
    request.setTransferTimeout(timeoutMs);
    return manager()->post(request, document.toJson(QJsonDocument::Compact));
}

bool JsonWebService::succeeded(const QNetworkReply *reply)
{
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    return reply->error() == QNetworkReply::NoError && status >= 200 && status < 300;
}

QString JsonWebService::failure(const QNetworkReply *reply)
{
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid())
        return QString("HTTP status %1").arg(status.toInt());
    return reply->errorString();
}

QNetworkProxy JsonWebService::proxyFromSettings(const SettingsReader &value)
{
    const QString typeName = value(ProxyTypeKey, "system").toString().trimmed().toLower();
    const auto kind = proxyKinds().constFind(typeName);
    if (kind == proxyKinds().constEnd()) {
        qWarning().noquote() << QString("[WebService] unknown %1 \"%2\": using the system proxy")
                                    .arg(ProxyTypeKey, typeName);
        return QNetworkProxy(QNetworkProxy::DefaultProxy);
    }
    if (kind->type == QNetworkProxy::DefaultProxy || kind->type == QNetworkProxy::NoProxy)
        return QNetworkProxy(kind->type);

    const QString host = value(ProxyHostKey, QString()).toString().trimmed();
    bool portOk = false;
    const int port = value(ProxyPortKey, kind->defaultPort).toInt(&portOk);
    if (host.isEmpty() || !portOk || port < 1 || port > 65535) {
        qWarning().noquote() << QString("[WebService] %1 needs %2 and a valid %3: using the system proxy")
                                    .arg(ProxyTypeKey, ProxyHostKey, ProxyPortKey);
        return QNetworkProxy(QNetworkProxy::DefaultProxy);
    }
    return QNetworkProxy(kind->type, host, quint16(port), value(ProxyUserKey, QString()).toString(),
                         value(ProxyPasswordKey, QString()).toString());
}
