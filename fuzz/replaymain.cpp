// Entry point of the fuzz targets in the ordinary build: runs every input
// file of the given directories (the seed corpus and the inputs that once
// broke a target) through the target once, so the normal test suite replays
// them without the fuzzing engine.
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include "fuzzcheck.h"

extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

namespace {

QStringList inputFiles(const QString &path)
{
    const QFileInfo info(path);
    if (!info.isDir())
        return {path};
    QStringList files;
    const QDir dir(path);
    for (const QString &name : dir.entryList(QDir::Files, QDir::Name))
        files << dir.filePath(name);
    return files;
}

} // namespace

int main(int argc, char **argv)
{
    if (LLVMFuzzerInitialize)
        LLVMFuzzerInitialize(&argc, &argv);

    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const QString &path : inputFiles(QString::fromLocal8Bit(argv[i]))) {
            QFile file(path);
            if (!file.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
                return EXIT_FAILURE;
            }
            const QByteArray input = file.readAll();
            std::fprintf(stderr, "replaying %s\n", qPrintable(path));
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.constData()),
                                   static_cast<size_t>(input.size()));
            ++replayed;
        }
    }
    // An empty run would pass without testing anything.
    if (replayed == 0) {
        std::fprintf(stderr, "no input to replay\n");
        return EXIT_FAILURE;
    }
    std::fprintf(stderr, "%d inputs replayed\n", replayed);
    return EXIT_SUCCESS;
}
