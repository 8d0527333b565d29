// The interactive prompt driven through a pseudo-terminal, as a person would
// use it: editing keys, history, Tab completion, Ctrl-C and the ways out, and
// the terminal attributes the shell leaves behind.
#include <functional>

#include <QDeadlineTimer>
#include <QFile>
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
    static const QList<QPair<QByteArray, QByteArray>> table = {
        {"<up>", "\x1b[A"}, {"<down>", "\x1b[B"},     {"<right>", "\x1b[C"},    {"<left>", "\x1b[D"},
        {"<tab>", "\t"},    {"<bs>", "\x7f"},         {"<enter>", "\r"},        {"<ctrl-c>", "\x03"},
        {"<ctrl-d>", "\x04"}, {"<ctrl-\\>", "\x1c"},
    };
    for (const auto &key : table)
        text.replace(key.first, key.second);
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
                line = line.leftJustified(m_col + 1, ' ');
                line[m_col++] = c;
            }
        }
    }

    QString line(int row) const { return QString::fromUtf8(m_lines.value(row)); }
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

// One korvex-shell in local mode on its own pseudo-terminal. The test keeps
// the terminal side open too, to read its attributes after the shell is gone.
class PtySession
{
public:
    ~PtySession()
    {
        if (m_pid > 0 && !m_exited) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &m_status, 0);
        }
        close(m_master);
        close(m_terminal);
    }

    // Starts the shell and waits for its first prompt.
    bool start()
    {
        const winsize size = {50, 200, 0, 0};
        if (openpty(&m_master, &m_terminal, nullptr, nullptr, &size) != 0)
            return false;
        fcntl(m_master, F_SETFL, fcntl(m_master, F_GETFL) | O_NONBLOCK);
        m_initialLocalFlags = localFlags();

        // Everything the child needs is built before fork.
        const QByteArray binary = QFile::encodeName(ShellRunner::shellBinary());
        QByteArrayList environment = {"TERM=dumb"};
        for (const QString &entry : m_runner.environment().toStringList())
            environment << entry.toLocal8Bit();
        std::vector<char *> argv = {const_cast<char *>(binary.constData()), nullptr};
        std::vector<char *> envp;
        for (const QByteArray &entry : environment)
            envp.push_back(const_cast<char *>(entry.constData()));
        envp.push_back(nullptr);

        m_pid = fork();
        if (m_pid == 0) {
            close(m_master);
            const rlimit noCore = {0, 0};
            setrlimit(RLIMIT_CORE, &noCore);
            if (login_tty(m_terminal) == 0)
                execve(argv[0], argv.data(), envp.data());
            _exit(127);
        }
        return m_pid > 0 && waitUntil([this] { return m_output.endsWith(PromptText) && isReadingKey(); },
                                      StartTimeoutMs);
    }

    // Waits until the shell reads a key, then sends the keys in one burst, so
    // that the terminal takes all of them in raw mode, as a fast typist's.
    bool type(const QByteArray &keyText)
    {
        const QByteArray bytes = keys(keyText);
        return waitUntil([this] { return isReadingKey(); })
               && write(m_master, bytes.constData(), bytes.size()) == bytes.size();
    }

    // Runs one line and waits for the prompt that follows it.
    bool runLine(const QByteArray &line)
    {
        const int mark = m_output.size();
        return type(line + "<enter>") && waitUntil([this, mark] {
                   const QByteArray output = m_output.mid(mark);
                   return output.contains('\n') && output.endsWith(PromptText);
               });
    }

    bool waitForLine(const QString &line)
    {
        return waitUntil([this, line] { return m_screen.currentLine() == line; });
    }

    bool waitForExit()
    {
        return waitUntil([this] { return m_exited = m_exited || waitpid(m_pid, &m_status, WNOHANG) == m_pid; });
    }

    // Polls until done() holds, reading the shell's output meanwhile.
    bool waitUntil(const std::function<bool()> &done, int timeoutMs = WaitTimeoutMs)
    {
        const QDeadlineTimer deadline(timeoutMs);
        while (!done()) {
            if (deadline.hasExpired())
                return false;
            pollfd fd = {m_master, POLLIN, 0};
            char buffer[4096];
            const ssize_t n = poll(&fd, 1, PollIntervalMs) > 0 ? read(m_master, buffer, sizeof buffer) : 0;
            if (n > 0) {
                m_output.append(buffer, n);
                m_screen.feed(QByteArray(buffer, n));
            }
        }
        return true;
    }

    // Canonical mode is off only while the shell waits for a key.
    bool isReadingKey() const { return !(localFlags() & ICANON); }

    tcflag_t localFlags() const
    {
        termios attributes = {};
        tcgetattr(m_terminal, &attributes);
        return attributes.c_lflag;
    }

    tcflag_t initialLocalFlags() const { return m_initialLocalFlags; }
    pid_t pid() const { return m_pid; }
    int status() const { return m_status; }
    const QByteArray &output() const { return m_output; }
    const Screen &screen() const { return m_screen; }
    QByteArray describe() const { return "\n" + m_screen.dump(); }

