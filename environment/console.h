// The shell's standard output stream, shared by the prompt, the device
// sources (banners printed from worker threads) and the interrupt handler.
#pragma once

class QTextStream;

QTextStream &console();
