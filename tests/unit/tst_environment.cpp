// Host environment: home directory rules, settings stores, the log file
// handler, and the walker, clearing and sizing of temporary files.
//
// Directories, settings and the logging state are set once per process, so
// those cases run this executable again as a child (TST_ENVIRONMENT_CHILD
// names what the child does) with the environment under test.
#include "homedirectory.h"
#include "logging.h"
#include "settings.h"
#include "temporaryfiles.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

namespace {

const char ChildVariable[] = "TST_ENVIRONMENT_CHILD";
const int ChildTimeoutMs = 30000;

Q_LOGGING_CATEGORY(testCategory, "korvex.test")

// --- Child side -----------------------------------------------------------

int childDirectories()
{
    QTextStream out(stdout);
    out << baseDirectory() << '\n' << dataDirectory() << '\n';
    return 0;
}

int childSettings()
{
    const Settings &settings = Settings::instance();
    QTextStream out(stdout);
    for (const char *key : {"host.only.interface", "statistics/url"})
        out << (settings.contains(key) ? "true" : "false") << '|' << settings.value(key).toString() << '\n';
    return 0;
}

// Arguments: log path, "quiet" or "loud", then actions of the form
// level:text, "remove" (delete the log file), "reopen", or check:text
// (prints whether the file already holds text).
int childLog(const QStringList &arguments)
{
    const QString path = arguments.value(0);
    initLogging(path, arguments.value(1) == "quiet");
    QTextStream out(stdout);
    for (const QString &action : arguments.mid(2)) {
        const QString text = action.section(':', 1);
        const QString verb = action.section(':', 0, 0);
        if (verb == "debug") {
            qDebug("%s", qPrintable(text));
        } else if (verb == "warning") {
            qWarning("%s", qPrintable(text));
        } else if (verb == "category") {
            qCWarning(testCategory, "%s", qPrintable(text));
        } else if (verb == "thread") {
            QThread *worker = QThread::create([text] { qDebug("%s", qPrintable(text)); });
            worker->start();
            worker->wait();
            delete worker;
        } else if (verb == "fatal") {
            qFatal("%s", qPrintable(text));
        } else if (verb == "remove") {
            QFile::remove(path);
        } else if (verb == "reopen") {
            initLogging(path, false);
        } else if (verb == "check") {
            QFile file(path);
            file.open(QIODevice::ReadOnly);
            out << (file.readAll().contains(text.toLocal8Bit()) ? "present" : "absent") << Qt::endl;
        }
    }
    return 0;
}

int runChild(const QString &mode, const QStringList &arguments)
{
    if (mode == "directories")
        return childDirectories();
    if (mode == "settings")
        return childSettings();
    if (mode == "log")
        return childLog(arguments);
    return 2;
}

// --- Parent side ----------------------------------------------------------

struct ChildResult
{
    QString out;
    QString err;
    bool crashed = true;
};

// Runs program (this executable by default) in a child mode. Each entry of
// environment is NAME=VALUE; the logging variables start unset.
ChildResult runChildProcess(const QString &mode, const QStringList &arguments,
                            const QStringList &environment, const QString &workingDirectory = {},
                            const QString &program = QCoreApplication::applicationFilePath())
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("KX_HOME");
    env.remove("KX_LOG_TO_STDERR");
    env.remove("QT_MESSAGE_PATTERN");
    env.insert(ChildVariable, mode);
    for (const QString &entry : environment)
        env.insert(entry.section('=', 0, 0), entry.section('=', 1));

    QProcess process;
    process.setProcessEnvironment(env);
    if (!workingDirectory.isEmpty())
        process.setWorkingDirectory(workingDirectory);
    process.start(program, arguments);
    ChildResult result;
    if (!process.waitForStarted(ChildTimeoutMs))
        return result;
    if (!process.waitForFinished(ChildTimeoutMs)) {
        process.kill();
        process.waitForFinished(ChildTimeoutMs);
    }
    result.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    result.err = QString::fromLocal8Bit(process.readAllStandardError());
    result.crashed = process.exitStatus() != QProcess::NormalExit;
    return result;
}

QStringList substituted(QStringList list, const QString &placeholder, const QString &value)
{
    return list.replaceInStrings(placeholder, value);
}

// Log lines start with a time stamp; "<time>" stands for it in expectations.
QString withoutTimes(QString text)
{
    static const QRegularExpression time("^\\S+ \\d{1,2} \\d\\d:\\d\\d:\\d\\d ",
                                         QRegularExpression::MultilineOption);
    return text.replace(time, "<time> ");
}

QString readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(file.readAll()) : QString();
}

