// Protocol client of one device agent: builds a Request, sends it over TCP
// (port 22666, no framing), waits for the Reply and maps it to a result code.
// The typed device operations used by the commands are declared here too and
// implemented in deviceoperations.cpp. The road of one command: a typed
// operation picks its shape (read, write, blind write), transact() runs the
// exchange, and the reply, decoded once on arrival, is mapped by interpret().
#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QVariant>

#include <mutex>

#include "requests.pb.h"

class QTcpSocket;

class KorvexClient : public QObject
{
    Q_OBJECT

public:
    // Result of every device request; 1 and 7 are success, 6 is never produced.
    enum RequestResult : int {
        Ok = 1,
        GenericError = 2,
        NetworkError = 3,
        SerializationError = 4,
        InvalidRequest = 5,
        OkWithInformation = 7,
        NotImplemented = 8,
    };

    static constexpr int AgentPort = 22666;
    static constexpr int ConnectTimeoutMs = 2000;
    static constexpr int ReplyTimeoutMs = 5000;
    static constexpr int ReadBufferSize = 2048;

    explicit KorvexClient(QObject *parent = nullptr);
    ~KorvexClient() override;

    void setAddress(const QHostAddress &address, int port);
    QHostAddress address() const;
    int port() const;
    bool isValid() const;
    void setPersistent(bool persistent);

    bool initConnection(QString &error);
    Korvex::Request buildRequest(Korvex::Request::Type kind, Korvex::Parameter::Type parameter,
                                 const QVariant &value);
    Korvex::Request buildRequest(Korvex::Request::Type kind);
    Korvex::Request buildRequest(Korvex::Request::Type kind, const QVariant &value);
    int sendRequest(const Korvex::Request &request, QByteArray &reply, int timeoutMs);
    int parseReply(const QByteArray &bytes, QVariant &value);
    Korvex::Request *takeLastRequest();
    static QString resultText(int code);
    // Appends bytes received from the device to the receive buffer and
    // decodes it: what each ready-read notification of the socket does.
    void receiveChunk(const QByteArray &chunk);

    // Typed device operations.
    int ping();
    int getBatteryLevel(int &level);
    int setBatteryLevel(int level, QVariant &reply);
    int getBatteryStatus(QString &status);
    int setBatteryStatus(const QString &status, QVariant &reply);
    int getBatteryMode(bool &manual);
    int setBatteryMode(bool manual);
    int getGpsStatus(bool &enabled);
    int setGpsStatus(bool enabled);
    int getGpsLatitude(double &value);
    int setGpsLatitude(double value, QVariant &reply);
    int getGpsLongitude(double &value);
    int setGpsLongitude(double value, QVariant &reply);
    int getGpsAltitude(double &value);
    int setGpsAltitude(double value, QVariant &reply);
    int getGpsAccuracy(double &value);
    int setGpsAccuracy(double value, QVariant &reply);
    int getGpsBearing(double &value);
    int setGpsBearing(double value, QVariant &reply);
    int setAccelerometer(QVariant &reply, double x, double y, double z);
    int getCapabilities(QString &capabilities);
    int getAndroidVersion(QString &version);
    int getAgentVersion(QString &version);
    int getDeviceId(QString &deviceId);
    int setDeviceId(const QString &deviceId, QVariant &reply);
    int getAndroidId(QString &androidId);
    int setAndroidId(const QString &androidId, QVariant &reply);
    int setClipboard(const QString &text);
    int phoneCall(const QString &number);
    int sendSms(const QString &number, const QString &message);
    int sendBasebandCommand(const QString &command);

    // Generic operations beside the typed ones.
    int getParam(QVariant &value, Korvex::Parameter::Type parameter);
    int getDoubleParam(double &value, Korvex::Parameter::Type parameter);
    int getStringParam(Korvex::Parameter::Type parameter, QString &text);
    int setParam(const QVariant &value, Korvex::Parameter::Type parameter, QVariant &reply);
    int setParam(const QVariant &value, Korvex::Parameter::Type parameter);
    int setStringParam(Korvex::Parameter::Type parameter, const QString &text, QVariant &reply);

signals:
    void requestFromDevice();
    void replyFromDevice();

private slots:
    void messageFromDevice();

private:
    // The shapes of the typed operations (deviceoperations.cpp).
    template <typename T>
    int read(Korvex::Parameter::Type parameter, T &out);
    int write(const Korvex::Request &request, QVariant &replyValue);
    int writeBlind(Korvex::Parameter::Type parameter, const QVariant &value);
    int sendCommand(const QString &command);

    // One exchange: Ok with the reply in m_reply, or NetworkError.
    int transact(const Korvex::Request &request, int timeoutMs);
    // The result code and value that a decoded reply stands for.
    static int interpret(const Korvex::Reply &reply, QVariant &value);
    void dropForeignSocket();
    bool stillConnected();

    // Set on a worker thread by the device sources, read by whichever thread
    // issues a request: both under this lock.
    mutable std::mutex m_targetLock;
    QHostAddress m_address;
    int m_port = 0;
    QTcpSocket *m_socket = nullptr;
    QByteArray m_lastRequest;
    QByteArray m_lastReply;
    Korvex::Reply m_reply; // m_lastReply decoded
    QByteArray m_receiveBuffer; // survives reconnections
    bool m_persistent = false;
};
