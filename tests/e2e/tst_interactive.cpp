// The interactive prompt. Without a terminal the editor takes the same keys as
// bytes from a pipe, which covers editing, history and Tab completion; a
// pseudo-terminal is used only for what a terminal alone shows: Ctrl-C and the
// terminal attributes, switched for each key and restored however the shell ends.
#include <QDeadlineTimer>
#include <QFile>
#include <QtTest>

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include "shellrunner.h"

namespace {

const QByteArray Prompt = "Korvex Shell > ";
const QByteArray Welcome = "Welcome to Korvex Shell\n";
const QByteArray Version = "2.8.1 20161117-c0196b8\n";
const QByteArray Erase = "\b \b";
const QByteArray Up = "\x1b[A";
const QByteArray Down = "\x1b[B";

// One shell on a pseudo-terminal; the test keeps the terminal side open to
// read its attributes after the shell is gone.
struct PtyShell
{
    ~PtyShell()
    {
        if (m_pid > 0 && !exited())
            kill(m_pid, SIGKILL), waitpid(m_pid, &m_status, 0);
        close(m_master);
        close(m_terminal);
    }

    bool start(const QProcessEnvironment &environment)
    {
        if (openpty(&m_master, &m_terminal, nullptr, nullptr, nullptr) != 0)
            return false;
        fcntl(m_master, F_SETFL, O_NONBLOCK);
        m_initialFlags = flags();
        QByteArrayList entries{QFile::encodeName(ShellRunner::shellBinary())};
        for (const QString &entry : environment.toStringList())
            entries << entry.toLocal8Bit();
        std::vector<char *> pointers;
        for (QByteArray &entry : entries)
            pointers.push_back(entry.data());
        pointers.insert(pointers.begin() + 1, nullptr);
        pointers.push_back(nullptr);
        m_pid = fork();
        if (m_pid == 0) {
            if (login_tty(m_terminal) == 0)
                execve(pointers[0], pointers.data(), pointers.data() + 2);
            _exit(127);
        }
        return waitFor([this] { return m_output.endsWith(Prompt) && readingKey(); });
    }

    // Sends keys once the shell waits for a key with nothing left to echo: a
    // signal key would flush the keys still unread.
    bool type(const QByteArray &keys)
    {
        int seen = -1;
        return waitFor([&] { return readingKey() && std::exchange(seen, m_output.size()) == m_output.size(); })
               && write(m_master, keys.constData(), keys.size()) == keys.size();
    }

    bool waitFor(const std::function<bool()> &done)
    {
        const QDeadlineTimer deadline(20000);
        while (!done() && !deadline.hasExpired()) {
            pollfd fd = {m_master, POLLIN, 0};
            char buffer[4096];
            const ssize_t n = poll(&fd, 1, 20) > 0 ? read(m_master, buffer, sizeof buffer) : 0;
            m_output.append(buffer, int(qMax<ssize_t>(n, 0)));
        }
        return done();
    }

    bool exited() { return m_exited = m_exited || waitpid(m_pid, &m_status, WNOHANG) == m_pid; }
    // The shell turns canonical mode off only while it waits for a key.
    bool readingKey() const { return !(flags() & ICANON); }
    tcflag_t flags() const
    {
        termios attributes = {};
        tcgetattr(m_terminal, &attributes);
        return attributes.c_lflag;
    }

    int m_master = -1;
    int m_terminal = -1;
    tcflag_t m_initialFlags = 0;
    pid_t m_pid = -1;
    int m_status = 0;
    bool m_exited = false;
    QByteArray m_output;
};

} // namespace

class TestInteractive : public QObject
{
    Q_OBJECT

private slots:
    void keys_data();
    void keys();
    void terminal_data();
    void terminal();

private:
    ShellRunner m_runner;
};

