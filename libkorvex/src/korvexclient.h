// Protocol client of one device agent: builds a Request, sends it over TCP
// (port 22666, no framing), waits for the Reply and maps it to a result code.
// The typed device operations used by the commands are declared here too and
// implemented in deviceoperations.cpp. The road of one command: a typed
// operation picks its shape (read, write, blind write), sendRequest() runs the
// exchange, and the reply, decoded once on arrival, is mapped by parseReply().
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
    // Closes the kept connection. Called by the thread that made the requests
    // when it is done: only there can its socket be deleted at once.
    void closeConnection();

    bool initConnection(QString &error);
    Korvex::Request buildRequest(Korvex::Request::Type kind, Korvex::Parameter::Type parameter,
                                 const QVariant &value);
    Korvex::Request buildRequest(Korvex::Request::Type kind);
    Korvex::Request buildRequest(Korvex::Request::Type kind, const QVariant &value);
    RequestResult sendRequest(const Korvex::Request &request, QByteArray &reply, int timeoutMs);
    RequestResult parseReply(const QByteArray &bytes, QVariant &value);
    Korvex::Request *takeLastRequest();
    static QString resultText(int code);
    // Appends bytes received from the device to the receive buffer and
    // decodes it: what each ready-read notification of the socket does.
    void receiveChunk(const QByteArray &chunk);

    // Typed device operations.
    RequestResult ping();
    RequestResult getBatteryLevel(int &level);
    RequestResult setBatteryLevel(int level, QVariant &reply);
    RequestResult getBatteryStatus(QString &status);
    RequestResult setBatteryStatus(const QString &status, QVariant &reply);
    RequestResult getBatteryMode(bool &manual);
    RequestResult setBatteryMode(bool manual);
    RequestResult getGpsStatus(bool &enabled);
    RequestResult setGpsStatus(bool enabled);
    RequestResult getGpsLatitude(double &value);
    RequestResult setGpsLatitude(double value, QVariant &reply);
    RequestResult getGpsLongitude(double &value);
    RequestResult setGpsLongitude(double value, QVariant &reply);
    RequestResult getGpsAltitude(double &value);
    RequestResult setGpsAltitude(double value, QVariant &reply);
    RequestResult getGpsAccuracy(double &value);
    RequestResult setGpsAccuracy(double value, QVariant &reply);
    RequestResult getGpsBearing(double &value);
    RequestResult setGpsBearing(double value, QVariant &reply);
    RequestResult setAccelerometer(QVariant &reply, double x, double y, double z);
    RequestResult getCapabilities(QString &capabilities);
    RequestResult getAndroidVersion(QString &version);
    RequestResult getAgentVersion(QString &version);
    RequestResult getDeviceId(QString &deviceId);
    RequestResult setDeviceId(const QString &deviceId, QVariant &reply);
    RequestResult getAndroidId(QString &androidId);
    RequestResult setAndroidId(const QString &androidId, QVariant &reply);
    RequestResult setClipboard(const QString &text);
    RequestResult phoneCall(const QString &number);
    RequestResult sendSms(const QString &number, const QString &message);
    RequestResult sendBasebandCommand(const QString &command);

    // Generic operations beside the typed ones.
    RequestResult getParam(QVariant &value, Korvex::Parameter::Type parameter);
    RequestResult getDoubleParam(double &value, Korvex::Parameter::Type parameter);
    RequestResult getStringParam(Korvex::Parameter::Type parameter, QString &text);
    RequestResult setParam(const QVariant &value, Korvex::Parameter::Type parameter, QVariant &reply);
    RequestResult setParam(const QVariant &value, Korvex::Parameter::Type parameter);
    RequestResult setStringParam(Korvex::Parameter::Type parameter, const QString &text, QVariant &reply);

signals:
    void requestFromDevice();
    void replyFromDevice();

private slots:
    void messageFromDevice();

private:
    // The shapes of the typed operations (deviceoperations.cpp).
    template <typename T>
    RequestResult read(Korvex::Parameter::Type parameter, T &out);
    RequestResult write(const Korvex::Request &request, QVariant &replyValue);
    RequestResult writeBlind(Korvex::Parameter::Type parameter, const QVariant &value);
    RequestResult sendCommand(const QString &command);

    // One exchange: Ok with the reply decoded in m_reply, or NetworkError.
    RequestResult sendRequest(const Korvex::Request &request, int timeoutMs);
    // The result code and value that a decoded reply stands for.
    static RequestResult parseReply(const Korvex::Reply &reply, QVariant &value);
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
