// Protocol client (placeholder until the protocol lands).
#include "korvexclient.h"

KorvexClient::KorvexClient(QObject *parent) : QObject(parent) {}
KorvexClient::~KorvexClient() = default;
void KorvexClient::setAddress(const QHostAddress &address, int port) { m_address = address; m_port = port; }
bool KorvexClient::isValid() const { return !m_address.isNull() && m_address != QHostAddress::AnyIPv4 && m_port != 0; }
void KorvexClient::setPersistent(bool persistent) { m_persistent = persistent; }
void KorvexClient::messageFromDevice() {}
int KorvexClient::sendRequest(const Korvex::Request &, QByteArray &, int) { return NetworkError; }
int KorvexClient::parseReply(const QByteArray &, QVariant &) { return NetworkError; }
int KorvexClient::ping() { return NetworkError; }
int KorvexClient::getBatteryLevel(int &) { return NetworkError; }
int KorvexClient::setBatteryLevel(int, QVariant &) { return NetworkError; }
int KorvexClient::getBatteryStatus(QString &) { return NetworkError; }
int KorvexClient::setBatteryStatus(const QString &, QVariant &) { return NetworkError; }
int KorvexClient::getBatteryMode(bool &) { return NetworkError; }
int KorvexClient::setBatteryMode(bool) { return NetworkError; }
int KorvexClient::getGpsStatus(bool &) { return NetworkError; }
int KorvexClient::setGpsStatus(bool) { return NetworkError; }
int KorvexClient::getGpsLatitude(double &) { return NetworkError; }
int KorvexClient::setGpsLatitude(double, QVariant &) { return NetworkError; }
int KorvexClient::getGpsLongitude(double &) { return NetworkError; }
int KorvexClient::setGpsLongitude(double, QVariant &) { return NetworkError; }
int KorvexClient::getGpsAltitude(double &) { return NetworkError; }
int KorvexClient::setGpsAltitude(double, QVariant &) { return NetworkError; }
int KorvexClient::getGpsAccuracy(double &) { return NetworkError; }
int KorvexClient::setGpsAccuracy(double, QVariant &) { return NetworkError; }
int KorvexClient::getGpsBearing(double &) { return NetworkError; }
int KorvexClient::setGpsBearing(double, QVariant &) { return NetworkError; }
int KorvexClient::setAccelerometer(QVariant &, double, double, double) { return NetworkError; }
int KorvexClient::getCapabilities(QString &) { return NetworkError; }
int KorvexClient::getAndroidVersion(QString &) { return NetworkError; }
int KorvexClient::getAgentVersion(QString &) { return NetworkError; }
int KorvexClient::getDeviceId(QString &) { return NetworkError; }
int KorvexClient::setDeviceId(const QString &, QVariant &) { return NetworkError; }
int KorvexClient::getAndroidId(QString &) { return NetworkError; }
int KorvexClient::setAndroidId(const QString &, QVariant &) { return NetworkError; }
int KorvexClient::setClipboard(const QString &) { return NetworkError; }
int KorvexClient::phoneCall(const QString &) { return NetworkError; }
int KorvexClient::sendSms(const QString &, const QString &) { return NetworkError; }
int KorvexClient::sendBasebandCommand(const QString &) { return NetworkError; }
int KorvexClient::getParam(QVariant &, Korvex::Parameter::Type) { return NetworkError; }
int KorvexClient::getDoubleParam(double &, Korvex::Parameter::Type) { return NetworkError; }
int KorvexClient::getStringParam(Korvex::Parameter::Type, QString &) { return NetworkError; }
int KorvexClient::setParam(const QVariant &, Korvex::Parameter::Type, QVariant &) { return NetworkError; }
int KorvexClient::setParam(const QVariant &, Korvex::Parameter::Type) { return NetworkError; }
int KorvexClient::setStringParam(Korvex::Parameter::Type, const QString &, QVariant &) { return NetworkError; }
bool KorvexClient::initConnection(QString &) { return false; }
Korvex::Request KorvexClient::buildRequest(Korvex::Request::Type, Korvex::Parameter::Type, const QVariant &) { return {}; }
Korvex::Request KorvexClient::buildRequest(Korvex::Request::Type) { return {}; }
Korvex::Request KorvexClient::buildRequest(Korvex::Request::Type, const QVariant &) { return {}; }
Korvex::Request *KorvexClient::takeLastRequest() { return nullptr; }
QString KorvexClient::resultText(int) { return {}; }
