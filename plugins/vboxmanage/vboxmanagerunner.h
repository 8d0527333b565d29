// Runs the VirtualBox command-line manager for the plug-in: one program
// (KX_VBOXMANAGE or VBoxManage on the PATH), every call bounded by a time-out,
// several calls at once when they do not depend on each other.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

struct VBoxManageCall
{
    QStringList arguments;
    bool finished = false; // ran and exited by itself within its time-out
    int exitCode = -1;
    QByteArray output;
    QString failure; // why the call did not succeed; empty on success

    bool succeeded() const { return finished && exitCode == 0; }
    QString text() const { return QString::fromUtf8(output); }
};

class VBoxManageRunner
{
public:
    static constexpr int DefaultTimeoutMs = 20000;
    // Restoring a snapshot discards differencing disks, which may take a while.
    static constexpr int RestoreTimeoutMs = 120000;
    static constexpr int MaxConcurrentCalls = 12;

    VBoxManageRunner();

    QString program() const { return m_program; }

    VBoxManageCall run(const QStringList &arguments, int timeoutMs = DefaultTimeoutMs) const;
    // Runs independent calls concurrently; results come back in the order given.
    QList<VBoxManageCall> runAll(const QList<QStringList> &calls, int timeoutMs = DefaultTimeoutMs) const;

private:
    QString m_program;
    int m_timeoutOverrideMs = 0; // KX_VBOXMANAGE_TIMEOUT_MS: one time-out for every call
};
