// The interactive prompt driven through a pseudo-terminal, as a person would
// use it: editing keys, history, Tab completion, Ctrl-C and the ways out, and
// the terminal attributes the shell leaves behind.
#include <functional>

#include <QDeadlineTimer>
#include <QFile>
#include <QHash>
#include <QProcess>
#include <QtTest>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include "shellrunner.h"

namespace {

constexpr int StartTimeoutMs = 30000;
constexpr int WaitTimeoutMs = 10000;
constexpr int PollIntervalMs = 10;
constexpr int HelpNameWidth = 20;

const QByteArray PromptText = "Korvex Shell > ";
const QByteArray VersionLine = "2.8.1 20161117-c0196b8";
const QString ListTitle = QStringLiteral("List of available commands:");

// Keys as a terminal sends them; tests write them as <name>.
QByteArray keys(QByteArray text)
{
    static const QHash<QByteArray, QByteArray> table = {
        {"<up>", "\x1b[A"},   {"<down>", "\x1b[B"}, {"<right>", "\x1b[C"}, {"<left>", "\x1b[D"},
        {"<tab>", "\t"},      {"<bs>", "\x7f"},     {"<enter>", "\r"},     {"<ctrl-c>", "\x03"},
        {"<ctrl-d>", "\x04"}, {"<ctrl-\\>", "\x1c"},
    };
    for (auto it = table.cbegin(); it != table.cend(); ++it)
        text.replace(it.key(), it.value());
    return text;
}

QByteArray escaped(const QByteArray &bytes)
{
    QByteArray text;
    for (const char c : bytes) {
        switch (c) {
        case '\r': text += "\\r"; break;
        case '\n': text += "\\n\n"; break;
        case '\b': text += "\\b"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
                text += "\\x" + QByteArray::number(static_cast<unsigned char>(c), 16);
            else
                text += c;
        }
    }
    return text;
}

// Just enough of a terminal to read back what the user sees: carriage
// return, line feed and backspace move the cursor, other bytes overwrite.
class Screen
{
public:
    void feed(const QByteArray &bytes)
    {
        for (const char c : bytes) {
            if (c == '\r') {
                m_col = 0;
            } else if (c == '\n') {
                if (++m_row == m_lines.size())
                    m_lines.append(QByteArray());
            } else if (c == '\b') {
                m_col = qMax(0, m_col - 1);
            } else if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7f) {
                QByteArray &line = m_lines[m_row];
                if (line.size() <= m_col)
                    line.append(QByteArray(m_col + 1 - line.size(), ' '));
                line[m_col++] = c;
            }
        }
    }

    QStringList lines() const
    {
        QStringList result;
        for (const QByteArray &line : m_lines)
            result << QString::fromUtf8(line);
        return result;
    }

    int row() const { return m_row; }

    // The cursor's line, without the blanks that erasing left right of the cursor.
    QString currentLine() const
    {
        QByteArray line = m_lines[m_row];
        while (line.size() > m_col && line.endsWith(' '))
            line.chop(1);
        return QString::fromUtf8(line);
    }

    QByteArray dump() const
    {
        QByteArray text;
        for (int i = 0; i < m_lines.size(); ++i)
            text += (i == m_row ? "> |" : "  |") + m_lines[i] + "|\n";
        return text;
    }

private:
    QList<QByteArray> m_lines{QByteArray()};
    int m_row = 0;
    int m_col = 0;
};

