#include "workers/ThreadVideoSaving.h"

#include "repair/BlockCopy.h"
#include "repair/ProcessFlags.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The folder the results go into, opened as a folder (a link the user made to one is followed) that
// we may write into: a descriptor, or -1 with errno set.
int OpenFolder(const QByteArray &path)
{
    const int fd = open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0 && faccessat(fd, ".", W_OK | X_OK, AT_EACCESS) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

// Why OpenFolder failed with `error`, in words that name what is in the way.
QString FolderReason(const QByteArray &path, int error)
{
    struct stat st;
    if (error == ENOTDIR)
        return ThreadVideoSaving::tr("Something that is not a folder has that name.");
    if (error == ENOENT && lstat(path.constData(), &st) == 0 && S_ISLNK(st.st_mode))
        return ThreadVideoSaving::tr("A link of that name leads nowhere.");
    return qt_error_string(error);
}

} // namespace

ThreadVideoSaving::ThreadVideoSaving(QObject *parent) : QThread(parent)
{
    bStopFlag = false;
}

ThreadVideoSaving::~ThreadVideoSaving()
{
    // Destroying a running QThread aborts the process: stop our own run and wait for it. The run's
    // end withdraws the request, so that it cannot stop the next run.
    m_run.StopAndWait(*this, m_condition);
}

void ThreadVideoSaving::SetInitialSettings(QStringList files, QString destination)
{
    QMutexLocker locker(&m_mutex);
    if (files != m_fileList)
        m_fileList = files;

    // An existing folder is used as it is: files of the same name in it are overwritten.
    const QString folderName = tr("Repaired-Video-Files");
    QDir(destination).mkdir(folderName);
    m_destFolder = QDir::cleanPath(QDir(destination).absoluteFilePath(folderName));

    m_run.StartOrStop(*this, m_condition);
}

bool ThreadVideoSaving::RequestStop()
{
    return m_run.RequestStop();
}

QString ThreadVideoSaving::FolderProblem(const QString &folder)
{
    const QByteArray path = QFile::encodeName(folder);
    struct stat st;
    if (lstat(path.constData(), &st) != 0 && errno == ENOENT)
        return QString();
    const int fd = OpenFolder(path);
    if (fd < 0)
        return FolderReason(path, errno);
    close(fd);
    return QString();
}

void ThreadVideoSaving::run()
{
    QMutexLocker locker(&m_mutex);
    bProcessRunning = true;
    if (!bStopFlag)
        OnVideoSaving();
    else
        Q_EMIT SavingFinish(); // stopped before it began: the page still learns that the run ended
    bProcessRunning = false;
    m_run.End();
}

void ThreadVideoSaving::OnVideoSaving()
{
    Q_EMIT DestInfo(m_destFolder);
    const int n = m_fileList.size();
    Q_EMIT OverAllMaxProgress(static_cast<unsigned long>(n));

    // Every result is written through this descriptor, so the folder checked here is the one
    // written into, whatever becomes of its name meanwhile.
    const QByteArray path = QFile::encodeName(m_destFolder);
    const int folder = OpenFolder(path);
    if (folder < 0) {
        Q_EMIT SaveFailed(QString(), FolderReason(path, errno));
        Q_EMIT SavingFinish();
        return;
    }
    for (int i = 0; i < n && !bStopFlag; ++i) {
        const QString name = QFileInfo(m_fileList.at(i)).fileName();
        Q_EMIT Info(tr("Saving ") + name + tr(" file"));
        Q_EMIT OverAllProgressValue(static_cast<unsigned long>(i));
        SaveOne(folder, m_fileList.at(i), name);
    }
    close(folder);
    Q_EMIT SavingFinish();
}

void ThreadVideoSaving::SaveOne(int folder, const QString &source, const QString &name)
{
    // A working copy that cannot be opened (its repair failed and removed it) is skipped.
    const int in = open(QFile::encodeName(source).constData(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return;
    const QByteArray target = QFile::encodeName(name);
    // Whatever stands at the name is replaced, a planted link included, never written through.
    unlinkat(folder, target.constData(), 0);
    const int out =
        openat(folder, target.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    struct stat st;
    BlockCopyResult result;
    if (out < 0 || fstat(in, &st) != 0) {
        result.status = out < 0 ? BlockCopyResult::WriteFailed : BlockCopyResult::ReadFailed;
        result.error = errno;
    } else {
        Q_EMIT MaxProgress(static_cast<unsigned long>(st.st_size));
        result = CopyBlocks(in, out, quint64(st.st_size), &bStopFlag,
                            [this](quint64 done) { Q_EMIT ProgressValue(static_cast<unsigned long>(done)); });
    }
    if (out >= 0 && close(out) != 0 && result.Ok()) {
        result.status = BlockCopyResult::WriteFailed;
        result.error = errno;
    }
    close(in);
    if (result.Failed()) {
        if (out >= 0)
            unlinkat(folder, target.constData(), 0); // no cut-off file is left behind
        Q_EMIT SaveFailed(name, result.Reason());
    }
}
