// The read-only text queries shared by several verbs (capabilities, versions,
// identities): same checks, same failure reports, one output line each.
#include "prompt.h"

#include <QTextStream>

#include "korvexclient.h"
#include "requestoutcome.h"

int Prompt::queryText(const QStringList &params, const QString &label, TextGetter getter)
{
    if (checkParams(params, 0) || checkDevice())
        return -1;

    QString text;
    if (!RequestOutcome::report(m_out, (m_client->*getter)(text)))
        return -1;
    m_out << label << text << Qt::endl;
    return 0;
}
