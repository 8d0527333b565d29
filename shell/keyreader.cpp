// Single-key input for the line editor, and the safety net that gives the
// user's terminal back its attributes whatever way the shell ends.
#include "keyreader.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>

#include <termios.h>
#include <unistd.h>

namespace {

// Pause after end of input: a closed or exhausted standard input keeps being
// read (it is not Ctrl-D), and this keeps that from spinning a core.
constexpr long EndOfInputBackOffMs = 100;

// Signals whose default action ends the process while a key may be read raw.
constexpr int FatalSignals[] = {SIGTERM, SIGHUP, SIGQUIT};

termios s_userAttributes;
volatile sig_atomic_t s_haveUserAttributes = 0;

void backOffAfterEndOfInput()
{
    const timespec delay = {0, EndOfInputBackOffMs * 1000000L};
    nanosleep(&delay, nullptr);
    // Forget the end-of-file mark so that input arriving later is read.
    clearerr(stdin);
}

// ---------------------------------------------------------------------------
// Terminal restoration at exit
// ---------------------------------------------------------------------------

// Only async-signal-safe calls: also runs inside signal handlers.
void restoreUserAttributes()
{
    if (s_haveUserAttributes)
        tcsetattr(STDIN_FILENO, TCSANOW, &s_userAttributes);
}

// The handler is installed with SA_RESETHAND, so the re-raised signal takes
// its default action once this returns and the process ends as it would have.
void restoreAndDie(int signalNumber)
{
    restoreUserAttributes();
    raise(signalNumber);
}

void installRestoration()
{
    if (tcgetattr(STDIN_FILENO, &s_userAttributes) != 0)
        return; // not a terminal: nothing to give back
    s_haveUserAttributes = 1;
    atexit(restoreUserAttributes);

    struct sigaction action = {};
    action.sa_handler = restoreAndDie;
    action.sa_flags = SA_RESETHAND | SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (int signalNumber : FatalSignals) {
        struct sigaction previous = {};
        // A signal the user chose to ignore (nohup) or that someone else
        // handles is left alone.
        if (sigaction(signalNumber, nullptr, &previous) == 0 && previous.sa_handler == SIG_DFL)
            sigaction(signalNumber, &action, nullptr);
    }
}

} // namespace

// ---------------------------------------------------------------------------
// Key input
// ---------------------------------------------------------------------------

// Reads one byte with canonical mode and echo off for that read only; -1 at
// end of input. Without a terminal the attribute calls fail and are ignored.
int KeyReader::getch() const
{
    restoreTerminalOnExit();
    termios saved;
    const bool haveAttributes = tcgetattr(STDIN_FILENO, &saved) == 0;
    if (haveAttributes) {
        termios raw = saved;
        raw.c_lflag &= ~(ICANON | ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    const int c = getc(stdin);
    if (haveAttributes)
        tcsetattr(STDIN_FILENO, TCSANOW, &saved);
    if (c == EOF) {
        backOffAfterEndOfInput();
        return -1;
    }
    return c;
}

// Returns a byte, or an escape sequence folded into one code: ESC b1 b2 gives
// (0x1B00 | b1) << 8 | b2. The two bytes after ESC come in the same burst, so
// they are read as they are, without switching the terminal again.
int KeyReader::readKey() const
{
    const int c = getch();
    if (c != Escape)
        return c;
    const int b1 = getc(stdin);
    const int b2 = getc(stdin);
    return (((b1 & 0xFF) | 0x1B00) << 8) | (b2 & 0xFF);
}

void KeyReader::restoreTerminalOnExit()
{
    static std::once_flag once;
    std::call_once(once, installRestoration);
}
