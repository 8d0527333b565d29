// Version comparison: three arbitrary texts (split at line feeds) through
// Prompt::compareVersions, which must order the well-formed ones totally and
// leave every malformed one equal to everything.
#include "fuzzcheck.h"

#include "prompt.h"

namespace {

int compare(const QString &a, const QString &b)
{
    const int result = Prompt::compareVersions(a, b);
    FUZZ_CHECK(result == -1 || result == 0 || result == 1);
    return result;
}

// A well-formed version differs from "0" or from "0.0"; a malformed one equals both.
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
    const QStringList parts = (QString::fromUtf8(Fuzz::bytes(data, size)) + "\n\n").split('\n');
    const QString &a = parts[0], &b = parts[1], &c = parts[2];
    FUZZ_CHECK(compare(a, a) == 0);
    FUZZ_CHECK(compare(a, b) == -compare(b, a));
    FUZZ_CHECK(compare(" " + a + "\t", b) == compare(a, b));
    if (!wellFormed(a))
        FUZZ_CHECK(compare(a, b) == 0 && compare(a, c) == 0);
    else if (wellFormed(b) && wellFormed(c) && compare(a, b) == compare(b, c))
        FUZZ_CHECK(compare(a, c) == compare(a, b));
    return 0;
}
