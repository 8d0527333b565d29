// Bounded, concurrent invocations of VBoxManage; every failure is logged.
#include "vboxmanagerunner.h"

#include <QDeadlineTimer>
#include <QDebug>
#include <QProcess>
#include <QProcessEnvironment>

#include <deque>
#include <memory>

namespace {

const char ProgramVariable[] = "KX_VBOXMANAGE";
const char TimeoutVariable[] = "KX_VBOXMANAGE_TIMEOUT_MS";
const char DefaultProgram[] = "VBoxManage";
// The parsers expect untranslated messages; UTF-8 keeps machine names intact.
const char ChildLocale[] = "C.UTF-8";
constexpr int KillGraceMs = 5000;
constexpr int MaxReportedErrorLength = 200;

struct Running
{
    int index;
    std::unique_ptr<QProcess> process;
    QDeadlineTimer deadline;
};

QString commandLine(const QString &program, const QStringList &arguments)
{
    return (QStringList(program) + arguments).join(QLatin1Char(' '));
}

// Waits for the process until its deadline and fills the call from it.
void collect(Running &running, int timeoutMs, VBoxManageCall &call)
{
    QProcess &process = *running.process;
    bool exited = process.state() == QProcess::NotRunning
        || process.waitForFinished(int(qMax<qint64>(0, running.deadline.remainingTime())));

    if (process.error() == QProcess::FailedToStart) {
        call.failure = QStringLiteral("could not be started: %1").arg(process.errorString());
        return;
    }
    if (!exited) {
        process.kill();
        process.waitForFinished(KillGraceMs);
        call.failure = QStringLiteral("timed out after %1 ms").arg(timeoutMs);
        return;
    }
    call.output = process.readAllStandardOutput();
    if (process.exitStatus() == QProcess::CrashExit) {
        call.failure = QStringLiteral("crashed");
        return;
    }
    call.finished = true;
    call.exitCode = process.exitCode();
    if (call.exitCode != 0) {
        QString error = QString::fromUtf8(process.readAllStandardError()).simplified();
        if (error.isEmpty())
            error = call.text().simplified();
        call.failure = QStringLiteral("exited with code %1: %2")
                           .arg(call.exitCode)
                           .arg(error.left(MaxReportedErrorLength));
    }
}

} // namespace

VBoxManageRunner::VBoxManageRunner()
{
    m_program = qEnvironmentVariable(ProgramVariable);
    if (m_program.isEmpty())
        m_program = QString::fromLatin1(DefaultProgram);
    m_timeoutOverrideMs = qEnvironmentVariableIntValue(TimeoutVariable);
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
        call.arguments = arguments;
        results << call;
    }

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QString::fromLatin1(ChildLocale));

    std::deque<Running> running;
    int next = 0;
    auto launch = [&] {
        Running started{next, std::make_unique<QProcess>(), QDeadlineTimer(timeoutMs)};
        started.process->setProcessEnvironment(environment);
        started.process->setStandardInputFile(QProcess::nullDevice());
        started.process->start(m_program, calls.at(next));
        running.push_back(std::move(started));
        ++next;
    };

    while (next < calls.size() && int(running.size()) < MaxConcurrentCalls)
        launch();
    while (!running.empty()) {
        Running oldest = std::move(running.front());
        running.pop_front();
        VBoxManageCall &call = results[oldest.index];
        collect(oldest, timeoutMs, call);
        if (!call.failure.isEmpty())
            qCritical().noquote() << "[VBox]" << commandLine(m_program, call.arguments) << call.failure;
        if (next < calls.size())
            launch();
    }
    return results;
}
