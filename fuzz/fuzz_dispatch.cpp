// Arbitrary command lines through the tokeniser and the dispatcher of a
// remote-mode shell. Nothing listens at the device address, so every handler
// runs its argument checks and its requests fail at once on a refused
// connection. Input: lines separated by line feeds.
#include "fuzzcheck.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QThreadPool>

#include "console.h"
#include "prompt.h"

namespace {

QString output;
Prompt *prompt = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    Fuzz::silenceLog();
    static QCoreApplication app(*argc, *argv);
    QCoreApplication::setApplicationVersion("2.8.1");
    // korvex clearcache deletes files under the home: keep it private.
    static QTemporaryDir home;
    qputenv("KX_HOME", home.path().toUtf8());
    console().setString(&output, QIODevice::ReadWrite);
    // In the fuzzing range of loopback addresses; no test listens here.
    prompt = new Prompt(&app, Prompt::RemoteHost, QHostAddress("127.0.0.254"), QString(), QString());
    // The device source sets the client's address on a pool thread.
    QThreadPool::globalInstance()->waitForDone();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    for (const QByteArray &bytes : Fuzz::bytes(data, size).split('\n')) {
        const QString line = QString::fromUtf8(bytes);
        const QStringList words = Prompt::splitCommandLine(line);
        const bool quoted = line.contains('"') || line.contains('\'');
        FUZZ_CHECK(words.join(QString()).size() <= line.size());
        FUZZ_CHECK(!words.join(QString()).contains('"') && !words.join(QString()).contains('\''));
        FUZZ_CHECK(quoted || words == line.split(' ', Qt::SkipEmptyParts));
        // A pause sleeps for as long as the line says: not worth a fuzzer's time.
        if (words.value(0) == "pause")
            continue;

        console().flush();
        output.clear();
        const int status = prompt->execCommand(line);
        console().flush();
        FUZZ_CHECK(status == -1 || status == 0 || status == 1);
        FUZZ_CHECK(prompt->history().value(0) == line);
        // Only an unknown command gives 1, and it prints just that.
        FUZZ_CHECK((status == 1) == (output == "Command not found: " + line + "\n"));
    }
    return 0;
}
