// Arbitrary command lines through the tokeniser and the dispatcher of a
// remote-mode shell. Nothing listens at the device address, so every handler
// runs its argument checks and its requests fail at once on a refused
// connection. Input: lines separated by line feeds.
#include "fuzzcheck.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTextStream>
#include <QThreadPool>

#include "console.h"
#include "prompt.h"

namespace {

// In the fuzzing range of loopback addresses; no test listens here.
const char DeviceAddress[] = "127.0.0.254";
// Sleeps for as long as the line says: not worth a fuzzer's time.
const char PauseCommand[] = "pause";
const QChar Quotes[] = {'"', '\''};

struct Shell
{
    QTemporaryDir home;
    QString output;
    Prompt *prompt = nullptr;
};

Shell *shell = nullptr;

void checkWords(const QString &line, const QStringList &words)
{
    int length = 0;
    for (const QString &word : words) {
        FUZZ_CHECK(!word.contains(Quotes[0]) && !word.contains(Quotes[1]));
        length += word.size();
    }
    FUZZ_CHECK(length <= line.size());
    if (!line.contains(Quotes[0]) && !line.contains(Quotes[1]))
        FUZZ_CHECK(words == line.split(' ', Qt::SkipEmptyParts));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    Fuzz::silenceLog();
    static QCoreApplication app(*argc, *argv);
    QCoreApplication::setApplicationVersion("2.8.1");
    shell = new Shell;
    // korvex clearcache deletes files under the home: keep it private.
    qputenv("KX_HOME", shell->home.path().toUtf8());
    console().setString(&shell->output, QIODevice::ReadWrite);
    shell->prompt = new Prompt(&app, Prompt::RemoteHost, QHostAddress(DeviceAddress), QString(), QString());
    // The device source sets the client's address on a pool thread.
    QThreadPool::globalInstance()->waitForDone();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    for (const QByteArray &bytes : Fuzz::bytes(data, size).split('\n')) {
        const QString line = QString::fromUtf8(bytes);
        const QStringList words = Prompt::splitCommandLine(line);
        checkWords(line, words);
        if (words.value(0) == PauseCommand)
            continue;

        console().flush();
        shell->output.clear();
        const int status = shell->prompt->execCommand(line);
        console().flush();

        FUZZ_CHECK(status == -1 || status == 0 || status == 1);
        FUZZ_CHECK(shell->prompt->history().value(0) == line);
        // Only an unknown command gives 1, and it prints just that.
        const bool unknown = shell->output == "Command not found: " + line + "\n";
        FUZZ_CHECK((status == 1) == unknown);
    }
    return 0;
}
