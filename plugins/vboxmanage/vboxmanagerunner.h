// Runs the VirtualBox command-line manager for the plug-in: one program
// (KX_VBOXMANAGE or VBoxManage on the PATH), every call bounded by a time-out,
// several calls at once when they do not depend on each other.
#pragma once

#include <QByteArray>
#include <QList>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

struct VBoxManageCall
{
    QString program;
    QStringList arguments;
    bool finished = false; // ran and exited by itself within its time-out
    int exitCode = -1;
    QByteArray output;
    QByteArray errorOutput;
    QString failure; // why the call did not succeed; empty on success

    bool succeeded() const { return finished && exitCode == 0; }
    QString text() const { return QString::fromUtf8(output); }
    // The command line and, for a failed call, why: for the log.
    QString describe() const;
};

class VBoxManageRunner
{
public:
    static constexpr int DefaultTimeoutMs = 20000;
    // Restoring a snapshot discards differencing disks, which may take a while.
    static constexpr int RestoreTimeoutMs = 120000;
    // A call past its time-out is asked to stop (SIGTERM, which makes VBoxManage
    // cancel what it started) and killed only if it is still there after this.
    static constexpr int StopGraceMs = 5000;
    // A call spends most of its time waiting for the VirtualBox service, not on
    // a CPU: a listing runs this many calls per core at once, within bounds.
    static constexpr int ConcurrentCallsPerCore = 12;
    static constexpr int MinConcurrentCalls = 8;
    static constexpr int MaxConcurrentCalls = 48;

    VBoxManageRunner();

    QString program() const { return m_program; }

    VBoxManageCall run(const QStringList &arguments, int timeoutMs = DefaultTimeoutMs) const;
    // Runs independent calls concurrently; results come back in the order given.
    QList<VBoxManageCall> runAll(const QList<QStringList> &calls, int timeoutMs = DefaultTimeoutMs) const;

private:
    QString m_program;
    QProcessEnvironment m_environment;
    int m_timeoutOverrideMs = 0; // KX_VBOXMANAGE_TIMEOUT_MS: one time-out for every call
    int m_concurrentCalls;
};