void emptyDirectory(const QString &path)
{
    for (const QFileInfo &entry : QDir(path).entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden)) {
        if (entry.isDir() && !entry.isSymLink())
            QDir(entry.absoluteFilePath()).removeRecursively();
        else
            QFile::remove(entry.absoluteFilePath());
    }
}

void writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(path));
    file.write(content);
}

} // namespace

class TestEnvironment : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void directories_data();
    void directories();
    void settings_data();
    void settings();
    void logging_data();
    void logging();

    void walker_data();
    void walker();
    void clear();
    void computeSize();

private:
    QString base() const { return m_home.path(); }
    // Creates the files below the base directory, relative path → size.
    void makeTree(const QMap<QString, int> &files);

    QTemporaryDir m_home;
    QTemporaryDir m_scratch;
};

void TestEnvironment::initTestCase()
{
    QVERIFY(m_home.isValid());
    // Before anything in this process asks for the directories.
    qputenv("KX_HOME", QFile::encodeName(m_home.path()));
    QCOMPARE(baseDirectory(), m_home.path());
}

void TestEnvironment::init()
{
    emptyDirectory(base());
    emptyDirectory(m_scratch.path());
}

void TestEnvironment::makeTree(const QMap<QString, int> &files)
{
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        if (it.key().endsWith('/'))
            QVERIFY(QDir().mkpath(base() + "/" + it.key()));
        else
            writeFile(base() + "/" + it.key(), QByteArray(it.value(), 'x'));
    }
}

// "$T" in the rows stands for the scratch directory.
void TestEnvironment::directories_data()
{
    QTest::addColumn<QStringList>("environment");
    QTest::addColumn<QString>("expectedBase"); // empty when the child must abort
    QTest::addColumn<QString>("expectedError");

    QTest::newRow("missing parents created") << QStringList{"KX_HOME=$T/x/y"} << "$T/x/y" << "";
    QTest::newRow("relative made absolute") << QStringList{"KX_HOME=rel/home"} << "$T/rel/home" << "";
    QTest::newRow("empty means default") << QStringList{"KX_HOME=", "HOME=$T"} << "$T/.Talvane" << "";
    QTest::newRow("unset means default") << QStringList{"HOME=$T"} << "$T/.Talvane" << "";
    QTest::newRow("uncreatable home is fatal")
        << QStringList{"KX_HOME=$T/file/sub"} << ""
        << "KX_HOME is set to '$T/file/sub', but this directory cannot be created.\n";
    QTest::newRow("uncreatable default is used anyway")
        << QStringList{"HOME=$T/file"} << "$T/file/.Talvane"
        << "Failed to create \"$T/file/.Talvane/Korvex\" things may go wrong\n";
}

void TestEnvironment::directories()
{
    QFETCH(QStringList, environment);
    QFETCH(QString, expectedBase);
    QFETCH(QString, expectedError);
    const QString scratch = m_scratch.path();
    writeFile(scratch + "/file", "not a directory");
    expectedBase.replace("$T", scratch);
    expectedError.replace("$T", scratch);

    const ChildResult result = runChildProcess("directories", {}, substituted(environment, "$T", scratch), scratch);

    QCOMPARE(result.err, expectedError);
    QCOMPARE(result.crashed, expectedBase.isEmpty());
    if (expectedBase.isEmpty())
        return;
    QCOMPARE(result.out, expectedBase + "\n" + expectedBase + "/Korvex\n");
    if (expectedError.isEmpty())
        QVERIFY(QFileInfo(expectedBase + "/Korvex").isDir());
}

void TestEnvironment::settings_data()
{
    QTest::addColumn<QByteArray>("installation"); // content of korvex.ini; "<dir>" makes a directory
    QTest::addColumn<QByteArray>("user");          // content of the user store
    QTest::addColumn<QString>("expectedOut");
    QTest::addColumn<QString>("expectedError");

    const QByteArray userValue = "[General]\nhost.only.interface=vboxnet1\n";
    const QString noUrl = "false|\n";
    QTest::newRow("no stores") << QByteArray() << QByteArray() << "false|\n" + noUrl << "";
    QTest::newRow("user store only") << QByteArray() << userValue << "true|vboxnet1\n" + noUrl << "";
    QTest::newRow("installation wins")
        << QByteArray("host.only.interface=vboxnet0\n") << userValue << "true|vboxnet0\n" + noUrl << "";
    QTest::newRow("installation without the key")
        << QByteArray("[General]\nother=1\n") << userValue << "true|vboxnet1\n" + noUrl << "";
    QTest::newRow("malformed installation file")
        << QByteArray("[General\nhost.only.interface=vboxnet0\n") << userValue << "true|vboxnet1\n" + noUrl
        << "Cannot init install path settings (status=2) $D/korvex.ini\n";
    QTest::newRow("unreadable installation file")
        << QByteArray("<dir>") << QByteArray() << "false|\n" + noUrl
        << "Cannot init install path settings (status=1) $D/korvex.ini\n";
    QTest::newRow("statistics default from the installation")
        << QByteArray("[statistics]\nurl=http://127.0.0.1/i\n") << QByteArray()
        << "false|\ntrue|http://127.0.0.1/i\n" << "";
    QTest::newRow("statistics choice of the user wins")
        << QByteArray("[statistics]\nurl=http://127.0.0.1/i\n") << QByteArray("[statistics]\nurl=http://127.0.0.1/u\n")
        << "false|\ntrue|http://127.0.0.1/u\n" << "";
}

