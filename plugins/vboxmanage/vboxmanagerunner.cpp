// Bounded, concurrent invocations of VBoxManage. Each call writes into files of
// its own, so that no call ever blocks on a full pipe while another is awaited.
#include "vboxmanagerunner.h"

#include <QDebug>
#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <deque>
#include <memory>

#include "hostlocale.h"

namespace {

const char ProgramVariable[] = "KX_VBOXMANAGE";
const char TimeoutVariable[] = "KX_VBOXMANAGE_TIMEOUT_MS";
const char DefaultProgram[] = "VBoxManage";
const char LocaleVariable[] = "LC_ALL";
constexpr int ReapWaitMs = 1000;
constexpr int MaxReportedErrorLength = 300;

struct Running
{
    int index;
    std::unique_ptr<QProcess> process;
    QDeadlineTimer deadline;
};

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Waits for the process until its deadline, stops it past that, and fills the call.
void collect(Running &running, int timeoutMs, const QString &outputPath, const QString &errorPath,
             VBoxManageCall &call)
{
    QProcess &process = *running.process;
    const bool exited = process.state() == QProcess::NotRunning
        || process.waitForFinished(int(qMax<qint64>(0, running.deadline.remainingTime())));

    if (process.error() == QProcess::FailedToStart) {
        call.failure = QStringLiteral("could not be started: %1").arg(process.errorString());
        return;
    }
    if (!exited) {
        process.terminate();
        const bool stopped = process.waitForFinished(VBoxManageRunner::StopGraceMs);
        if (!stopped) {
            process.kill();
            process.waitForFinished(ReapWaitMs);
        }
        call.failure = QStringLiteral("timed out after %1 ms%2")
                           .arg(timeoutMs)
                           .arg(QLatin1String(stopped ? "" : " and was killed"));
        return;
    }
    call.output = readFile(outputPath);
    call.errorOutput = readFile(errorPath);
    if (process.exitStatus() == QProcess::CrashExit) {
        call.failure = QStringLiteral("crashed");
        return;
    }
    call.finished = true;
    call.exitCode = process.exitCode();
    if (call.exitCode != 0) {
        QString error = QString::fromUtf8(call.errorOutput).simplified();
        if (error.isEmpty())
            error = call.text().simplified();
        call.failure =
            QStringLiteral("exited with code %1: %2").arg(call.exitCode).arg(error.left(MaxReportedErrorLength));
    }
}

} // namespace

QString VBoxManageCall::describe() const
{
    const QString command = (QStringList(program) + arguments).join(QLatin1Char(' '));
    return failure.isEmpty() ? command : command + QLatin1Char(' ') + failure;
}

VBoxManageRunner::VBoxManageRunner()
    : m_environment(QProcessEnvironment::systemEnvironment()),
      m_concurrentCalls(qBound(MinConcurrentCalls, ConcurrentCallsPerCore * QThread::idealThreadCount(),
                               MaxConcurrentCalls))
{
    m_program = qEnvironmentVariable(ProgramVariable);
    if (m_program.isEmpty())
        m_program = QString::fromLatin1(DefaultProgram);
    m_timeoutOverrideMs = qEnvironmentVariableIntValue(TimeoutVariable);

    const QString locale = HostLocale::choose(HostLocale::available(), m_environment);
    if (locale.isEmpty()) {
        m_environment.remove(QString::fromLatin1(LocaleVariable));
        qWarning() << "[VBox]" << "No UTF-8 locale on this host: machine names that are not ASCII may hide the "
                                  "machines listed after them";
    } else {
        m_environment.insert(QString::fromLatin1(LocaleVariable), locale);
        qDebug().noquote() << "[VBox]" << "VBoxManage runs with" << QStringLiteral("%1=%2").arg(LocaleVariable, locale);
    }
}

VBoxManageCall VBoxManageRunner::run(const QStringList &arguments, int timeoutMs) const
{
    return runAll({arguments}, timeoutMs).first();
}

QList<VBoxManageCall> VBoxManageRunner::runAll(const QList<QStringList> &calls, int timeoutMs) const
{
    if (m_timeoutOverrideMs > 0)
        timeoutMs = m_timeoutOverrideMs;
    QList<VBoxManageCall> results;
    for (const QStringList &arguments : calls) {
        VBoxManageCall call;
        call.program = m_program;
        call.arguments = arguments;
        results << call;
    }
    if (calls.isEmpty())
        return results;

    const QTemporaryDir outputs;
    if (!outputs.isValid()) {
        for (VBoxManageCall &call : results)
            call.failure = QStringLiteral("could not be started: %1").arg(outputs.errorString());
        return results;
    }
    auto outputPath = [&](int index, const char *stream) {
        return outputs.filePath(QStringLiteral("%1.%2").arg(index).arg(QLatin1String(stream)));
    };
    std::deque<Running> running;
    int next = 0;
    auto launch = [&] {
        Running started{next, std::make_unique<QProcess>(), QDeadlineTimer(timeoutMs)};
        started.process->setProcessEnvironment(m_environment);
        started.process->setStandardInputFile(QProcess::nullDevice());
        started.process->setStandardOutputFile(outputPath(next, "out"));
        started.process->setStandardErrorFile(outputPath(next, "err"));
        started.process->start(m_program, calls.at(next));
        running.push_back(std::move(started));
        ++next;
    };

    while (next < calls.size() && int(running.size()) < m_concurrentCalls)
        launch();
    while (!running.empty()) {
        Running oldest = std::move(running.front());
        running.pop_front();
        collect(oldest, timeoutMs, outputPath(oldest.index, "out"), outputPath(oldest.index, "err"),
                results[oldest.index]);
        if (next < calls.size())
            launch();
    }
    return results;
}