// One korvex-shell on its own pseudo-terminal. The test keeps the terminal
// side open too, to read its attributes after the shell has gone.
class PtySession
{
public:
    ~PtySession()
    {
        if (m_pid > 0 && !m_exited) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &m_status, 0);
        }
        if (m_master >= 0)
            close(m_master);
        if (m_terminal >= 0)
            close(m_terminal);
    }

    // Starts the shell in local mode and waits for its first prompt.
    bool start()
    {
        const winsize size = {50, 200, 0, 0};
        if (openpty(&m_master, &m_terminal, nullptr, nullptr, &size) != 0)
            return false;
        fcntl(m_master, F_SETFL, fcntl(m_master, F_GETFL) | O_NONBLOCK);
        tcgetattr(m_terminal, &m_initialAttributes);

        // Everything the child needs is prepared before fork.
        const QByteArray binary = QFile::encodeName(ShellRunner::shellBinary());
        QList<QByteArray> environment;
        for (const QString &entry : m_runner.environment().toStringList())
            environment << entry.toLocal8Bit();
        environment << "TERM=dumb";
        std::vector<char *> argv = {const_cast<char *>(binary.constData()), nullptr};
        std::vector<char *> envp;
        for (const QByteArray &entry : environment)
            envp.push_back(const_cast<char *>(entry.constData()));
        envp.push_back(nullptr);

        m_pid = fork();
        if (m_pid < 0)
            return false;
        if (m_pid == 0) {
            close(m_master);
            if (login_tty(m_terminal) != 0)
                _exit(127);
            const rlimit noCore = {0, 0};
            setrlimit(RLIMIT_CORE, &noCore);
            sigset_t none;
            sigemptyset(&none);
            sigprocmask(SIG_SETMASK, &none, nullptr);
            execve(argv[0], argv.data(), envp.data());
            _exit(127);
        }
        return waitUntil([this] { return m_transcript.endsWith(PromptText) && isReadingKey(); }, StartTimeoutMs);
    }

    // Waits until the shell reads a key, then sends the keys in one burst, so
    // that the terminal handles all of them in raw mode, as a fast typist's.
    bool type(const QByteArray &keyText)
    {
        if (!waitUntil([this] { return isReadingKey(); }))
            return false;
        const QByteArray bytes = keys(keyText);
        return write(m_master, bytes.constData(), bytes.size()) == bytes.size();
    }

    // Runs one line and waits for the prompt that follows it.
    bool runLine(const QByteArray &line)
    {
        const int mark = m_transcript.size();
        return type(line + "<enter>") && waitUntil([this, mark] {
                   const QByteArray output = m_transcript.mid(mark);
                   return output.contains('\n') && output.endsWith(PromptText);
               });
    }

    bool waitForLine(const QString &line)
    {
        return waitUntil([this, line] { return m_screen.currentLine() == line; });
    }

    bool waitForOutputSince(int mark, const QByteArray &expected)
    {
        return waitUntil([this, mark, expected] { return m_transcript.mid(mark) == expected; });
    }

    bool waitForExit()
    {
        return waitUntil([this] {
            if (!m_exited && waitpid(m_pid, &m_status, WNOHANG) == m_pid)
                m_exited = true;
            return m_exited;
        });
    }

    // Polls until done() holds, reading the shell's output meanwhile.
    bool waitUntil(const std::function<bool()> &done, int timeoutMs = WaitTimeoutMs)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (!done()) {
            if (deadline.hasExpired())
                return false;
            readOutput();
        }
        return true;
    }

    // The shell is inside a key read: canonical mode is off only then.
    bool isReadingKey() const
    {
        termios attributes;
        return tcgetattr(m_terminal, &attributes) == 0 && !(attributes.c_lflag & ICANON);
    }

    tcflag_t localFlags() const
    {
        termios attributes;
        tcgetattr(m_terminal, &attributes);
        return attributes.c_lflag;
    }

    tcflag_t initialLocalFlags() const { return m_initialAttributes.c_lflag; }
    pid_t pid() const { return m_pid; }
    int status() const { return m_status; }
    const QByteArray &transcript() const { return m_transcript; }
    const Screen &screen() const { return m_screen; }

    QByteArray describe() const
    {
        return "\nscreen:\n" + m_screen.dump() + "output:\n" + escaped(m_transcript);
    }

