// The devices ping command: checks that the selected device's agent answers.
#include "prompt.h"

#include <QTextStream>

#include "korvexclient.h"

int Prompt::devicesPing(const QStringList &params)
{
    if (checkParams(params, 0) != 0 || checkDevice() != 0)
        return -1;

    const int result = m_client->ping();
    switch (result) {
    case KorvexClient::Ok:
        m_out << "Pong received" << Qt::endl;
        return 0;
    case KorvexClient::NetworkError:
        m_out << "Device unreachable." << Qt::endl;
        return -1;
    default:
        m_out << "Unknown error. Result code: " << result << Qt::endl;
        return -1;
    }
}
