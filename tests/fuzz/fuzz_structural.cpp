// libFuzzer target: arbitrary bytes as a working copy for the structural pass.

#include "StructuralCheck.h"

#include <QDir>
#include <QString>

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const QString path = [] {
        const QString dir = QDir::tempPath() + "/corvane-fuzz-" + QString::number(getpid());
        QDir().mkpath(dir);
        return dir + "/input.mov";
    }();
    const QString problem = CheckStructuralPass(QByteArray(reinterpret_cast<const char *>(data), int(size)), path);
    if (!problem.isEmpty()) {
        fprintf(stderr, "structural pass: %s\n", qPrintable(problem));
        abort();
    }
    return 0;
}
