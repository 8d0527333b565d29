// Runs the real korvex-shell binary for end-to-end tests: a private KX_HOME per
// runner, captured stdout/stderr, exit status, and a bounded wait.
#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

struct ShellResult
{
    QByteArray out;
    QByteArray err;
    int exitCode = -1;
    bool finished = false; // false when the time-out killed it or it crashed
};

class ShellRunner
{
public:
    ShellRunner();

    // Environment of the next runs: KX_HOME, LANG=C.UTF-8, no logging overrides.
    QProcessEnvironment &environment() { return m_env; }
    QString home() const { return m_home.path(); }
    QString logPath() const { return m_home.path() + "/korvex-shell.log"; }
    QString log() const;

    // The bound only catches a hung shell: under ThreadSanitizer on a loaded machine one run
    // can take tens of seconds.
    ShellResult run(const QStringList &arguments, const QByteArray &input = {}, int timeoutMs = 180000) const;
    // Writes a file (a command file, say) under the home, with its folders, and returns its path.
    QString writeCommandFile(const QString &name, const QByteArray &content) const;

    static QString shellBinary() { return QStringLiteral(KORVEX_SHELL_BIN); }

private:
    QTemporaryDir m_home;
    QProcessEnvironment m_env;
};
