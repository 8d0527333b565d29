// The shell's worker thread: welcome and version report, then one of the
// one-shot command, the command file or the interactive prompt; and the
// shell's own commands version, pause, quit and exit.
#include "prompt.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QRegExp>
#include <QThreadPool>
#include <QtConcurrent>
#include <ctime>

#include "descriptordevice.h"
#include "korvexclient.h"
#include "virtualmachineengine.h"

namespace {

const char BuildTag[] = "20161117-c0196b8";
// Assumed when the agent's version cannot be read.
const char DefaultDeviceVersion[] = "1.0.0";
// Agents after this one keep a connection open across requests.
const char PersistentConnectionVersion[] = "2.0.3";
const char StopLogLine[] = "****  STOPPING KORVEX SHELL  ****";

constexpr int MillisecondsPerSecond = 1000;
constexpr long NanosecondsPerMillisecond = 1000000;

} // namespace

void Prompt::main()
{
    QtConcurrent::run(QThreadPool::globalInstance(), this, &Prompt::loopThread);
}

void Prompt::loopThread()
{
    if (m_running)
        return;

    m_out << "Welcome to Korvex Shell" << Qt::endl;

    if (m_connectionMode == RemoteHost) {
        displayInfoVersions();
    } else if (m_engine && m_engine->hasSelection()) {
        m_out << Qt::endl << "Korvex virtual device selected: " << m_engine->selectedDevice().name() << Qt::endl
              << Qt::endl;
        displayInfoVersions();
    }

    // The stop line precedes the commands in the batch modes: the log marks
    // the end of start-up, not the end of the run.
    int status = 0;
    if (!m_command.isEmpty()) {
        qWarning() << StopLogLine;
        status = execCommand(m_command);
    } else if (m_commandFile.exists()) {
        qWarning() << StopLogLine;
        status = execCommandsFile();
    } else {
        if (m_interactive) {
            m_running = true;
            shell();
        }
        qWarning() << StopLogLine;
    }

    // The pool thread outlives the event loop: a socket left to it would never be deleted.
    if (m_client)
        m_client->closeConnection();

    // exit() must run in the thread of the event loop it ends.
    QMetaObject::invokeMethod(
        m_app, [status] { QCoreApplication::exit(status); }, Qt::QueuedConnection);
}

void Prompt::displayInfoVersions()
{
    const QString softwareVersion = QCoreApplication::applicationVersion();
    QString systemVersion;
    if (m_client->getAgentVersion(systemVersion) != KorvexClient::Ok)
        systemVersion = DefaultDeviceVersion;

    const int comparison = compareVersions(systemVersion, softwareVersion);
    qDebug() << "[displayInfoVersions] System version:" << systemVersion;
    qDebug() << "[displayInfoVersions] Software version:" << softwareVersion;

    if (compareVersions(systemVersion, PersistentConnectionVersion) == 1) {
        m_client->setPersistent(true);
        qDebug() << "[KorvexClient]" << "Use persistent connection";
    }

    if (comparison == 0)
        return;
    QString text = "\n";
    text += "Virtual device is in version: " + systemVersion + "\n";
    text += "Korvex is in version: " + softwareVersion + "\n";
    if (comparison < 0)
        text += "If you have problems, deploy a newer version of the virtual device.\n";
    else
        text += "If you have problems, install a newer version of Korvex.\n";
    text += "\n";
    m_out << text << Qt::flush;
}

int Prompt::compareVersions(const QString &a, const QString &b)
{
    static const QRegExp pattern("^\\d+(\\.\\d+)*(-.*)?$");
    const QString first = a.trimmed();
    const QString second = b.trimmed();
    if (!pattern.exactMatch(first) || !pattern.exactMatch(second))
        return 0;

    // Only the numeric part before a "-suffix" counts.
    const QStringList left = first.section('-', 0, 0).split('.');
    const QStringList right = second.section('-', 0, 0).split('.');
    const int common = qMin(left.size(), right.size());
    for (int i = 0; i < common; ++i) {
        const qlonglong l = left.at(i).toLongLong();
        const qlonglong r = right.at(i).toLongLong();
        if (l != r)
            return l > r ? 1 : -1;
    }
    if (left.size() != right.size())
        return left.size() > right.size() ? 1 : -1;
    return 0;
}

int Prompt::execCommandsFile()
{
    if (!m_commandFile.open(QIODevice::ReadOnly | QIODevice::Text)) {
        m_out << m_commandFile.fileName() << ": unable to open file: " << m_commandFile.errorString() << Qt::endl;
        return 1;
    }

    // Every line runs, blank and comment-like ones included, and a failure
    // does not stop the file: the statuses add up into the exit status. The
    // lines are read to the real end of the file: a pipe that has nothing to
    // give yet is waited for, where the file's own end test would stop.
    DescriptorDevice source(m_commandFile.handle());
    source.open(QIODevice::ReadOnly | QIODevice::Text);
    QTextStream in(&source);
    QString line;
    int sum = 0;
    while (in.readLineInto(&line))
        sum += execCommand(line);
    m_commandFile.close();
    return sum;
}

void Prompt::stopLoopThread()
{
    m_running = false;
}

int Prompt::version(const QStringList &params)
{
    if (checkParams(params, 0))
        return -1;
    m_out << QCoreApplication::applicationVersion() << " " << BuildTag << Qt::endl;
    return 0;
}

int Prompt::pause(const QStringList &params)
{
    int seconds = 0;
    if (checkParams(params, 1) || checkIntParameter(params, 0, &seconds))
        return -1;
    // Milliseconds wrap as a 32-bit int would; a negative duration makes
    // nanosleep fail at once, which counts as no pause at all. Kept on
    // purpose: command files time their steps by it, huge values included.
    const int milliseconds = int(quint32(seconds) * quint32(MillisecondsPerSecond));
    timespec duration;
    duration.tv_sec = milliseconds / MillisecondsPerSecond;
    duration.tv_nsec = (milliseconds % MillisecondsPerSecond) * NanosecondsPerMillisecond;
    nanosleep(&duration, nullptr);
    return 0;
}

int Prompt::quit(const QStringList &params)
{
    if (checkParams(params, 0))
        return -1;
    m_out << "Exiting..." << Qt::endl;
    m_running = false;
    return 0;
}
