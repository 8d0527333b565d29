// Device ID and Android ID commands and their random generators.
#include "prompt.h"

#include <cstdlib>

#include <QDebug>
#include <QRegExp>
#include <QTextStream>
#include <QThreadPool>
#include <QVariant>
#include <QtConcurrent>

#include "device.h"
#include "korvexclient.h"
#include "requestoutcome.h"
#include "usageevents.h"
#include "virtualmachineengine.h"

using RequestOutcome::AcceptInformation;

namespace {

constexpr int ImeiBodyLength = 14; // the 15th digit is the Luhn check digit
constexpr int AndroidIdLength = 16;
constexpr int DecimalBase = 10;
constexpr int HexBase = 16;

const char *const NoDeviceIdWord = "none";
const char *const RandomWord = "random";
const char *const AndroidIdPattern = "^[0-9a-f]{16}$";

UsageEvents::Properties randomProperty(bool generated)
{
    return {{"random", generated ? "true" : "false"}};
}

} // namespace

QString Prompt::generateRandomImei()
{
    QString imei;
    for (int i = 0; i < ImeiBodyLength; ++i)
        imei += QString::number(rand() % DecimalBase);
    return imei + QString::number(imeiLuhnDigit(imei));
}

int Prompt::imeiLuhnDigit(const QString &text)
{
    int sum = 0;
    for (int i = 0; i < ImeiBodyLength; ++i) {
        const int digit = i < text.size() ? qMax(text.at(i).digitValue(), 0) : 0;
        const int product = digit * (i % 2 == 0 ? 1 : 2);
        sum += product / DecimalBase + product % DecimalBase;
    }
    const int checkDigit = sum * 9 % DecimalBase;
    qDebug().nospace() << "Computing Luhn algorithm on IMEI " << text << ": last digit = " << checkDigit;
    return checkDigit;
}

QString Prompt::generateRandomAndroidId()
{
    QString id;
    for (int i = 0; i < AndroidIdLength; ++i)
        id += QString::number(rand() % HexBase, HexBase);
    return id;
}

int Prompt::androidGetDeviceId(const QStringList &params)
{
    return queryText(params, QStringLiteral("Device ID: "), &KorvexClient::getDeviceId);
}

int Prompt::androidSetDeviceId(const QStringList &params)
{
    if (checkParams(params, 1) || checkDevice())
        return -1;

    // The words are case-sensitive: "NONE" is an ID like any other.
    QString deviceId = params[0];
    bool generated = false;
    if (deviceId == NoDeviceIdWord) {
        deviceId.clear();
    } else if (deviceId == RandomWord) {
        deviceId = generateRandomImei();
        generated = true;
    }

    QVariant reply;
    const KorvexClient::RequestResult result = m_client->setDeviceId(deviceId, reply);
    if (!RequestOutcome::report(m_out, result, AcceptInformation, reply))
        return -1;

    m_out << "Device ID set to: " << deviceId << Qt::endl;
    qDebug() << "Device ID set to:" << deviceId;
    UsageEvents::record("device_id", randomProperty(generated));

    if (m_connectionMode == RemoteHost) {
        m_out << "Warning: sending this command to a remote device (option -r) does not allow persistance."
              << Qt::endl;
        m_out << "You will need to send them again after reboot" << Qt::endl;
        return 0;
    }

    // The agent forgets the ID at reboot; the machine keeps it. Writing it goes
    // through the plug-in and may be slow, so the shell does not wait.
    const Device device = m_engine->selectedDevice();
    const QFuture<void> store = QtConcurrent::run(QThreadPool::globalInstance(),
                                                  [device, deviceId] { device.storeDeviceId(deviceId); });
    // The watcher belongs to the main thread; hand it the job there.
    QMetaObject::invokeMethod(
        this,
        [this, store] {
            if (m_backgroundWatcher.future() != store)
                m_backgroundWatcher.setFuture(store);
        },
        Qt::QueuedConnection);
    return 0;
}

int Prompt::androidGetAndroidId(const QStringList &params)
{
    return queryText(params, QStringLiteral("Android ID: "), &KorvexClient::getAndroidId);
}

int Prompt::androidSetAndroidId(const QStringList &params)
{
    if (checkDevice() || checkParams(params, 1))
        return -1;

    QString androidId = params[0].toLower();
    bool generated = false;
    if (androidId == RandomWord) {
        androidId = generateRandomAndroidId();
        generated = true;
    }

    if (!QRegExp(AndroidIdPattern, Qt::CaseInsensitive).exactMatch(androidId)) {
        m_out << "Bad syntax: Android ID must be 16 hexadecimal digits long" << Qt::endl;
        return -1;
    }

    QVariant reply;
    const KorvexClient::RequestResult result = m_client->setAndroidId(androidId, reply);
    if (!RequestOutcome::report(m_out, result, AcceptInformation, reply))
        return -1;

    m_out << "Android ID set to: " << androidId << Qt::endl;
    qDebug() << "Android ID set to:" << androidId;
    UsageEvents::record("android_id", randomProperty(generated));
    return 0;
}
