#include "workers/PreviewCopy.h"

#include "repair/SafeFile.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QStandardPaths>

#include <algorithm>
#include <cstdio>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace {

// Copies made by this process; only these may be overwritten by a later preview.
QSet<QString> &MadeCopies()
{
    static QSet<QString> copies;
    return copies;
}

bool IsOwnFolder(const QByteArray &path)
{
    struct stat st;
    return ::lstat(path.constData(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::geteuid();
}

// Empty when no folder of our own can be had under the name.
QString PrivateFolder()
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::TempLocation) +
                           "/CorvaneVideoPreview-" + QString::number(QCoreApplication::applicationPid());
    // The temporary folder is shared and the name easy to guess: a link or a folder that someone
    // else planted under it must not receive the copy. mkdir never follows a link; one in the way is
    // removed (the link itself) and the folder made again.
    const QByteArray name = QFile::encodeName(folder);
    if (::mkdir(name.constData(), 0700) != 0 && !IsOwnFolder(name)) {
        ::unlink(name.constData());
        ::mkdir(name.constData(), 0700);
    }
    if (!IsOwnFolder(name))
        return QString();
    QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return folder;
}

void CopyInBlocks(const QString &from, const QString &to)
{
    // The source is only read: open it read-only.
    FILE *in = fopen(QFile::encodeName(from).constData(), "rb");
    if (!in)
        return;
    // The copy may sit in the shared working folder: never write through a link planted at its name.
    FILE *out = CreateFresh(QFile::encodeName(to));
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
    if ((existing.exists() || existing.isSymLink()) && !MadeCopies().contains(copy)) {
        const QString folder = PrivateFolder();
        if (folder.isEmpty())
            return QString(); // never the user's own file: it would be removed after the preview
        copy = folder + "/ " + QFileInfo(path).fileName();
    }
    MadeCopies().insert(copy);
    CopyInBlocks(path, copy);
    return copy;
}