private:
    void readOutput()
    {
        pollfd fd = {m_master, POLLIN, 0};
        if (poll(&fd, 1, PollIntervalMs) <= 0)
            return;
        char buffer[4096];
        const ssize_t n = read(m_master, buffer, sizeof buffer);
        if (n > 0) {
            m_transcript.append(buffer, n);
            m_screen.feed(QByteArray(buffer, n));
        }
    }

    ShellRunner m_runner;
    int m_master = -1;
    int m_terminal = -1;
    termios m_initialAttributes = {};
    pid_t m_pid = -1;
    int m_status = 0;
    bool m_exited = false;
    QByteArray m_transcript;
    Screen m_screen;
};

// Names of the rows of the last help block on screen (the text before the
// help, trimmed), or nothing when no block was shown.
QStringList listedNames(const Screen &screen)
{
    const QStringList lines = screen.lines();
    const int title = lines.lastIndexOf(ListTitle);
    if (title < 0 || title + 1 >= lines.size() || lines[title + 1] != QString(ListTitle.size(), '-'))
        return {};
    QStringList names;
    for (int i = title + 2; i < screen.row(); ++i) {
        const QString &row = lines[i];
        names << (row.size() > HelpNameWidth ? row.left(HelpNameWidth).trimmed() : "<no help>: " + row);
    }
    return names;
}

} // namespace

#define START_OR_FAIL(session) QVERIFY2(session.start(), session.describe().constData())
#define WAIT_OR_FAIL(session, condition) QVERIFY2(condition, session.describe().constData())

class TestInteractive : public QObject
{
    Q_OBJECT

private slots:
    void editing_data();
    void editing();
    void completion_data();
    void completion();
    void completedLineIsWhatRuns();
    void history_data();
    void history();
    void enter_data();
    void enter();
    void interruptGivesFreshPrompt();
    void leaving_data();
    void leaving();
    void pipedInput();
    void endOfPipedInputIsNotCtrlD();
};

void TestInteractive::editing_data()
{
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("echoed"); // everything written since the prompt

    QTest::newRow("printable") << QByteArray("help me") << "help me" << QByteArray("help me");
    QTest::newRow("backspace") << QByteArray("abc<bs><bs>d") << "ad" << QByteArray("abc\b \b\b \bd");
    QTest::newRow("backspace on empty line") << QByteArray("<bs><bs>x") << "x" << QByteArray("x");
    QTest::newRow("backspace past the start") << QByteArray("a<bs><bs>x") << "x" << QByteArray("a\b \bx");
    QTest::newRow("non-ASCII dropped") << QByteArray("a\xc3\xa9\xe2\x82\xac" "b") << "ab" << QByteArray("ab");
    QTest::newRow("left and right arrows ignored") << QByteArray("a<left><right>b") << "ab" << QByteArray("ab");
    QTest::newRow("control bytes ignored") << QByteArray("a\x01\x02\x05" "b") << "ab" << QByteArray("ab");
    QTest::newRow("up with empty history") << QByteArray("<up>x") << "x" << QByteArray("x");
    QTest::newRow("down before any up") << QByteArray("<down>x") << "x" << QByteArray("x");
}

// What the shell echoes is exactly what it kept: nothing for ignored keys,
// and no erase sequence when there is nothing to erase.
void TestInteractive::editing()
{
    QFETCH(QByteArray, typed);
    QFETCH(QString, line);
    QFETCH(QByteArray, echoed);

    PtySession session;
    START_OR_FAIL(session);
    const int mark = session.transcript().size();
    QVERIFY(session.type(typed));
    WAIT_OR_FAIL(session, session.waitForLine(PromptText + line));
    QCOMPARE(escaped(session.transcript().mid(mark)), escaped(echoed));
}

