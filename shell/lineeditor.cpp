// Interactive front of the shell: the prompt, a line editor reading raw keys,
// history browsing with the arrow keys and Tab completion of command names.
// Runs in the loop thread; the SIGINT handler only asks it to drop the line.
#include "prompt.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <unistd.h>

#include <QRegExp>
#include <QTextStream>

#include "console.h"

namespace {

#define KORVEX_PROMPT_TEXT "Korvex Shell > "
const char PromptText[] = KORVEX_PROMPT_TEXT;
const char EraseSequence[] = "\b \b";
const char FailedText[] = ">>> Failed";
const char ExitingText[] = "Exiting...";
const QChar Blank = QLatin1Char(' ');
const QChar CarriageReturn = QLatin1Char('\r');

// The one line being edited, by the loop thread only.
QString s_inputLine;

// The interrupt handler may only do async-signal-safe things: it writes the
// fresh prompt in one write() and leaves the line for the loop thread to drop
// before it handles the next key.
std::atomic<bool> s_lineAbandoned{false};
static_assert(std::atomic<bool>::is_always_lock_free, "used from a signal handler");
const char InterruptPrompt[] = "\n" KORVEX_PROMPT_TEXT;

} // namespace

// ---------------------------------------------------------------------------
// Prompt and loop
// ---------------------------------------------------------------------------

// Writes the prompt, on a new line when asked, and optionally drops the line.
void Prompt::displayPrompt(bool newLine, bool clearInput)
{
    if (newLine)
        m_out << Qt::endl;
    m_out << PromptText << Qt::flush;
    if (clearInput)
        s_inputLine.clear();
}

// Ctrl-C does not end the shell: it abandons the line and prompts afresh.
void Prompt::onInterrupt(int signalNumber)
{
    if (signalNumber != SIGINT)
        return;
    const int savedErrno = errno;
    s_lineAbandoned = true;
    const ssize_t written = write(STDOUT_FILENO, InterruptPrompt, sizeof(InterruptPrompt) - 1);
    static_cast<void>(written);
    errno = savedErrno;
}

// Reads and runs lines until quit, exit, Ctrl-D or the application stopping.
void Prompt::shell()
{
    while (m_running) {
        displayPrompt(false, false);
        m_out.flush();
        readline();
    }
}

// ---------------------------------------------------------------------------
// Line editing
// ---------------------------------------------------------------------------

// Edits one line key by key and runs it when Enter comes. The cases are tried
// in a fixed order; keys that match none are dropped.
void Prompt::readline()
{
    bool entryShown = false;
    while (m_running) {
        const int key = m_keyReader.readKey();
        if (s_lineAbandoned.exchange(false))
            s_inputLine.clear();
        if (KeyReader::isBackspace(key)) {
            if (!s_inputLine.isEmpty()) {
                clearCommandLine(1);
                m_out.flush();
                s_inputLine.chop(1);
            }
        } else if (KeyReader::isTab(key)) {
            // Rewritten over the old text, which completion only ever lengthens.
            s_inputLine = autocomplete(s_inputLine);
            m_out << CarriageReturn;
            displayPrompt(false, false);
            m_out << s_inputLine << Qt::flush;
        } else if (KeyReader::isUpArrow(key) && !m_history.isEmpty()) {
            m_historyBrowsing = true;
            // The first Up leaves typed text on screen; later ones erase the
            // previous entry by its stored length, even when it was edited.
            // Kept on purpose: scripts that drive the editor through a
            // terminal compare its exact bytes, erase sequences included.
            if (entryShown && m_historyIndex >= 0)
                clearCommandLine(m_history.at(m_historyIndex).length());
            m_historyIndex = qMin(m_historyIndex + 1, m_history.size() - 1);
            m_out << m_history.at(m_historyIndex) << Qt::flush;
            entryShown = true;
            s_inputLine = m_history.at(m_historyIndex);
        } else if (KeyReader::isDownArrow(key) && m_historyBrowsing) {
            if (entryShown && m_historyIndex >= 0)
                clearCommandLine(m_history.at(m_historyIndex).length());
            // Down stops at the newest entry rather than returning to an empty line.
            m_historyIndex = m_historyIndex - 1 < 1 ? 0 : m_historyIndex - 1;
            m_out << m_history.at(m_historyIndex) << Qt::flush;
            s_inputLine = m_history.at(m_historyIndex);
        } else if (KeyReader::isEnter(key)) {
            m_out << Qt::endl;
            // A copy: Ctrl-C may empty the shared line while the command runs.
            const QString line = s_inputLine;
            if (!line.isEmpty() && execCommand(line) != 0)
                m_out << FailedText << Qt::endl;
            m_historyBrowsing = false;
            m_historyIndex = -1;
            s_inputLine.clear();
            return;
        } else if (KeyReader::isEscape(key)) {
            // readKey folds every ESC into a longer code, so this never runs;
            // Escape is kept as a key that does nothing. Kept unreachable on
            // purpose: making it clear the line would change what the arrow
            // keys and every other escape sequence do to a line being typed.
            if (m_historyBrowsing) {
                s_inputLine.clear();
                m_out << Qt::endl << PromptText << Qt::flush;
            }
            m_historyBrowsing = false;
            m_historyIndex = -1;
            entryShown = false;
        } else if (KeyReader::isEndOfTransmission(key)) {
            m_out << Qt::endl << ExitingText << Qt::endl;
            m_running = false;
            return;
        } else if (KeyReader::isPrintable(key)) {
            const QChar typed = QLatin1Char(static_cast<char>(key));
            s_inputLine.append(typed);
            m_out << typed << Qt::flush;
        }
    }
}

// Erases nbChar characters left of the cursor.
void Prompt::clearCommandLine(int nbChar)
{
    for (int i = 0; i < nbChar; ++i)
        m_out << EraseSequence;
}

// ---------------------------------------------------------------------------
// Completion
// ---------------------------------------------------------------------------

// Completes the last word of input against the documented command names that
// have as many words as the line would have. One match completes the word and
// adds a blank; several are listed with their help and the line is unchanged.
QString Prompt::autocomplete(const QString &input)
{
    const QStringList words = splitCommandLine(input);
    const int n = words.size();
    const bool endsWithBlank = n == 0 || input.endsWith(Blank);
    const QString word = endsWithBlank ? QString() : words.last();
    const QString base = input.left(input.length() - word.length());

    const int depth = endsWithBlank ? n + 1 : n;
    QStringList wordPatterns;
    for (int i = 0; i < depth; ++i)
        wordPatterns << QStringLiteral("\\w+");
    const QRegExp depthPattern("^" + wordPatterns.join("-") + "$", Qt::CaseInsensitive);
    const QStringList context = endsWithBlank ? words : QStringList(words.mid(0, n - 1));
    // The typed words go in as they are, so a word may act as a pattern.
    const QRegExp contextPattern("^" + context.join("-"), Qt::CaseInsensitive);

    QStringList matches;
    for (const QString &key : m_helps.keys()) {
        if (depthPattern.indexIn(key) == -1 || contextPattern.indexIn(key) == -1)
            continue;
        const QString lastWord = key.section('-', -1);
        if (lastWord.startsWith(word, Qt::CaseInsensitive))
            matches << lastWord;
    }

    if (matches.isEmpty())
        return input;
    if (matches.size() == 1)
        return base + matches.first() + Blank;

    QStringList keys;
    for (const QString &match : matches)
        keys << QStringList(context + QStringList(match)).join("-");
    m_out << Qt::endl;
    showHelpOnKeys(keys);
    return input;
}
