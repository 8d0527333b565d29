// Test handle of the device simulator.
#include "devsim.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>

#include <csignal>
#include <sys/prctl.h>

void SimulatorProcess::setupChildProcess()
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
}

DevSim::DevSim(const QString &address, const QStringList &options) : m_address(address), m_options(options) {}

DevSim::~DevSim() { stop(); }

bool DevSim::start()
{
    QStringList arguments{"--address", m_address, "--log", m_dir.path() + "/requests.log"};
    arguments << m_options;
    m_process.setProcessChannelMode(QProcess::SeparateChannels);
    m_process.start(binary(), arguments);
    if (!m_process.waitForStarted(5000))
        return false;
    QElapsedTimer timer;
    timer.start();
    QByteArray out;
    while (timer.elapsed() < 10000) {
        if (m_process.waitForReadyRead(200))
            out += m_process.readAllStandardOutput();
        if (out.contains("listening on"))
            return true;
        if (m_process.state() == QProcess::NotRunning)
            return false;
    }
    return false;
}

std::unique_ptr<DevSim> DevSim::startFree(int first, int count, const QStringList &options)
{
    for (int host = first; host < first + count; ++host) {
        auto sim = std::make_unique<DevSim>(QStringLiteral("127.0.0.%1").arg(host), options);
        if (sim->start())
            return sim;
    }
    return nullptr;
}

void DevSim::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(3000)) {
        m_process.kill();
        m_process.waitForFinished(3000);
    }
}

QStringList DevSim::log() const
{
    QFile file(m_dir.path() + "/requests.log");
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // Each line starts with its time; a line without one is kept whole, so
    // that no test finds the event it looks for.
    static const QRegularExpression stamp("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} ");
    QStringList lines = QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
    for (QString &line : lines)
        line.remove(stamp);
    return lines;
}

QStringList DevSim::requests() const
{
    QStringList result;
    static const QRegularExpression pattern("^request \\d+ (.*)$");
    for (const QString &line : log()) {
        const auto match = pattern.match(line);
        if (match.hasMatch())
            result << match.captured(1);
    }
    return result;
}

int DevSim::connectionCount() const
{
    int count = 0;
    for (const QString &line : log())
        if (line.startsWith("connect "))
            ++count;
    return count;
}
