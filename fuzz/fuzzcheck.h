// Shared by the fuzz targets: the libFuzzer entry points and a check that
// stops the run on a broken property, so that libFuzzer keeps the input and
// the replay test fails on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <QByteArray>
#include <QtGlobal>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);

#define FUZZ_CHECK(condition)                                                                       \
    do {                                                                                            \
        if (!(condition)) {                                                                         \
            std::fprintf(stderr, "%s:%d: property broken: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                           \
        }                                                                                           \
    } while (false)

namespace Fuzz {

inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size));
}

// The targets hit every logged failure path: printing them all would only
// slow the run down.
inline void silenceLog()
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
}

} // namespace Fuzz
