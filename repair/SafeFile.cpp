#include "repair/SafeFile.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

FILE *OpenExistingNoFollow(const QByteArray &path)
{
    const int fd = open(path.constData(), O_RDWR | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    FILE *f = fdopen(fd, "rb+");
    if (!f)
        close(fd);
    return f;
}

int CreateFreshDescriptor(const QByteArray &path)
{
    unlink(path.constData());
    return open(path.constData(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
}

FILE *CreateFresh(const QByteArray &path)
{
    const int fd = CreateFreshDescriptor(path);
    if (fd < 0)
        return nullptr;
    FILE *f = fdopen(fd, "w+");
    if (!f)
        close(fd);
    return f;
}

namespace {

// Where a muxer's output goes: its descriptor, written at once or by a thread of its own.
class OutputSink
{
public:
    OutputSink(int fd, bool background) : m_fd(fd)
    {
        if (background) {
            m_filling.reserve(Backlog + (1 << 20));
            m_draining.reserve(Backlog + (1 << 20));
            m_thread = std::thread([this] { Run(); });
        }
    }

    ~OutputSink() { Close(); }

    int Write(const uint8_t *data, int size)
    {
        if (!m_thread.joinable())
            return WriteAll(data, size) ? size : AVERROR(m_error);
        std::unique_lock<std::mutex> lock(m_mutex);
        m_room.wait(lock, [this] { return m_filling.size() < Backlog || m_error; });
        if (m_error)
            return AVERROR(m_error);
        // The writer waits only when nothing is gathered: the first bytes wake it, later ones it
        // finds when its current write is done.
        const bool wake = m_filling.empty();
        m_filling.insert(m_filling.end(), data, data + size);
        if (wake)
            m_work.notify_one();
        return size;
    }

    int64_t Seek(int64_t offset, int whence)
    {
        if (!Drain())
            return AVERROR(m_error);
        if (whence & AVSEEK_SIZE) {
            struct stat st;
            return fstat(m_fd, &st) == 0 ? int64_t(st.st_size) : AVERROR(errno);
        }
        const off_t at = lseek(m_fd, off_t(offset), whence & ~AVSEEK_FORCE);
        return at < 0 ? AVERROR(errno) : int64_t(at);
    }

    // Waits for every byte handed in to be written; false when a write failed.
    bool Close()
    {
        if (m_thread.joinable()) {
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_closing = true;
            }
            m_work.notify_one();
            m_thread.join();
        }
        if (m_fd >= 0 && close(m_fd) != 0 && !m_error)
            m_error = errno;
        m_fd = -1;
        return m_error == 0;
    }

private:
    static constexpr size_t Backlog = 8 << 20;

    bool WriteAll(const uint8_t *data, int size)
    {
        for (int done = 0; done < size;) {
            const ssize_t n = write(m_fd, data + done, size_t(size - done));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0) {
                m_error = n < 0 ? errno : EIO;
                return false;
            }
            done += int(n);
        }
        return true;
    }

    bool Drain()
    {
        if (!m_thread.joinable())
            return m_error == 0;
        std::unique_lock<std::mutex> lock(m_mutex);
        m_room.wait(lock, [this] { return (m_filling.empty() && !m_writing) || m_error; });
        return m_error == 0;
    }

    // Takes everything gathered so far and writes it in one go, while the muxer gathers the next;
    // two buffers that keep their room, so a packet costs no allocation and no wake-up of its own.
    void Run()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_work.wait(lock, [this] { return !m_filling.empty() || m_closing; });
            if (m_filling.empty())
                return;
            m_draining.swap(m_filling);
            m_writing = true;
            lock.unlock();
            const bool ok = m_error == 0 && WriteAll(m_draining.data(), int(m_draining.size()));
            m_draining.clear();
            lock.lock();
            m_writing = false;
            if (!ok)
                m_filling.clear(); // nothing more can land: the muxer learns of it at its next write
            m_room.notify_all();
        }
    }

    int m_fd;
    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_work, m_room;
    std::vector<uint8_t> m_filling, m_draining; // what the muxer hands in; what is being written
    bool m_writing = false;
    bool m_closing = false;
    std::atomic<int> m_error{0};
};

int WriteOutput(void *opaque, uint8_t *data, int size)
{
    return static_cast<OutputSink *>(opaque)->Write(data, size);
}

int64_t SeekOutput(void *opaque, int64_t offset, int whence)
{
    return static_cast<OutputSink *>(opaque)->Seek(offset, whence);
}

} // namespace

bool OpenSafeOutput(AVFormatContext *ctx, const QByteArray &path, SafeOutputOptions options)
{
    const int fd = CreateFreshDescriptor(path);
    if (fd < 0)
        return false;
    auto *sink = new OutputSink(fd, options.background);
    auto *buffer = static_cast<unsigned char *>(av_malloc(size_t(options.bufferSize)));
    AVIOContext *pb =
        buffer ? avio_alloc_context(buffer, options.bufferSize, 1, sink, nullptr, WriteOutput, SeekOutput) : nullptr;
    if (!pb) {
        av_free(buffer);
        delete sink;
        return false;
    }
    pb->direct = options.direct;
    ctx->pb = pb;
    ctx->flags |= AVFMT_FLAG_CUSTOM_IO;
    // Left to decide, the muxer flushes a custom output after every packet: a write per packet.
    ctx->flush_packets = 0;
    return true;
}

bool CloseSafeOutput(AVFormatContext *ctx)
{
    if (!ctx || !ctx->pb || !(ctx->flags & AVFMT_FLAG_CUSTOM_IO))
        return true;
    AVIOContext *pb = ctx->pb;
    avio_flush(pb);
    const bool flushed = pb->error >= 0;
    auto *sink = static_cast<OutputSink *>(pb->opaque);
    av_freep(&pb->buffer);
    avio_context_free(&pb);
    ctx->pb = nullptr;
    const bool closed = sink->Close();
    delete sink;
    return flushed && closed;
}
