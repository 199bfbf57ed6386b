#include "workers/PreviewCopy.h"

#include "repair/BlockCopy.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

QString PreviewFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::CacheLocation) + "/previews";
}

QString PreviewCopyName(const QString &path)
{
    return PreviewFolder() + "/ " + QFileInfo(path).fileName();
}

QString MakePreviewCopy(const QString &path, QString *reason)
{
    const QString folder = PreviewFolder();
    if (!QDir().mkpath(folder)) {
        if (reason)
            *reason = QCoreApplication::translate("PreviewCopy", "The folder %1 cannot be made.").arg(folder);
        return QString();
    }
    QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QString copy = PreviewCopyName(path);
    const BlockCopyResult result = CopyWholeFile(QFile::encodeName(path), QFile::encodeName(copy));
    if (!result.Ok()) {
        if (reason)
            *reason = result.Reason();
        return QString();
    }
    return copy;
}

void RemovePreviewCopies()
{
    QDir(PreviewFolder()).removeRecursively();
}
