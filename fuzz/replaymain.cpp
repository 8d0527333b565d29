// Entry point of the fuzz targets in the ordinary build: runs every input file
// of the given directories (the seed corpus and the inputs that once broke a
// target) through the target once, so the test suite replays them.
#include <QDir>
#include <QFile>

#include "fuzzcheck.h"

extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

int main(int argc, char **argv)
{
    if (LLVMFuzzerInitialize)
        LLVMFuzzerInitialize(&argc, &argv);
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const QDir dir(QString::fromLocal8Bit(argv[i]));
        for (const QString &name : dir.entryList(QDir::Files, QDir::Name)) {
            QFile file(dir.filePath(name));
            FUZZ_CHECK(file.open(QIODevice::ReadOnly));
            std::fprintf(stderr, "replaying %s\n", qPrintable(file.fileName()));
            const QByteArray input = file.readAll();
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.constData()), size_t(input.size()));
            ++replayed;
        }
    }
    // An empty run would pass without testing anything.
    std::fprintf(stderr, "%d inputs replayed\n", replayed);
    return replayed > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
