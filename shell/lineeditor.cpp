// Interactive line editor (placeholder: plain line reading).
#include "prompt.h"

#include <QTextStream>

void Prompt::displayPrompt(bool newLine, bool clearInput)
{
    Q_UNUSED(clearInput)
    if (newLine)
        m_out << Qt::endl;
    m_out << "Korvex Shell > " << Qt::flush;
}

void Prompt::shell()
{
    while (m_running)
        readline();
}

void Prompt::readline() { m_running = false; }
void Prompt::clearCommandLine(int) {}
QString Prompt::autocomplete(const QString &input) { return input; }
void Prompt::onInterrupt(int) {}