private:
    ShellRunner m_runner;
    int m_master = -1;
    int m_terminal = -1;
    tcflag_t m_initialLocalFlags = 0;
    pid_t m_pid = -1;
    int m_status = 0;
    bool m_exited = false;
    QByteArray m_output;
    Screen m_screen;
};

// Names of the rows of the last help block on screen (the text before the
// help, trimmed), or nothing when no block was shown.
QStringList listedNames(const Screen &screen)
{
    int title = screen.row();
    while (title >= 0 && screen.line(title) != ListTitle)
        --title;
    if (title < 0 || screen.line(title + 1) != QString(ListTitle.size(), '-'))
        return {};
    QStringList names;
    for (int i = title + 2; i < screen.row(); ++i) {
        const QString row = screen.line(i);
        names << (row.size() > HelpNameWidth ? row.left(HelpNameWidth).trimmed() : "no help: " + row);
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
    QTest::addColumn<QByteArray>("echoed"); // everything written after the prompt

    QTest::newRow("printable") << QByteArray("help me") << QByteArray("help me");
    QTest::newRow("backspace") << QByteArray("abc<bs><bs>d") << QByteArray("abc\b \b\b \bd");
    QTest::newRow("backspace on empty line") << QByteArray("<bs><bs>x") << QByteArray("x");
    QTest::newRow("backspace past the start") << QByteArray("a<bs><bs>x") << QByteArray("a\b \bx");
    QTest::newRow("non-ASCII dropped") << QByteArray("a\xc3\xa9\xe2\x82\xac" "b") << QByteArray("ab");
    QTest::newRow("left and right arrows ignored") << QByteArray("a<left><right>b") << QByteArray("ab");
    QTest::newRow("control bytes ignored") << QByteArray("a\x01\x02\x05" "b") << QByteArray("ab");
    QTest::newRow("up with empty history") << QByteArray("<up>x") << QByteArray("x");
    QTest::newRow("down before any up") << QByteArray("<down>x") << QByteArray("x");
}

// The shell echoes exactly what it keeps: nothing for ignored keys, and no
// erase sequence when there is nothing to erase.
void TestInteractive::editing()
{
    QFETCH(QByteArray, typed);
    QFETCH(QByteArray, echoed);

    PtySession session;
    START_OR_FAIL(session);
    const int mark = session.output().size();
    QVERIFY(session.type(typed + "!"));
    WAIT_OR_FAIL(session, session.waitUntil([&] { return session.output().endsWith("!"); }));
    QCOMPARE(session.output().mid(mark), echoed + "!");
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
        << QStringList{"android", "battery", "devices", "exit",     "gps",    "help",  "korvex",
                       "network", "pause",   "phone",   "quit",     "rotation", "version"};
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
    const QByteArray redrawn = "\r" + PromptText + line.toLatin1();
    WAIT_OR_FAIL(session, session.waitUntil([&] { return session.output().endsWith(redrawn); }));
    QCOMPARE(session.screen().currentLine(), PromptText + line);
    QCOMPARE(listedNames(session.screen()), listed);
}

// The edited line holds the completed text, not only the screen.
void TestInteractive::completedLineIsWhatRuns()
{
    PtySession session;
    START_OR_FAIL(session);
    const int mark = session.output().size();
    WAIT_OR_FAIL(session, session.runLine("vers<tab>"));
    QCOMPARE(session.output().mid(mark),
             "vers\r" + PromptText + "version \r\n" + VersionLine + "\r\n" + PromptText);
}

void TestInteractive::history_data()
{
    QTest::addColumn<QByteArrayList>("before");
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("output"); // of Enter, when checked

    const QByteArray notFound = "Command not found: nosuch\r\n>>> Failed\r\n";
    QTest::newRow("up stops at the oldest, duplicates recorded once")
        << QByteArrayList{"version", "version", "pause 0"} << QByteArray("<up><up><up><down>") << "pause 0"
        << QByteArray();
    // The final x tells when every key was read: the line after the first
    // <up> already shows nosuch.
    QTest::newRow("down stops at the newest")
        << QByteArrayList{"version", "nosuch"} << QByteArray("<up><up><down><down><down>x") << "nosuchx"
        << QByteArray("Command not found: nosuchx\r\n>>> Failed\r\n");
    QTest::newRow("empty line not recorded")
        << QByteArrayList{"version", ""} << QByteArray("<up>") << "version" << QByteArray();
    QTest::newRow("typed text stays on screen before the first up")
        << QByteArrayList{"version"} << QByteArray("ab<up>") << "abversion" << VersionLine + "\r\n";
    QTest::newRow("erasing uses the stored entry's length")
        << QByteArrayList{"version", "pause 0"} << QByteArray("<up>xy<up>") << "paversion" << VersionLine + "\r\n";
    QTest::newRow("browsed entry runs as it is")
        << QByteArrayList{"nosuch", "pause 0"} << QByteArray("<up><up>") << "nosuch" << notFound;
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
        const int mark = session.output().size();
        WAIT_OR_FAIL(session, session.runLine(""));
        QCOMPARE(session.output().mid(mark), "\r\n" + output + PromptText);
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
    const int mark = session.output().size();
    WAIT_OR_FAIL(session, session.runLine(line));
    QCOMPARE(session.output().mid(mark), line + "\r\n" + output + PromptText);
}

void TestInteractive::interruptGivesFreshPrompt()
{
    PtySession session;
    START_OR_FAIL(session);
    QVERIFY(session.type("ab"));
    WAIT_OR_FAIL(session, session.waitForLine(PromptText + "ab"));

    QVERIFY(session.type("<ctrl-c>"));
    WAIT_OR_FAIL(session, session.waitUntil([&] { return session.output().endsWith("ab\r\n" + PromptText); }));

    // The abandoned text is gone from the edited line, and the shell goes on.
    const int mark = session.output().size();
    WAIT_OR_FAIL(session, session.runLine("version"));
    QCOMPARE(session.output().mid(mark), "version\r\n" + VersionLine + "\r\n" + PromptText);
    QVERIFY(session.type("<ctrl-d>"));
    WAIT_OR_FAIL(session, session.waitForExit());
    QVERIFY(WIFEXITED(session.status()));
    QCOMPARE(WEXITSTATUS(session.status()), 0);
}

void TestInteractive::leaving_data()
{
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<QByteArray>("tail");
    QTest::addColumn<QByteArray>("thenTyped"); // once the tail is shown
    QTest::addColumn<int>("killWith");         // sent during the next key read, 0 for none
    QTest::addColumn<int>("endingSignal");     // 0 for a normal exit with status 0

    const QByteArray exiting = "\r\nExiting...\r\n";
    const QByteArray none;
    QTest::newRow("ctrl-d") << QByteArray("<ctrl-d>") << PromptText + exiting << none << 0 << 0;
    QTest::newRow("ctrl-d with typed text") << QByteArray("ab<ctrl-d>") << "ab" + exiting << none << 0 << 0;
    QTest::newRow("quit") << QByteArray("quit<enter>") << "quit" + exiting << none << 0 << 0;
    QTest::newRow("exit") << QByteArray("exit<enter>") << "exit" + exiting << none << 0 << 0;
    QTest::newRow("SIGTERM") << QByteArray("ab") << QByteArray("ab") << none << SIGTERM << SIGTERM;
    QTest::newRow("SIGHUP") << QByteArray("ab") << QByteArray("ab") << none << SIGHUP << SIGHUP;
    // Typed alone: a signal key flushes whatever is still unread with it.
    QTest::newRow("ctrl-\\") << QByteArray("ab") << QByteArray("ab") << QByteArray("<ctrl-\\>") << 0 << SIGQUIT;
}

// Whatever way the shell ends, the terminal gets its attributes back; a
// fatal signal still ends it the way the signal would have.
void TestInteractive::leaving()
{
    QFETCH(QByteArray, typed);
    QFETCH(QByteArray, tail);
    QFETCH(QByteArray, thenTyped);
    QFETCH(int, killWith);
    QFETCH(int, endingSignal);

    PtySession session;
    START_OR_FAIL(session);
    QVERIFY(session.type(typed));
    WAIT_OR_FAIL(session, session.waitUntil([&] { return session.output().endsWith(tail); }));
    if (!thenTyped.isEmpty())
        QVERIFY(session.type(thenTyped));
    if (killWith != 0) {
        // While the terminal is switched for a key read: the case that matters.
        WAIT_OR_FAIL(session, session.waitUntil([&] { return session.isReadingKey(); }));
        QCOMPARE(kill(session.pid(), killWith), 0);
    }
    WAIT_OR_FAIL(session, session.waitForExit());

    if (endingSignal != 0) {
        QVERIFY(WIFSIGNALED(session.status()));
        QCOMPARE(WTERMSIG(session.status()), endingSignal);
    } else {
        QVERIFY(WIFEXITED(session.status()));
        QCOMPARE(WEXITSTATUS(session.status()), 0);
    }
    QVERIFY(session.localFlags() & ICANON);
    QVERIFY(session.localFlags() & ECHO);
    QCOMPARE(session.localFlags(), session.initialLocalFlags());
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
    QVERIFY2(result.out.endsWith(expected), result.out.constData());
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
    process.write("version\n");
    process.closeWriteChannel();

    QByteArray out;
    const QByteArray ready = VersionLine + "\n" + PromptText;
    const QDeadlineTimer deadline(StartTimeoutMs);
    while (!out.endsWith(ready) && !deadline.hasExpired() && process.waitForReadyRead(WaitTimeoutMs))
        out += process.readAllStandardOutput();
    QVERIFY2(out.endsWith(ready), out.constData());

    const auto cpuTicks = [&process] {
        QFile stat(QString("/proc/%1/stat").arg(process.processId()));
        stat.open(QIODevice::ReadOnly);
        const QByteArray text = stat.readAll();
        // utime and stime, counted from the state field after "(name) ".
        const QByteArrayList fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
        return fields.value(11).toLongLong() + fields.value(12).toLongLong();
    };
    const long long before = cpuTicks();
    QVERIFY(!process.waitForFinished(ObservationMs));
    const long long used = cpuTicks() - before;
    QVERIFY2(used < sysconf(_SC_CLK_TCK) * ObservationMs / 1000 / 2, QByteArray::number(used).constData());
    process.kill();
    process.waitForFinished();
}

QTEST_GUILESS_MAIN(TestInteractive)
#include "tst_interactive.moc"
