// Single-key input from standard input for the line editor: one byte at a
// time with canonical mode and echo switched off for that read only.
#pragma once

class KeyReader
{
public:
    static constexpr int Tab = 9;
    static constexpr int Enter = 10;
    static constexpr int Backspace = 127;
    static constexpr int Escape = 27;
    static constexpr int EndOfTransmission = 4;
    static constexpr int UpArrow = 0x1B5B41;
    static constexpr int DownArrow = 0x1B5B42;

    // One byte with ICANON/ECHO off for the read, or -1 at end of input.
    int getch() const;
    // A byte, or an ESC sequence folded into a three-byte code.
    int readKey() const;

    static bool isTab(int key) { return key == Tab; }
    static bool isEnter(int key) { return key == Enter; }
    static bool isBackspace(int key) { return key == Backspace; }
    static bool isPrintable(int key) { return key >= 32 && key < 128; }
    static bool isUpArrow(int key) { return key == UpArrow; }
    static bool isDownArrow(int key) { return key == DownArrow; }
    static bool isEscape(int key) { return key == Escape; }
    static bool isEndOfTransmission(int key) { return key == EndOfTransmission; }

    // Remembers the terminal's attributes as they are now and puts them back
    // at exit and on SIGTERM, SIGHUP and SIGQUIT, so that being killed during
    // a raw read never leaves the user's terminal without echo. Only the
    // first call does anything; getch makes it before its first switch.
    static void restoreTerminalOnExit();
};
