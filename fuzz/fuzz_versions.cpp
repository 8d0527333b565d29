// Version comparison: three arbitrary texts (split at line feeds) through
// Prompt::compareVersions, which must order the well-formed ones totally and
// leave every malformed one equal to everything.
#include "fuzzcheck.h"

#include <QList>
#include <QString>

#include "prompt.h"

namespace {

int compare(const QString &a, const QString &b)
{
    const int result = Prompt::compareVersions(a, b);
    FUZZ_CHECK(result == -1 || result == 0 || result == 1);
    return result;
}

// A well-formed version differs from "0" or from "0.0", which differ from
// each other; a malformed one compares equal to both.
bool wellFormed(const QString &version)
{
    return compare(version, "0") != 0 || compare(version, "0.0") != 0;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    Fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QList<QByteArray> parts = Fuzz::bytes(data, size).split('\n');
    while (parts.size() < 3)
        parts << QByteArray();
    const QString a = QString::fromUtf8(parts.at(0));
    const QString b = QString::fromUtf8(parts.at(1));
    const QString c = QString::fromUtf8(parts.at(2));

    FUZZ_CHECK(compare(a, a) == 0);
    FUZZ_CHECK(compare(a, b) == -compare(b, a));
    // Surrounding blanks never matter.
    FUZZ_CHECK(compare(" " + a + "\t", b) == compare(a, b));

    if (!wellFormed(a)) {
        FUZZ_CHECK(compare(a, b) == 0 && compare(a, c) == 0);
        return 0;
    }
    if (wellFormed(b) && wellFormed(c) && compare(a, b) == compare(b, c))
        FUZZ_CHECK(compare(a, c) == compare(a, b));
    return 0;
}