void TestEnvironment::settings()
{
    QFETCH(QByteArray, installation);
    QFETCH(QByteArray, user);
    QFETCH(QString, expectedOut);
    QFETCH(QString, expectedError);

    // The installation store lies beside the executable: run a copy of it.
    const QString directory = m_scratch.path() + "/install";
    const QString program = directory + "/tst_environment";
    QVERIFY(QDir().mkpath(directory));
    QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), program));
    QVERIFY(QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    if (installation == "<dir>")
        QVERIFY(QDir().mkpath(directory + "/korvex.ini"));
    else if (!installation.isEmpty())
        writeFile(directory + "/korvex.ini", installation);
    const QString config = m_scratch.path() + "/config";
    if (!user.isEmpty())
        writeFile(config + "/Talvane/Korvex.conf", user);

    const ChildResult result = runChildProcess("settings", {},
                                               {"HOME=" + m_scratch.path(), "XDG_CONFIG_HOME=" + config},
                                               {}, program);

    QVERIFY(!result.crashed);
    QCOMPARE(result.out, expectedOut);
    QCOMPARE(result.err, QString(expectedError).replace("$D", directory));
}

// "$LOG" in the rows stands for the log path, "$DIR" for its directory; file contents are compared
// with their time stamps replaced by "<time>".
void TestEnvironment::logging_data()
{
    QTest::addColumn<QStringList>("environment");
    QTest::addColumn<QByteArray>("existing"); // earlier content of the log file
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("expectedFile");
    QTest::addColumn<QString>("expectedErr");
    QTest::addColumn<QString>("expectedOut");
    QTest::addColumn<bool>("aborts");

    const QString announce = "Logging activities to file: $LOG\n";
    const QStringList bare = {"QT_MESSAGE_PATTERN=%{message}"};

    QTest::newRow("default pattern")
        << QStringList() << QByteArray() << QStringList{"$LOG", "loud", "warning:hello", "category:sorted", "debug:detail"}
        << "<time> [tst_environment] [warning] hello\n"
           "<time> [tst_environment] [korvex.test.warning] sorted\n"
           "<time> [tst_environment] [debug] detail\n"
        << announce << "" << false;
    QTest::newRow("empty pattern variable means default")
        << QStringList{"QT_MESSAGE_PATTERN="} << QByteArray() << QStringList{"$LOG", "quiet", "warning:hello"}
        << "<time> [tst_environment] [warning] hello\n" << "" << "" << false;
    QTest::newRow("pattern from the environment, appended")
        << bare << QByteArray("earlier\n") << QStringList{"$LOG", "quiet", "warning:hello", "debug:again"}
        << "earlier\nhello\nagain\n" << "" << "" << false;
    QTest::newRow("empty KX_LOG_TO_STDERR copies to stderr")
        << (bare + QStringList{"KX_LOG_TO_STDERR="}) << QByteArray() << QStringList{"$LOG", "loud", "warning:hello"}
        << "hello\n" << announce + "hello\n" << "" << false;
    QTest::newRow("unopenable file falls back to stderr")
        << bare << QByteArray() << QStringList{"$DIR/missing/korvex-shell.log", "loud", "warning:hello"}
        << "" << "Error while opening log file: $DIR/missing/korvex-shell.log: No such file or directory\nhello\n"
        << "" << false;
    QTest::newRow("fatal written then aborted")
        << (bare + QStringList{"KX_LOG_TO_STDERR"}) << QByteArray() << QStringList{"$LOG", "quiet", "fatal:boom", "warning:never"}
        << "boom\n" << "boom\n" << "" << true;
    QTest::newRow("re-open after removal keeps only later lines")
        << bare << QByteArray() << QStringList{"$LOG", "quiet", "warning:first", "remove", "warning:lost", "reopen", "warning:second"}
        << "second\n" << announce << "" << false;
    QTest::newRow("worker thread message flushed at once")
        << bare << QByteArray() << QStringList{"$LOG", "quiet", "thread:from worker", "check:from worker"}
        << "from worker\n" << "" << "present\n" << false;
}

