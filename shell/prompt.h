// The one shell object: command tables, dispatch and shared argument checks,
// the line editor, the script/one-shot loop and every command handler.
// Handlers live in one source per verb (shell/, devices/, commands/,
// environment/); this header is the only place they are declared.
#pragma once

#include <atomic>

#include <QFile>
#include <QFutureWatcher>
#include <QHash>
#include <QHostAddress>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTextStream>
#include <QVector>

#include "keyreader.h"
#include "korvexclient.h"

class QCoreApplication;
namespace GpsRanges {
struct Range;
}
class RemoteDevice;
class VirtualMachineEngine;

class Prompt : public QObject
{
    Q_OBJECT

public:
    enum ConnectionMode { LocalHost = 0, RemoteHost = 1 };

    // A handler takes the words after the command name: 0 success, -1 error already printed.
    typedef int (Prompt::*CommandHandler)(const QStringList &params);

    // One row of the vocabulary, keyed by the words joined with "-".
    struct CommandEntry
    {
        const char *name;
        CommandHandler handler; // nullptr: a verb that only groups sub-commands
        const char *help;       // nullptr: hidden, runs but is never listed nor completed
    };
    // Every command, verbs and one-word commands first: the source of the tables that
    // dispatch and help use, and of the generated manual page and shell completion.
    static const QVector<CommandEntry> &commandTable();

    Prompt(QCoreApplication *app, ConnectionMode connectionMode, const QHostAddress &deviceAddress,
           const QString &command, const QString &commandFileName, QObject *parent = nullptr);
    ~Prompt() override;

    // Tokeniser of every command line (see the quoting rules in prompt dispatch).
    static QStringList splitCommandLine(const QString &line);
    // -1, 0 or 1 as version a is older than, equal to or newer than b.
    static int compareVersions(const QString &a, const QString &b);
    // SIGINT handler: fresh prompt on a new line, edited line discarded.
    static void onInterrupt(int signalNumber);

    int execCommand(const QString &line);
    const QStringList &history() const { return m_history; }
    QString connectionModeText() const;

    // Shared argument checks: 0 when the test passes, -1 after printing the message.
    int checkParams(const QStringList &params, int expectedParamNb, bool orMore = false);
    // The parsed integer goes to value, when given, so that it is parsed once.
    int checkIntParameter(const QStringList &params, int indexOfInt, int *value = nullptr);
    // The parsed number goes to value, when given, so that it is parsed once.
    int checkLimits(const QString &param, double lower, double upper,
                    bool lowerIncluded = true, bool upperIncluded = true, double *value = nullptr);
    int checkDevice();

    // Identity generators (rand() is never seeded, so sequences repeat per run).
    static QString generateRandomImei();
    static int imeiLuhnDigit(const QString &text);
    static QString generateRandomAndroidId();

public slots:
    void stopLoopThread();

private slots:
    void main();
    void loopThread();
    void displayInfoVersions();
    int execCommandsFile();

    void shell();
    void readline();
    void clearCommandLine(int nbChar);
    QString autocomplete(const QString &input);

private:
    void fillCommandTables();
    void showHelpOnKeys(QStringList keys);
    void displayPrompt(bool newLine, bool clearInput);

    // Shell commands.
    int help(const QStringList &params);
    int version(const QStringList &params);
    int pause(const QStringList &params);
    int quit(const QStringList &params);
    int commandNotAvailable(const QStringList &params);
    int korvexClearCache(const QStringList &params);

    // devices
    int devicesList(const QStringList &params);
    int devicesSelect(const QStringList &params);
    int devicesRefresh(const QStringList &params);
    int devicesPing(const QStringList &params);
    int devicesFactoryReset(const QStringList &params);

    // battery
    int batteryGetLevel(const QStringList &params);
    int batterySetLevel(const QStringList &params);
    int batteryGetStatus(const QStringList &params);
    int batterySetStatus(const QStringList &params);
    int batteryGetMode(const QStringList &params);
    int batterySetMode(const QStringList &params);

    // gps
    typedef KorvexClient::RequestResult (KorvexClient::*CoordinateGetter)(double &value);
    typedef KorvexClient::RequestResult (KorvexClient::*CoordinateSetter)(double value, QVariant &reply);
    int gpsGetCoordinate(const QStringList &params, const QString &name, CoordinateGetter getter);
    int gpsSetCoordinate(const QStringList &params, const QString &name, CoordinateSetter setter,
                         const GpsRanges::Range &range);
    int gpsGetStatus(const QStringList &params);
    int gpsSetStatus(const QStringList &params);
    int gpsGetLatitude(const QStringList &params);
    int gpsSetLatitude(const QStringList &params);
    int gpsGetLongitude(const QStringList &params);
    int gpsSetLongitude(const QStringList &params);
    int gpsGetAltitude(const QStringList &params);
    int gpsSetAltitude(const QStringList &params);
    int gpsGetAccuracy(const QStringList &params);
    int gpsSetAccuracy(const QStringList &params);
    int gpsGetBearing(const QStringList &params);
    int gpsSetBearing(const QStringList &params);

    // Read-only text queries: no argument, a usable device, one line label + text.
    typedef KorvexClient::RequestResult (KorvexClient::*TextGetter)(QString &text);
    int queryText(const QStringList &params, const QString &label, TextGetter getter);

    // rotation, capabilities and versions
    int rotationSetAngle(const QStringList &params);
    int korvexCapabilities(const QStringList &params);
    int korvexVersion(const QStringList &params);
    int androidVersion(const QStringList &params);

    // identity
    int androidGetDeviceId(const QStringList &params);
    int androidSetDeviceId(const QStringList &params);
    int androidGetAndroidId(const QStringList &params);
    int androidSetAndroidId(const QStringList &params);

    // phone
    int phoneCall(const QStringList &params);
    int phoneSms(const QStringList &params);
    int phoneBaseband(const QStringList &params);

    // network
    int networkGetProfile(const QStringList &params);
    int networkSetProfile(const QStringList &params);

    QCoreApplication *m_app;
    QTextStream &m_out;
    QHash<QString, CommandHandler> m_commands;
    QHash<QString, QString> m_helps;
    QStringList m_history;
    int m_historyIndex = -1;
    bool m_historyBrowsing = false;
    ConnectionMode m_connectionMode;
    QString m_command;
    QFile m_commandFile;
    bool m_interactive = true;
    std::atomic<bool> m_running{false}; // cleared from the main thread too
    VirtualMachineEngine *m_engine = nullptr;
    RemoteDevice *m_remoteDevice = nullptr;
    KorvexClient *m_client = nullptr; // not owned: the client of the device source
    KeyReader m_keyReader;
    QFutureWatcher<void> m_backgroundWatcher; // last device-ID store started
};