void TestInteractive::keys_data()
{
    QTest::addColumn<QByteArray>("typed");
    // What follows the first prompt, every prompt written as "$ ", up to the
    // last one, where Ctrl-D ends the run.
    QTest::addColumn<QByteArray>("shown");

    const QByteArray notFound = "Command not found: %1\n>>> Failed\n";
    const auto failed = [&](const QByteArray &line) { return QByteArray(notFound).replace("%1", line); };

    QTest::newRow("backspace") << QByteArray("abc\x7f\x7f" "d\n") << "abc" + Erase + Erase + "d\n" + failed("ad") + "$ ";
    QTest::newRow("backspace on empty line") << QByteArray("\x7f" "a\x7f\x7f" "x\n") << "a" + Erase + "x\n" + failed("x") + "$ ";
    QTest::newRow("ignored keys") << QByteArray("a\xc3\xa9\x01\x1b[C\x1b[D\x1b" "xyb\n") << "ab\n" + failed("ab") + "$ ";
    QTest::newRow("up and down with empty history") << Up + Down + "x\n" << "x\n" + failed("x") + "$ ";
    QTest::newRow("blank line is run") << QByteArray("   \n") << "   \n" + failed("   ") + "$ ";
    QTest::newRow("empty line is neither run nor recorded")
        << "version\n\n" + Up + "\n" << "version\n" + Version + "$ \n$ version\n" + Version + "$ ";
    QTest::newRow("up stops at the oldest, duplicates recorded once")
        << "version\nversion\npause 0\n" + Up + Up + Up + Down + "\n"
        << "version\n" + Version + "$ version\n" + Version + "$ pause 0\n$ pause 0" + Erase.repeated(7) + "version"
               + Erase.repeated(7) + "version" + Erase.repeated(7) + "pause 0\n$ ";
    QTest::newRow("down stops at the newest")
        << "version\nnosuch\n" + Up + Up + Down + Down + "x\n"
        << "version\n" + Version + "$ nosuch\n" + failed("nosuch") + "$ nosuch" + Erase.repeated(6) + "version"
               + Erase.repeated(7) + "nosuch" + Erase.repeated(6) + "nosuchx\n" + failed("nosuchx") + "$ ";
    // The first Up erases nothing; later ones erase the stored entry's length.
    QTest::newRow("typed text stays on screen")
        << "pause 0\nversion\nab" + Up + "xy" + Up + "\n"
        << "pause 0\n$ version\n" + Version + "$ abversionxy" + Erase.repeated(7) + "pause 0\n$ ";
    QTest::newRow("quit") << QByteArray("quit\n") << QByteArray("quit\nExiting...\n");
    QTest::newRow("tab completes the verb") << QByteArray("vers\t\n") << "vers\r$ version \n" + Version + "$ ";
    QTest::newRow("tab, any case") << QByteArray("BaT\tgetl\t") << QByteArray("BaT\r$ battery getl\r$ battery getlevel ");
    QTest::newRow("tab keeps the typed context") << QByteArray("BATTERY getl\t")
                                                  << QByteArray("BATTERY getl\r$ BATTERY getlevel ");
    QTest::newRow("tab never offers the hidden alias") << QByteArray("phone b\t") << QByteArray("phone b\r$ phone baseband ");
    QTest::newRow("tab without a match") << QByteArray("zzz\t") << QByteArray("zzz\r$ zzz");
    QTest::newRow("tab after three words") << QByteArray("gps setlatitude \t")
                                           << QByteArray("gps setlatitude \r$ gps setlatitude ");
    QTest::newRow("tab lists the matches")
        << QByteArray("gps getl\t")
        << QByteArray("gps getl\n\nList of available commands:\n---------------------------\n"
           "getlatitude         get the current latitude value of the GPS location in degrees [-90; 90]\n"
           "getlongitude        get the current longitude value of the GPS location in degrees [-180; 180]\n"
           "\r$ gps getl");
}

void TestInteractive::keys()
{
    QFETCH(QByteArray, typed);
    QFETCH(QByteArray, shown);
    const ShellResult result = m_runner.run({}, typed + "\x04");
    QVERIFY(result.finished);
    QCOMPARE(result.exitCode, 0);
    QByteArray out = result.out.mid(result.out.indexOf(Welcome) + Welcome.size());
    out.replace(Prompt, "$ ");
    if (!shown.endsWith("Exiting...\n"))
        shown += "\nExiting...\n";
    QCOMPARE(out, "$ " + shown);
}

void TestInteractive::terminal_data()
{
    QTest::addColumn<QByteArrayList>("typed"); // each burst once the previous one is echoed
    QTest::addColumn<int>("signal");           // sent then, while the shell waits for a key
    QTest::addColumn<int>("endedBy");          // 0 for a normal exit with status 0
    QTest::addColumn<QByteArray>("shown");

    QTest::newRow("ctrl-c gives a fresh prompt, ctrl-d ends")
        << QByteArrayList{"ab", "\x03", "version\r", "\x04"} << 0 << 0
        << "ab\r\n" + Prompt + "version\r\n2.8.1 20161117-c0196b8\r\n" + Prompt + "\r\nExiting...\r\n";
    QTest::newRow("exit") << QByteArrayList{"exit\r"} << 0 << 0 << QByteArray("exit\r\nExiting...\r\n");
    QTest::newRow("SIGTERM") << QByteArrayList{"ab"} << SIGTERM << SIGTERM << QByteArray("ab");
    QTest::newRow("ctrl-\\") << QByteArrayList{"\x1c"} << 0 << SIGQUIT << QByteArray();
}

// However the shell ends, the terminal gets its attributes back; a fatal
// signal still ends it the way the signal would have.
void TestInteractive::terminal()
{
    QFETCH(QByteArrayList, typed);
    QFETCH(int, signal);
    QFETCH(int, endedBy);
    QFETCH(QByteArray, shown);
    PtyShell shell;
    QVERIFY(shell.start(m_runner.environment()));
    for (const QByteArray &keys : typed)
        QVERIFY(shell.type(keys));
    if (signal)
        QVERIFY(shell.type(QByteArray()) && kill(shell.m_pid, signal) == 0);
    QVERIFY2(shell.waitFor([&] { return shell.exited(); }), shell.m_output.constData());
    QVERIFY2(shell.m_output.contains(shown), shell.m_output.constData());
    if (endedBy)
        QVERIFY(WIFSIGNALED(shell.m_status) && WTERMSIG(shell.m_status) == endedBy);
    else
        QVERIFY(WIFEXITED(shell.m_status) && WEXITSTATUS(shell.m_status) == 0);
    QCOMPARE(shell.flags(), shell.m_initialFlags);
}

QTEST_GUILESS_MAIN(TestInteractive)
#include "tst_interactive.moc"