void TestEnvironment::logging()
{
    QFETCH(QStringList, environment);
    QFETCH(QByteArray, existing);
    QFETCH(QStringList, arguments);
    QFETCH(QString, expectedFile);
    QFETCH(QString, expectedErr);
    QFETCH(QString, expectedOut);
    QFETCH(bool, aborts);

    const QString log = m_scratch.path() + "/korvex-shell.log";
    if (!existing.isEmpty())
        writeFile(log, existing);

    const ChildResult result = runChildProcess(
        "log", substituted(substituted(arguments, "$LOG", log), "$DIR", m_scratch.path()), environment);

    QCOMPARE(result.crashed, aborts);
    QCOMPARE(result.out, expectedOut);
    QCOMPARE(result.err, QString(expectedErr).replace("$LOG", log).replace("$DIR", m_scratch.path()));
    QCOMPARE(withoutTimes(readFile(log)), expectedFile);
}

void TestEnvironment::walker_data()
{
    QTest::addColumn<QStringList>("filters");
    QTest::addColumn<QStringList>("expected"); // relative paths, sorted

    QTest::newRow("one pattern, subdirectories included") << QStringList{"*.txt"}
                                                         << QStringList{"a.txt", "sub/deep/notes.txt"};
    QTest::newRow("several patterns") << QStringList{"*.txt", "*.bin"}
                                      << QStringList{"a.txt", "sub/deep/notes.txt", "sub/k.bin"};
    QTest::newRow("files only, never directories")
        << QStringList{"*"} << QStringList{"a.txt", "image.img", "sub/deep/notes.txt", "sub/k.bin"};
}

void TestEnvironment::walker()
{
    QFETCH(QStringList, filters);
    QFETCH(QStringList, expected);
    makeTree({{"a.txt", 1}, {"image.img", 1}, {"sub/k.bin", 1}, {"sub/deep/notes.txt", 1}, {"folder.txt/", 0}});

    QStringList visited;
    QTest::ignoreMessage(QtWarningMsg, qPrintable("[WalkTemporaryDirectory] Path of search: \"" + base() + "\""));
    TemporaryFiles::walkTemporaryDirectory(base(), filters, [&](QFile &file) {
        visited << QDir(base()).relativeFilePath(file.fileName());
    });
    visited.sort();
    QCOMPARE(visited, expected);
}

void TestEnvironment::clear()
{
    const QStringList removed = {"korvex-shell.log", "vm.ova", "sub/notes.txt", "sub/deep/firmware.bin",
                                 "Korvex/cache/network/response.dat", "Korvex/cache/network/sub/x",
                                 "Korvex/templates/phone/template.xml"};
    const QStringList kept = {"image.img", "sub/notes.txt.keep", "Korvex/cache/other.dat", "Korvex/settings.json"};
    QMap<QString, int> tree;
    for (const QString &path : removed + kept)
        tree.insert(path, 1);
    makeTree(tree);

    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^\\[WalkTemporaryDirectory\\] Path of search: "));
    for (int i = 0; i < 4; ++i)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^\\[ClearCache\\] Removing  \"" + QRegularExpression::escape(base()) + "/"));
    TemporaryFiles::clear();

    for (const QString &path : removed)
        QVERIFY2(!QFileInfo::exists(base() + "/" + path), qPrintable(path));
    for (const QString &path : kept)
        QVERIFY2(QFileInfo::exists(base() + "/" + path), qPrintable(path));
    QVERIFY(!QFileInfo::exists(dataDirectory() + "/cache/network"));
    QVERIFY(!QFileInfo::exists(dataDirectory() + "/templates"));

    // Nothing left to clear is no error.
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^\\[WalkTemporaryDirectory\\] "));
    TemporaryFiles::clear();
}

void TestEnvironment::computeSize()
{
    // A disposable name inside a cache directory is counted by both walks.
    makeTree({{"a.txt", 10}, {"sub/b.log", 20}, {"image.img", 1000}, {"Korvex/cache/network/n.dat", 300},
              {"Korvex/templates/t/x.xml", 4000}, {"Korvex/cache/network/c.txt", 50000},
              {"Korvex/cache/kept.dat", 600000}});

    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^\\[WalkTemporaryDirectory\\] "));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^\\[WalkTemporaryDirectory\\] "));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^\\[WalkTemporaryDirectory\\] "));
    QTest::ignoreMessage(QtDebugMsg, "[ComputeCacheSize] 104330 bytes found");
    QCOMPARE(TemporaryFiles::computeSize(), qint64(10 + 20 + 300 + 4000 + 2 * 50000));
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QString childMode = qEnvironmentVariable(ChildVariable);
    if (!childMode.isEmpty())
        return runChild(childMode, app.arguments().mid(1));
    TestEnvironment test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_environment.moc"
