// The shell's standard output stream (opened read-write on stdout).
#include "console.h"

#include <QTextStream>
#include <cstdio>

QTextStream &console()
{
    static QTextStream stream(stdout, QIODevice::ReadWrite);
    return stream;
}
