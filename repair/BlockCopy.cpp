#include "repair/BlockCopy.h"

#include "repair/SafeFile.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Every progress call is a queued signal for the window's thread: the eye needs no more than the
// screen shows.
constexpr qint64 ProgressIntervalNs = 1000000000 / 60;

class Throttle
{
public:
    explicit Throttle(const std::function<void(quint64)> &progress) : m_progress(progress) {}

    void Report(quint64 done)
    {
        if (!m_progress || (m_clock.isValid() && m_clock.nsecsElapsed() < ProgressIntervalNs))
            return;
        m_clock.start();
        m_progress(done);
    }
    void Final(quint64 size)
    {
        if (m_progress)
            m_progress(size);
    }

private:
    const std::function<void(quint64)> &m_progress;
    QElapsedTimer m_clock;
};

// Reads n bytes, fewer only at the end of the file; -1 on an error.
ssize_t ReadFull(int fd, char *buffer, size_t n)
{
    size_t got = 0;
    while (got < n) {
        const ssize_t r = read(fd, buffer + got, n - got);
        if (r < 0 && errno == EINTR)
            continue;
        if (r < 0)
            return -1;
        if (r == 0)
            break;
        got += size_t(r);
    }
    return ssize_t(got);
}

bool WriteFull(int fd, const char *buffer, size_t n)
{
    while (n > 0) {
        const ssize_t w = write(fd, buffer, n);
        if (w < 0 && errno == EINTR)
            continue;
        if (w < 0)
            return false;
        buffer += w;
        n -= size_t(w);
    }
    return true;
}

bool IsWriteError(int error)
{
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

BlockCopyResult Failure(BlockCopyResult result, BlockCopyResult::Status status, int error)
{
    result.status = status;
    result.error = error;
    return result;
}

} // namespace

QString BlockCopyResult::Reason() const
{
    if (status == ReadFailed && error == 0)
        return QCoreApplication::translate("BlockCopy", "The file became shorter while it was copied.");
    return qt_error_string(error);
}

BlockCopyResult CopyBlocks(int in, int out, quint64 size, const std::atomic<bool> *stop,
                           const std::function<void(quint64)> &progress)
{
    BlockCopyResult result;
    Throttle throttle(progress);
#ifdef __linux__
    bool inKernel = true;
#else
    const bool inKernel = false;
#endif
    std::unique_ptr<char[]> buffer;
    while (result.copied < size) {
        if (stop && *stop) {
            result.status = BlockCopyResult::Stopped;
            return result;
        }
        const size_t n = size_t(std::min(size - result.copied, BlockSize));
        ssize_t done = 0;
#ifdef __linux__
        if (inKernel) {
            do
                done = copy_file_range(in, nullptr, out, nullptr, n, 0);
            while (done < 0 && errno == EINTR);
            if (done < 0 && IsWriteError(errno))
                return Failure(result, BlockCopyResult::WriteFailed, errno);
            // Not offered between these files, an error, or an early end: reading and writing from
            // where the kernel stopped tells which.
            inKernel = done > 0;
        }
#endif
        if (!inKernel) {
            if (!buffer)
                buffer.reset(new char[BlockSize]);
            done = ReadFull(in, buffer.get(), n);
            if (done < 0)
                return Failure(result, BlockCopyResult::ReadFailed, errno);
            if (!WriteFull(out, buffer.get(), size_t(done)))
                return Failure(result, BlockCopyResult::WriteFailed, errno);
            if (size_t(done) < n) {
                result.copied += quint64(done);
                return Failure(result, BlockCopyResult::ReadFailed, 0);
            }
        }
        result.copied += quint64(done);
        if (result.copied < size)
            throttle.Report(result.copied);
    }
    if (size > 0)
        throttle.Final(size);
    return result;
}

BlockCopyResult CopyWholeFile(const QByteArray &from, const QByteArray &to)
{
    const int in = open(from.constData(), O_RDONLY | O_CLOEXEC);
    struct stat st;
    if (in < 0 || fstat(in, &st) != 0) {
        const int error = errno;
        if (in >= 0)
            close(in);
        return Failure({}, BlockCopyResult::ReadFailed, error);
    }
    const int out = CreateFreshDescriptor(to);
    if (out < 0) {
        const int error = errno;
        close(in);
        return Failure({}, BlockCopyResult::WriteFailed, error);
    }
    BlockCopyResult result = CopyBlocks(in, out, quint64(st.st_size), nullptr);
    if (close(out) != 0 && result.Ok())
        result = Failure(result, BlockCopyResult::WriteFailed, errno);
    close(in);
    if (!result.Ok())
        unlink(to.constData());
    return result;
}
