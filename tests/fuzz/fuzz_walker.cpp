// libFuzzer target: arbitrary bytes as the media data of a file whose index is rebuilt.

#include "WalkerCheck.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString problem = CheckSampleWalker(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    if (!problem.isEmpty()) {
        fprintf(stderr, "sample walker: %s\n", qPrintable(problem));
        abort();
    }
    return 0;
}