void TestInteractive::completion_data()
{
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("listed");

    const QStringList nothing;
    QTest::newRow("verb") << QByteArray("bat") << "battery " << nothing;
    QTest::newRow("sub-command") << QByteArray("battery getl") << "battery getlevel " << nothing;
    QTest::newRow("upper-case verb") << QByteArray("BAT") << "battery " << nothing;
    QTest::newRow("mixed-case context kept") << QByteArray("BaTtErY getl") << "BaTtErY getlevel " << nothing;
    QTest::newRow("hidden command not offered") << QByteArray("phone b") << "phone baseband " << nothing;
    QTest::newRow("three words offer nothing") << QByteArray("battery setlevel ") << "battery setlevel " << nothing;
    QTest::newRow("no match") << QByteArray("zzz") << "zzz" << nothing;
    QTest::newRow("empty line lists the verbs")
        << QByteArray("") << ""
        << QStringList{"android", "battery", "devices", "exit",  "gps",      "help",   "korvex",
                       "network", "pause",   "phone",   "quit",  "rotation", "version"};
    QTest::newRow("verb lists its sub-commands")
        << QByteArray("battery ") << "battery "
        << QStringList{"getlevel", "getmode", "getstatus", "setlevel", "setmode", "setstatus"};
    QTest::newRow("hidden command not listed") << QByteArray("phone ") << "phone "
                                               << QStringList{"baseband", "call", "sms"};
    QTest::newRow("prefix narrows the list") << QByteArray("gps getl") << "gps getl"
                                             << QStringList{"getlatitude", "getlongitude"};
}

void TestInteractive::completion()
{
    QFETCH(QByteArray, typed);
    QFETCH(QString, line);
    QFETCH(QStringList, listed);

    PtySession session;
    START_OR_FAIL(session);
    QVERIFY(session.type(typed + "<tab>"));
    // Tab always ends by redrawing the prompt and the line from column 0.
    WAIT_OR_FAIL(session, session.waitUntil([&] { return session.transcript().endsWith("\r" + PromptText + line.toLatin1()); }));
    QCOMPARE(session.screen().currentLine(), PromptText + line);
    QCOMPARE(listedNames(session.screen()), listed);
}

// The buffer holds the completed text, not only the screen.
void TestInteractive::completedLineIsWhatRuns()
{
    PtySession session;
    START_OR_FAIL(session);
    const int mark = session.transcript().size();
    WAIT_OR_FAIL(session, session.runLine("vers<tab>"));
    QCOMPARE(escaped(session.transcript().mid(mark)),
             escaped("vers\r" + PromptText + "version \r\n" + VersionLine + "\r\n" + PromptText));
}

void TestInteractive::history_data()
{
    QTest::addColumn<QByteArrayList>("before");
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("output"); // of Enter, when checked

    QTest::newRow("up stops at the oldest, duplicates recorded once")
        << QByteArrayList{"version", "version", "pause 0"} << QByteArray("<up><up><up><down>") << "pause 0"
        << QByteArray();
    QTest::newRow("down stops at the newest")
        << QByteArrayList{"version", "nosuch"} << QByteArray("<up><up><down><down><down>") << "nosuch"
        << QByteArray("Command not found: nosuch\r\n>>> Failed\r\n");
    QTest::newRow("empty line not recorded")
        << QByteArrayList{"version", ""} << QByteArray("<up>") << "version" << QByteArray();
    QTest::newRow("typed text stays on screen before the first up")
        << QByteArrayList{"version"} << QByteArray("ab<up>") << "abversion" << VersionLine + "\r\n";
    QTest::newRow("erasing uses the stored entry's length")
        << QByteArrayList{"version", "pause 0"} << QByteArray("<up>xy<up>") << "paversion" << VersionLine + "\r\n";
    QTest::newRow("browsed entry runs as it is")
        << QByteArrayList{"nosuch", "pause 0"} << QByteArray("<up><up>") << "nosuch"
        << QByteArray("Command not found: nosuch\r\n>>> Failed\r\n");
}

void TestInteractive::history()
{
    QFETCH(QByteArrayList, before);
    QFETCH(QByteArray, typed);
    QFETCH(QString, line);
    QFETCH(QByteArray, output);

    PtySession session;
    START_OR_FAIL(session);
    for (const QByteArray &entry : before)
        WAIT_OR_FAIL(session, session.runLine(entry));
    QVERIFY(session.type(typed));
    WAIT_OR_FAIL(session, session.waitForLine(PromptText + line));

    if (!output.isEmpty()) {
        const int mark = session.transcript().size();
        QVERIFY(session.type("<enter>"));
        WAIT_OR_FAIL(session, session.waitForOutputSince(mark, "\r\n" + output + PromptText));
    }
}

