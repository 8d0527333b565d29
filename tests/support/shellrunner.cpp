// End-to-end runner of the korvex-shell binary.
#include "shellrunner.h"

#include <QDir>
#include <QFile>
#include <QProcess>

ShellRunner::ShellRunner() : m_env(QProcessEnvironment::systemEnvironment())
{
    m_env.insert("KX_HOME", m_home.path());
    m_env.insert("LANG", "C.UTF-8");
    m_env.insert("LC_ALL", "C.UTF-8");
    m_env.remove("KX_LOG_TO_STDERR");
    m_env.remove("QT_MESSAGE_PATTERN");
    // Local mode must never reach a real VirtualBox from a test.
    m_env.insert("KX_VBOXMANAGE", m_home.path() + "/no-vboxmanage");
}

QString ShellRunner::log() const
{
    QFile file(logPath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll());
}

ShellResult ShellRunner::run(const QStringList &arguments, const QByteArray &input, int timeoutMs) const
{
    ShellResult result;
    QProcess process;
    process.setProcessEnvironment(m_env);
    process.start(shellBinary(), arguments);
    if (!process.waitForStarted(10000))
        return result;
    if (!input.isEmpty())
        process.write(input);
    process.closeWriteChannel();
    result.finished = process.waitForFinished(timeoutMs);
    if (!result.finished) {
        process.kill();
        process.waitForFinished(5000);
    }
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    result.finished = result.finished && process.exitStatus() == QProcess::NormalExit;
    result.exitCode = process.exitCode();
    return result;
}

QString ShellRunner::writeCommandFile(const QString &name, const QByteArray &content) const
{
    const QString path = m_home.path() + "/" + name;
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(content);
    return path;
}
