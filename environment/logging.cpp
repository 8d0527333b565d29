// Message handler that writes every levelled message to the log file, and to
// stderr when there is no log file or KX_LOG_TO_STDERR is set.
#include "logging.h"

#include <QFile>
#include <QGlobalStatic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>

namespace {

const char DefaultMessagePattern[] =
    "%{time MMM d HH:mm:ss} [%{appname}] [%{if-category}%{category}.%{endif}%{type}] %{message}";

struct LoggingState
{
    // Guards the file and every write, so lines from different threads never
    // interleave. A standard mutex, so that thread checkers see it.
    std::mutex lock;
    std::unique_ptr<QFile> file; // null when no log file is open
    const bool toStderr = qEnvironmentVariableIsSet("KX_LOG_TO_STDERR");
};

Q_GLOBAL_STATIC(LoggingState, loggingState)

void writeToStderr(const QByteArray &text)
{
    std::fwrite(text.constData(), 1, size_t(text.size()), stderr);
    std::fflush(stderr);
}

void messageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    // Formatting may itself be slow or log; keep it out of the critical section.
    const QByteArray line = (qFormatLogMessage(type, context, message) + '\n').toLocal8Bit();

    // Messages logged while static objects are torn down outlive the state.
    LoggingState *state = loggingState.isDestroyed() ? nullptr : loggingState();
    if (state) {
        std::lock_guard<std::mutex> locker(state->lock);
        if (state->file) {
            // Written through before the lock is released so nothing is lost at a crash.
            state->file->write(line);
        }
        if (!state->file || state->toStderr)
            writeToStderr(line);
    } else {
        writeToStderr(line);
    }

    if (type == QtFatalMsg)
        std::abort();
}

} // namespace

void initLogging(const QString &path, bool quiet)
{
    LoggingState &state = *loggingState();

    // Opened before the lock is taken: should opening log a warning, the
    // handler would otherwise wait forever for the non-recursive lock.
    // Unbuffered and appending: every line reaches the file in one write()
    // at its end, whole, however many shells of the user share the log.
    auto file = std::make_unique<QFile>(path);
    const bool opened = file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered);

    {
        std::lock_guard<std::mutex> locker(state.lock);
        // Replacing under the lock lets a re-open (after the log was deleted)
        // race safely with messages from other threads.
        state.file.reset(opened ? file.release() : nullptr);
        if (!opened) {
            writeToStderr(QString("Error while opening log file: " + path + ": "
                                  + file->errorString() + "\n").toLocal8Bit());
        } else if (!quiet) {
            writeToStderr(QString("Logging activities to file: " + path + "\n").toLocal8Bit());
        }
    }

    if (qEnvironmentVariableIsEmpty("QT_MESSAGE_PATTERN"))
        qSetMessagePattern(DefaultMessagePattern);
    qInstallMessageHandler(messageHandler);
}