void TestInteractive::enter_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("output");

    QTest::newRow("success") << QByteArray("version") << VersionLine + "\r\n";
    QTest::newRow("unknown command fails")
        << QByteArray("nosuch") << QByteArray("Command not found: nosuch\r\n>>> Failed\r\n");
    QTest::newRow("failed check fails")
        << QByteArray("quit 1")
        << QByteArray("Syntax error: Command expects 0 parameters while 1 were given.\r\n>>> Failed\r\n");
    QTest::newRow("blank line is run") << QByteArray("   ")
                                       << QByteArray("Command not found:    \r\n>>> Failed\r\n");
    QTest::newRow("empty line is not run") << QByteArray("") << QByteArray();
}

void TestInteractive::enter()
{
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, output);

    PtySession session;
    START_OR_FAIL(session);
    const int mark = session.transcript().size();
    QVERIFY(session.type(line + "<enter>"));
    const QByteArray expected = line + "\r\n" + output + PromptText;
    if (!session.waitForOutputSince(mark, expected))
        QCOMPARE(escaped(session.transcript().mid(mark)), escaped(expected));
}

void TestInteractive::interruptGivesFreshPrompt()
{
    PtySession session;
    START_OR_FAIL(session);
    QVERIFY(session.type("ab"));
    WAIT_OR_FAIL(session, session.waitForLine(PromptText + "ab"));

    const int mark = session.transcript().size();
    QVERIFY(session.type("<ctrl-c>"));
    WAIT_OR_FAIL(session, session.waitForOutputSince(mark, "\r\n" + PromptText));
    QCOMPARE(session.screen().lines().at(session.screen().row() - 1), PromptText + "ab");

    // The abandoned text is gone from the line, and the shell is still there.
    const int runMark = session.transcript().size();
    WAIT_OR_FAIL(session, session.runLine("version"));
    QCOMPARE(session.transcript().mid(runMark), "version\r\n" + VersionLine + "\r\n" + PromptText);
    QVERIFY(session.type("<ctrl-d>"));
    WAIT_OR_FAIL(session, session.waitForExit());
    QVERIFY(WIFEXITED(session.status()));
    QCOMPARE(WEXITSTATUS(session.status()), 0);
}

void TestInteractive::leaving_data()
{
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<QByteArray>("thenTyped"); // once the first keys are read
    QTest::addColumn<int>("killWith"); // sent during the next key read, 0 for none
    QTest::addColumn<int>("endingSignal"); // 0 for a normal exit with status 0
    QTest::addColumn<QByteArray>("tail");

    const QByteArray exiting = "\r\nExiting...\r\n";
    const QByteArray none;
    QTest::newRow("ctrl-d") << QByteArray("<ctrl-d>") << none << 0 << 0 << PromptText + exiting;
    QTest::newRow("ctrl-d with typed text") << QByteArray("ab<ctrl-d>") << none << 0 << 0 << "ab" + exiting;
    QTest::newRow("quit") << QByteArray("quit<enter>") << none << 0 << 0 << "quit" + exiting;
    QTest::newRow("exit") << QByteArray("exit<enter>") << none << 0 << 0 << "exit" + exiting;
    QTest::newRow("SIGTERM") << QByteArray("ab") << none << SIGTERM << SIGTERM << QByteArray("ab");
    QTest::newRow("SIGHUP") << QByteArray("ab") << none << SIGHUP << SIGHUP << QByteArray("ab");
    // Typed alone: the signal key flushes whatever is still unread with it.
    QTest::newRow("ctrl-\\") << QByteArray("ab") << QByteArray("<ctrl-\\>") << 0 << SIGQUIT << QByteArray("ab");
}

