// Prompt construction (placeholder).
#include "prompt.h"

#include <QCoreApplication>

#include "console.h"

Prompt::Prompt(QCoreApplication *app, int connectionMode, const QHostAddress &, const QString &command,
               const QString &commandFileName, QObject *parent)
    : QObject(parent), m_app(app), m_out(console()), m_connectionMode(connectionMode), m_command(command),
      m_commandFile(commandFileName)
{
}

Prompt::~Prompt() = default;
QStringList Prompt::splitCommandLine(const QString &line) { return line.split(' '); }
int Prompt::compareVersions(const QString &, const QString &) { return 0; }
int Prompt::execCommand(const QString &) { return 1; }
QString Prompt::connectionModeText() const { return {}; }
int Prompt::checkParams(const QStringList &, int, bool) { return -1; }
int Prompt::checkIntParameter(const QStringList &, int) { return -1; }
int Prompt::checkLimits(const QString &, double, double, bool, bool) { return -1; }
int Prompt::checkDevice() { return -1; }
void Prompt::stopLoopThread() { m_running = false; }
void Prompt::main() {}
void Prompt::loopThread() {}
void Prompt::displayInfoVersions() {}
int Prompt::execCommandsFile() { return 1; }
