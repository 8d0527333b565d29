// Command dispatch: the tokeniser, the lookup of the longest command name a
// line spells, the history, and the argument checks every handler shares.
#include "prompt.h"

#include <QLocale>
#include <QRegularExpression>

#include "korvexclient.h"
#include "virtualmachineengine.h"

namespace {

constexpr int HistoryCapacity = 1000;
// Bounds are shown like the help texts show them, whatever the locale.
constexpr char BoundFormat = 'g';
constexpr int BoundPrecision = 6;

} // namespace

QStringList Prompt::splitCommandLine(const QString &line)
{
    QStringList words;
    if (line.isEmpty())
        return words;

    // Both quote kinds delimit the same way and may close each other. The
    // empty piece before a leading quote flips the parity; kept on purpose:
    // it is how every command line has always been split, and a line starts
    // with an unquoted verb, so only odd lines see it.
    static const QRegularExpression quote(QStringLiteral("[\"']"));
    bool insideQuotes = line.at(0) == '"' || line.at(0) == '\'';
    const QStringList pieces = line.split(quote, Qt::KeepEmptyParts);
    for (const QString &piece : pieces) {
        if (insideQuotes)
            words << piece;
        else
            words << piece.split(' ', Qt::SkipEmptyParts);
        insideQuotes = !insideQuotes;
    }
    return words;
}

int Prompt::execCommand(const QString &line)
{
    QStringList words = splitCommandLine(line);
    QStringList name;
    while (!words.isEmpty()) {
        const QStringList candidate = name + QStringList(words.first());
        if (!m_commands.contains(candidate.join('-')))
            break;
        name = candidate;
        words.removeFirst();
    }

    if (m_history.size() > HistoryCapacity - 1)
        m_history.removeLast();
    if (m_history.isEmpty() || m_history.first() != line)
        m_history.prepend(line);

    if (name.isEmpty()) {
        m_out << "Command not found: " << line << Qt::endl;
        return 1;
    }

    const CommandHandler handler = m_commands.value(name.join('-'));
    if (!handler) {
        // A verb on its own lists its sub-commands; trailing words are ignored.
        help(name);
        return 0;
    }
    return (this->*handler)(words);
}

int Prompt::checkParams(const QStringList &params, int expectedParamNb, bool orMore)
{
    const int count = params.size();
    if (count == expectedParamNb || (orMore && count > expectedParamNb))
        return 0;
    m_out << "Syntax error: Command expects " << expectedParamNb << " parameters while " << count
          << " were given." << Qt::endl;
    return -1;
}

int Prompt::checkIntParameter(const QStringList &params, int indexOfInt, int *value)
{
    if (indexOfInt >= params.size()) {
        m_out << QString("Syntax error: Command expects parameter nb %1 to be of type Integer, but received only "
                         "%2 parameters")
                     .arg(indexOfInt + 1)
                     .arg(params.size())
              << Qt::endl;
        return -1;
    }
    bool ok = false;
    const int parsed = params.at(indexOfInt).toInt(&ok, 10);
    if (value)
        *value = parsed;
    if (!ok) {
        m_out << QString("Syntax error: Parameter %1 should be of type Integer").arg(indexOfInt + 1) << Qt::endl;
        return -1;
    }
    return 0;
}

int Prompt::checkLimits(const QString &param, double lower, double upper, bool lowerIncluded, bool upperIncluded,
                        double *parsed)
{
    bool ok = false;
    const double value = QLocale().toDouble(param, &ok);
    if (parsed)
        *parsed = value;
    const bool aboveLower = lowerIncluded ? lower <= value : lower < value;
    const bool belowUpper = upperIncluded ? value <= upper : value < upper;
    if (ok && aboveLower && belowUpper)
        return 0;
    m_out << QString("Syntax error: Expected a value in [%1; %2] but got %3")
                 .arg(QString::number(lower, BoundFormat, BoundPrecision),
                      QString::number(upper, BoundFormat, BoundPrecision), param)
          << Qt::endl;
    return -1;
}

int Prompt::checkDevice()
{
    if (m_connectionMode == RemoteHost) {
        if (m_client->isValid())
            return 0;
        m_out << "The remote device could not be reached because of its wrong IP address. Please check your "
                 "network configuration."
              << Qt::endl;
        return -1;
    }

    if (!m_engine->hasSelection()) {
        m_out << "No virtual device selected." << Qt::endl;
        return -1;
    }
    if (!m_client->isValid()) {
        m_out << "The virtual device could not be reached because of its wrong IP address. Please check its "
                 "network adapter configuration."
              << Qt::endl;
        return -1;
    }
    if (!m_engine->isSelectedDeviceOn()) {
        m_out << "The virtual device is not running and cannot answer requests. Please switch it on and refresh "
                 "the virtual device list."
              << Qt::endl;
        return -1;
    }
    return 0;
}

int Prompt::commandNotAvailable(const QStringList &)
{
    m_out << "Command not available in this mode (" << connectionModeText() << ")" << Qt::endl;
    return -1;
}
