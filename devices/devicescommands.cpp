// The devices commands: list, select, refresh and factory reset.
#include "prompt.h"

#include <QTcpSocket>
#include <QTextStream>
#include <algorithm>

#include "remotedevice.h"
#include "usageevents.h"
#include "virtualmachineengine.h"
#include "vmtoolsengine.h"

namespace {

const char *const TableHeader[] = {
    "Available devices:",
    "",
    " Id | Select |    Status     |   Type   |   IP Address    |      Name",
    "----+--------+---------------+----------+-----------------+---------------",
};

constexpr int IdWidth = 3;
constexpr int StatusWidth = 13;
constexpr int TypeWidth = 8;
constexpr int AddressWidth = 15;
const char SelectedMark[] = "   *   ";
const char UnselectedMark[] = "       ";
const char CellSeparator[] = "| ";

struct StatusText
{
    int state;
    const char *text;
};

const StatusText StatusTexts[] = {
    {On, "On"},
    {Off, "Off"},
    {Paused, "Paused "}, // the blank is part of the table's look
    {Process, "Process"},
    {Aborted, "Aborted"},
};
const char UnknownStatus[] = "unknown";

const char ForceKeyword[] = "force";
constexpr int ConfirmKey = 'y';
constexpr int EndOfInput = -1;

QString statusText(int state)
{
    for (const StatusText &entry : StatusTexts) {
        if (entry.state == state)
            return QString::fromLatin1(entry.text);
    }
    return QString::fromLatin1(UnknownStatus);
}

// A value right-aligned in its width, a blank and the separator; longer values are not cut.
QString cell(const QString &value, int width)
{
    return QStringLiteral("%1 ").arg(value, width) + QLatin1String(CellSeparator);
}

QString tableRow(int id, bool selected, const QString &status, const QString &type, const QString &address,
                 const QString &name)
{
    return cell(QString::number(id), IdWidth) + QLatin1String(selected ? SelectedMark : UnselectedMark)
        + QLatin1String(CellSeparator) + cell(status, StatusWidth) + cell(type, TypeWidth)
        + cell(address, AddressWidth) + name;
}

void printTableHeader(QTextStream &out)
{
    for (const char *line : TableHeader)
        out << line << Qt::endl;
}

} // namespace

int Prompt::devicesList(const QStringList &params)
{
    if (checkParams(params, 0) != 0)
        return -1;

    if (m_remoteDevice) {
        QTcpSocket socket;
        socket.connectToHost(m_remoteDevice->address(), m_remoteDevice->port());
        const bool connected = socket.waitForConnected(KorvexClient::ConnectTimeoutMs);
        printTableHeader(m_out);
        m_out << tableRow(0, true, QLatin1String(connected ? "Connected" : "Not connected"), QStringLiteral("remote"),
                          m_remoteDevice->address().toString(), m_remoteDevice->name())
              << Qt::endl;
        return 0;
    }
    if (!m_engine)
        return commandNotAvailable(params);

    m_engine->refreshDevices(true);
    const QList<Device> devices = m_engine->devices();
    if (devices.isEmpty()) {
        m_out << "No devices available" << Qt::endl;
        return 0;
    }
    printTableHeader(m_out);
    const int selected = m_engine->selectedIndex();
    for (int i = 0; i < devices.size(); ++i) {
        const Device &device = devices.at(i);
        m_out << tableRow(i, i == selected, statusText(device.state()),
                          QLatin1String(device.type() != 0 ? "virtual" : "physical"), device.address().toString(),
                          device.name())
              << Qt::endl;
    }
    return 0;
}

int Prompt::devicesSelect(const QStringList &params)
{
    if (!m_engine)
        return commandNotAvailable(params);

    bool selected = false;
    if (params.isEmpty()) {
        m_out << "Try to autoselect a device" << Qt::endl;
        selected = m_engine->autoSelect();
    } else {
        int id = 0;
        if (checkParams(params, 1) != 0 || checkIntParameter(params, 0, &id) != 0)
            return -1;
        m_out << "Selecting device id " << id << Qt::endl;
        selected = m_engine->selectDevice(id);
    }

    if (m_engine->hasSelection())
        m_out << "Korvex device selected: " << m_engine->selectedDevice().name() << Qt::endl;
    else
        m_out << "No device selected" << Qt::endl;
    return selected ? 0 : -1;
}

int Prompt::devicesRefresh(const QStringList &params)
{
    if (!m_engine)
        return commandNotAvailable(params);
    if (checkParams(params, 0) != 0)
        return -1;
    m_engine->refreshDevices(true);
    return 0;
}

int Prompt::devicesFactoryReset(const QStringList &params)
{
    // A remote device has no machine of ours to restore.
    if (!m_engine)
        return commandNotAvailable(params);
    if (checkParams(params, 1, true) != 0)
        return -1;

    const bool force = params.size() >= 2 && params.at(1).toLower() == QLatin1String(ForceKeyword);
    const QList<Device> devices = m_engine->devices();
    QString name = params.first();
    bool isId = false;
    const int id = name.toInt(&isId);
    if (isId) {
        if (id < 0 || id >= devices.size()) {
            m_out << "Invalid device Id" << Qt::endl;
            return -1;
        }
        name = devices.at(id).name();
    }

    const auto match = std::find_if(devices.cbegin(), devices.cend(),
                                    [&name](const Device &device) { return device.name() == name; });
    if (match == devices.cend()) {
        m_out << "No such device " << name << Qt::endl;
        return -1;
    }

    if (!force) {
        m_out << "Resetting virtual device '" << name << "' to factory settings" << Qt::endl;
        m_out << "WARNING: All settings and data of will be deleted!" << Qt::endl;
        m_out << "Are you sure? [y/N] : ";
        m_out.flush();
        const int key = m_keyReader.getch();
        if (key != EndOfInput)
            m_out << QChar::fromLatin1(char(key));
        m_out << Qt::endl;
        if (key != ConfirmKey)
            return -1;
    }

    if (const VirtualMachine *machine = match->machine()) {
        UsageEvents::record(QStringLiteral("reset_factory"),
                            {{QStringLiteral("android-version"), machine->androidVersion()},
                             {QStringLiteral("vm-version"), machine->vmVersion()},
                             {QStringLiteral("platform"), machine->platform()}});
    }
    return m_engine->restoreFactoryBackup(name);
}
