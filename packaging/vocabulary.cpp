// Build-time generator: writes the documented commands of the shell's command
// table (what help lists) into the manual page or the bash completion, so
// neither can drift from help. The template's marker line is replaced.
// Usage: korvex-vocabulary man|bash TEMPLATE OUTPUT
#include <QFile>
#include <QString>
#include <QStringList>
#include <QTextStream>
#include <algorithm>
#include <cstdio>

#include "prompt.h"

namespace {

const char Marker[] = "%%VOCABULARY%%";

// Text for roff: no escape, minus or control character left to interpret.
QString roff(QString text)
{
    text.replace('\\', "\\e").replace('-', "\\-");
    if (text.startsWith('.') || text.startsWith('\''))
        text.prepend("\\&");
    return text;
}

// One term per command: its words in bold, then the help text.
QString manEntry(const QString &words, const QString &help)
{
    return ".TP\n.B " + roff(words) + "\n" + roff(help) + "\n";
}

// One element of a bash array; the words never hold a quote.
QString bashEntry(const QString &words, const QString &)
{
    return "    '" + words + "'\n";
}

struct Format
{
    const char *name;
    QString (*entry)(const QString &words, const QString &help);
};

const Format Formats[] = {{"man", manEntry}, {"bash", bashEntry}};

// The documented commands as typed ("battery setlevel"), sorted, with their help.
QList<QPair<QString, QString>> documentedCommands()
{
    QList<QPair<QString, QString>> commands;
    for (const Prompt::CommandEntry &entry : Prompt::commandTable())
        if (entry.help)
            commands.append({QString(entry.name).replace('-', ' '), entry.help});
    std::sort(commands.begin(), commands.end());
    return commands;
}

int fail(const QString &message)
{
    fprintf(stderr, "korvex-vocabulary: %s\n", qPrintable(message));
    return 1;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4)
        return fail("usage: korvex-vocabulary man|bash TEMPLATE OUTPUT");
    const auto format = std::find_if(std::begin(Formats), std::end(Formats),
                                     [&](const Format &f) { return qstrcmp(f.name, argv[1]) == 0; });
    if (format == std::end(Formats))
        return fail(QString("unknown format %1").arg(argv[1]));

    QFile input(QFile::decodeName(argv[2]));
    if (!input.open(QIODevice::ReadOnly | QIODevice::Text))
        return fail(input.fileName() + ": " + input.errorString());
    QStringList lines = QString::fromUtf8(input.readAll()).split('\n');
    const int marker = lines.indexOf(Marker);
    if (marker < 0)
        return fail(input.fileName() + ": no line " + Marker);

    QString block;
    for (const auto &command : documentedCommands())
        block += format->entry(command.first, command.second);
    block.chop(1); // the marker line's own end of line follows
    lines[marker] = block;

    QFile output(QFile::decodeName(argv[3]));
    if (!output.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
        return fail(output.fileName() + ": " + output.errorString());
    output.write(lines.join('\n').toUtf8());
    return output.error() == QFile::NoError ? 0 : fail(output.fileName() + ": " + output.errorString());
}
