// The devices ping command: checks that the selected device's agent answers.
#include "prompt.h"

#include <QTextStream>

#include "korvexclient.h"
#include "requestoutcome.h"

int Prompt::devicesPing(const QStringList &params)
{
    if (checkParams(params, 0) != 0 || checkDevice() != 0)
        return -1;

    if (!RequestOutcome::report(m_out, m_client->ping()))
        return -1;
    m_out << "Pong received" << Qt::endl;
    return 0;
}
