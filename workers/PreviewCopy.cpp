#include "workers/PreviewCopy.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QStandardPaths>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

// Copies made by this process; only these may be overwritten by a later preview.
QSet<QString> &MadeCopies()
{
    static QSet<QString> copies;
    return copies;
}

QString PrivateFolder()
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::TempLocation) +
                           "/CorvaneVideoPreview-" + QString::number(QCoreApplication::applicationPid());
    QDir().mkpath(folder);
    QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return folder;
}

void CopyInBlocks(const QString &from, const QString &to)
{
    // The source is only read: open it read-only.
    FILE *in = fopen(QFile::encodeName(from).constData(), "rb");
    if (!in)
        return;
    FILE *out = fopen(QFile::encodeName(to).constData(), "w+");
    if (out) {
        std::vector<char> block;
        for (;;) {
            block.assign(1024, 0);
            const size_t n = fread(block.data(), 1, block.size(), in);
            if (n == 0)
                break;
            fwrite(block.data(), 1, n, out);
        }
        fclose(out);
    }
    fclose(in);
}

} // namespace

QString PreviewCopyName(const QString &path)
{
    const QFileInfo info(path);
    return info.path() + "/ " + info.fileName();
}

QString MakePreviewCopy(const QString &path)
{
    QString copy = PreviewCopyName(path);
    const QFileInfo existing(copy);
    if ((existing.exists() || existing.isSymLink()) && !MadeCopies().contains(copy))
        copy = PrivateFolder() + "/ " + QFileInfo(path).fileName();
    MadeCopies().insert(copy);
    CopyInBlocks(path, copy);
    return copy;
}
