// The interactive prompt. Without a terminal the editor takes the same keys as
// bytes from a pipe, which covers editing, history and Tab completion; a
// pseudo-terminal is used only for what a terminal alone shows: Ctrl-C and the
// terminal attributes, switched for each key and restored however the shell ends.
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QtTest>

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "shellrunner.h"

namespace {

const QByteArray Prompt = "Korvex Shell > ";
const QByteArray Welcome = "Welcome to Korvex Shell\n";

// Keys and echoes written as <name> in the tables.
QByteArray expand(const char *text)
{
    static const QList<QPair<QByteArray, QByteArray>> table = {
        {"<up>", "\x1b[A"}, {"<down>", "\x1b[B"}, {"<right>", "\x1b[C"}, {"<left>", "\x1b[D"}, {"<bs>", "\x7f"},
        {"<tab>", "\t"}, {"<erase>", "\b \b"}, {"<erase6>", QByteArray("\b \b").repeated(6)},
        {"<erase7>", QByteArray("\b \b").repeated(7)}, {"<unknown>", "Command not found: "},
        {"<failed>", ">>> Failed\n"}, {"<version>", "2.8.1 20161117-c0196b8\n"}};
    QByteArray result(text);
    for (const auto &key : table)
        result.replace(key.first, key.second);
    return result;
}

// One shell, with the test's environment, on a pseudo-terminal. On Linux the
// terminal's attributes read through the master side are the terminal's own,
// and stay readable after the shell is gone.
struct PtyShell
{
    ~PtyShell()
    {
        if (m_pid > 0 && !exited())
            kill(m_pid, SIGKILL), waitpid(m_pid, &m_status, 0);
        close(m_master);
    }

    bool start()
    {
        const QByteArray binary = QFile::encodeName(ShellRunner::shellBinary());
        m_pid = forkpty(&m_master, nullptr, nullptr, nullptr);
        if (m_pid == 0) {
            execl(binary.constData(), binary.constData(), nullptr);
            _exit(127);
        }
        // Read before the shell can have started to switch the terminal.
        m_initialFlags = flags();
        fcntl(m_master, F_SETFL, O_NONBLOCK);
        return m_pid > 0 && waitFor([this] { return m_output.endsWith(Prompt) && readingKey(); });
    }

    // Sends keys once the shell has waited 100 ms for a key with nothing left
    // to echo: a signal key would flush the keys still unread.
    bool type(const QByteArray &keys)
    {
        QElapsedTimer quiet;
        int seen = -1;
        return waitFor([&] {
                   if (std::exchange(seen, m_output.size()) != m_output.size())
                       quiet.start();
                   return readingKey() && quiet.elapsed() >= 100;
               })
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
        tcgetattr(m_master, &attributes);
        return attributes.c_lflag;
    }

    int m_master = -1;
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
    void initTestCase()
    {
        for (const QString &entry : m_runner.environment().toStringList())
            qputenv(qPrintable(entry.section('=', 0, 0)), entry.section('=', 1).toLocal8Bit());
    }
    void keys_data();
    void keys();
    void terminal_data();
    void terminal();
    void commandsFindTheTerminalAsItWas();

private:
    ShellRunner m_runner;
};

void TestInteractive::keys_data()
{
    QTest::addColumn<QByteArray>("typed");
    // What follows the first prompt, every prompt written as "$ ", up to the
    // last one, where Ctrl-D ends the run.
    QTest::addColumn<QByteArray>("shown");
    const auto row = [](const char *name, const char *typed, const char *shown) {
        QTest::newRow(name) << expand(typed) << expand(shown);
    };

    row("backspace", "abc<bs><bs>d\n", "abc<erase><erase>d\n<unknown>ad\n<failed>$ ");
    row("backspace on empty line", "<bs>a<bs><bs>x\n", "a<erase>x\n<unknown>x\n<failed>$ ");
    row("ignored keys", "a\xc3\xa9\x01<right><left>\x1bxyb\n", "ab\n<unknown>ab\n<failed>$ ");
    row("up and down with empty history", "<up><down>x\n", "x\n<unknown>x\n<failed>$ ");
    row("blank line is run", "   \n", "   \n<unknown>   \n<failed>$ ");
    row("empty line is neither run nor recorded", "version\n\n<up>\n", "version\n<version>$ \n$ version\n<version>$ ");
    row("up stops at the oldest, duplicates recorded once", "version\nversion\npause 0\n<up><up><up><down>\n",
        "version\n<version>$ version\n<version>$ pause 0\n$ pause 0<erase7>version<erase7>version<erase7>pause 0\n$ ");
    row("down stops at the newest", "version\nnosuch\n<up><up><down><down>x\n",
        "version\n<version>$ nosuch\n<unknown>nosuch\n<failed>$ nosuch<erase6>version<erase7>nosuch<erase6>nosuchx\n"
        "<unknown>nosuchx\n<failed>$ ");
    // The first Up erases nothing; later ones erase the stored entry's length.
    row("typed text stays on screen", "pause 0\nversion\nab<up>xy<up>\n",
        "pause 0\n$ version\n<version>$ abversionxy<erase7>pause 0\n$ ");
    row("tab completes the verb", "vers<tab>\n", "vers\r$ version \n<version>$ ");
    row("tab, any case", "BaT<tab>getl<tab>", "BaT\r$ battery getl\r$ battery getlevel ");
    row("tab never offers the hidden alias", "phone b<tab>", "phone b\r$ phone baseband ");
    row("tab without a match", "zzz<tab>", "zzz\r$ zzz");
    row("tab after three words", "gps setlatitude <tab>", "gps setlatitude \r$ gps setlatitude ");
    row("tab lists the matches", "gps getl<tab>",
        "gps getl\n\nList of available commands:\n---------------------------\n"
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
    QVERIFY(shell.start());
    for (const QByteArray &keys : typed)
        QVERIFY(shell.type(keys));
    if (signal)
        QVERIFY(shell.type(QByteArray()) && kill(shell.m_pid, signal) == 0);
    QVERIFY2(shell.waitFor([&] { return shell.exited(); }), shell.m_output.constData());
    // What the shell wrote just before it ended may still be unread.
    QVERIFY2(shell.waitFor([&] { return shell.m_output.contains(shown); }), shell.m_output.constData());
    if (endedBy)
        QVERIFY(WIFSIGNALED(shell.m_status) && WTERMSIG(shell.m_status) == endedBy);
    else
        QVERIFY(WIFEXITED(shell.m_status) && WEXITSTATUS(shell.m_status) == 0);
    QCOMPARE(shell.flags(), shell.m_initialFlags);
}

// Raw mode lasts for one key read only: a running command sees the terminal as the user set it.
void TestInteractive::commandsFindTheTerminalAsItWas()
{
    PtyShell shell;
    QVERIFY(shell.start());
    QVERIFY(shell.type("pause 2\r"));
    QVERIFY(shell.waitFor([&] { return shell.m_output.endsWith("pause 2\r\n"); }));
    QCOMPARE(shell.flags(), shell.m_initialFlags);
}

QTEST_GUILESS_MAIN(TestInteractive)
#include "tst_interactive.moc"