// Whatever way the shell ends, the terminal gets its attributes back; a
// fatal signal still ends it the way the signal would have.
void TestInteractive::leaving()
{
    QFETCH(QByteArray, typed);
    QFETCH(QByteArray, thenTyped);
    QFETCH(int, killWith);
    QFETCH(int, endingSignal);
    QFETCH(QByteArray, tail);

    PtySession session;
    START_OR_FAIL(session);
    QVERIFY(session.type(typed));
    WAIT_OR_FAIL(session, session.waitUntil([&] { return session.transcript().endsWith(tail); }));
    if (!thenTyped.isEmpty())
        QVERIFY(session.type(thenTyped));
    if (killWith != 0) {
        // Sent while the terminal is switched for a key read, the case that matters.
        WAIT_OR_FAIL(session, session.waitUntil([&] { return session.isReadingKey(); }));
        QCOMPARE(kill(session.pid(), killWith), 0);
    }
    WAIT_OR_FAIL(session, session.waitForExit());

    if (endingSignal != 0) {
        QVERIFY2(WIFSIGNALED(session.status()), session.describe().constData());
        QCOMPARE(WTERMSIG(session.status()), endingSignal);
    } else {
        QVERIFY2(WIFEXITED(session.status()), session.describe().constData());
        QCOMPARE(WEXITSTATUS(session.status()), 0);
    }
    const tcflag_t flags = session.localFlags();
    QVERIFY(flags & ICANON);
    QVERIFY(flags & ECHO);
    QCOMPARE(flags, session.initialLocalFlags());
}

// Without a terminal the same editor reads bytes as they come: printable
// bytes are echoed and a line feed ends the line.
void TestInteractive::pipedInput()
{
    ShellRunner runner;
    const ShellResult result = runner.run({}, "version\nnosuch\nquit\n");
    QVERIFY(result.finished);
    QCOMPARE(result.exitCode, 0);
    const QByteArray expected = PromptText + "version\n" + VersionLine + "\n" + PromptText
                                + "nosuch\nCommand not found: nosuch\n>>> Failed\n" + PromptText + "quit\nExiting...\n";
    QVERIFY2(result.out.endsWith(expected), escaped(result.out).constData());
}

// After the last byte the shell keeps waiting for more, and waits idle. The
// CPU check cannot fail unless the shell spins on end of input.
void TestInteractive::endOfPipedInputIsNotCtrlD()
{
    constexpr int ObservationMs = 1000;
    ShellRunner runner;
    QProcess process;
    process.setProcessEnvironment(runner.environment());
    process.start(ShellRunner::shellBinary(), QStringList());
    QVERIFY(process.waitForStarted());
    process.write("version\n");
    process.closeWriteChannel();

    QByteArray out;
    QDeadlineTimer deadline(StartTimeoutMs);
    const QByteArray ready = VersionLine + "\n" + PromptText;
    while (!out.endsWith(ready) && !deadline.hasExpired()) {
        process.waitForReadyRead(PollIntervalMs * 10);
        out += process.readAllStandardOutput();
    }
    QVERIFY2(out.endsWith(ready), escaped(out).constData());

    const auto cpuTicks = [&process] {
        QFile stat(QString("/proc/%1/stat").arg(process.processId()));
        if (!stat.open(QIODevice::ReadOnly))
            return -1LL;
        // The fields after the command name, which is in parentheses.
        const QByteArray text = stat.readAll();
        const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
        return fields.value(11).toLongLong() + fields.value(12).toLongLong(); // utime + stime
    };
    const long long before = cpuTicks();
    QVERIFY(!process.waitForFinished(ObservationMs));
    const long long used = cpuTicks() - before;
    QCOMPARE(process.state(), QProcess::Running);
    QVERIFY2(used < sysconf(_SC_CLK_TCK) * ObservationMs / 1000 / 2, qPrintable(QString::number(used)));

    process.kill();
    process.waitForFinished();
}

QTEST_GUILESS_MAIN(TestInteractive)
#include "tst_interactive.moc"
