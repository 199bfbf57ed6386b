#include "repair/SafeFile.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
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
    OutputSink(int fd, const SafeOutputOptions &options) : m_fd(fd)
    {
        if (options.background) {
            if (options.direct) {
                m_sourceFd = options.sourceFd;
                m_inSource = options.inSource;
            }
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
        const int64_t source = m_sourceFd >= 0 && m_inSource ? m_inSource(data, size) : -1;
        std::unique_lock<std::mutex> lock(m_mutex);
        m_room.wait(lock, [this] { return m_pending < Backlog || m_error; });
        if (m_error)
            return AVERROR(m_error);
        // The writer is woken once a batch is worth a write (large copies cost the kernel least);
        // while it writes, the next batch gathers.
        const bool wake = m_pending < WakeAt && m_pending + size_t(size) >= WakeAt;
        Gathered &g = m_filling;
        Segment *last = g.segments.empty() ? nullptr : &g.segments.back();
        if (source >= 0) {
            if (last && last->source >= 0 && last->source + int64_t(last->length) == source)
                last->length += size_t(size); // the next bytes of the source: one copy for both
            else
                g.segments.push_back({source, 0, size_t(size)});
        } else {
            if (last && last->source < 0)
                last->length += size_t(size);
            else
                g.segments.push_back({-1, g.bytes.size(), size_t(size)});
            g.bytes.insert(g.bytes.end(), data, data + size);
        }
        m_pending += size_t(size);
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
    static constexpr size_t Backlog = 8 << 20, WakeAt = 1 << 20;

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
        m_flushing = true;
        m_work.notify_one();
        m_room.wait(lock, [this] { return (m_filling.segments.empty() && !m_writing) || m_error; });
        m_flushing = false;
        return m_error == 0;
    }

    // Copies `length` bytes at `offset` of the source to the output: by the kernel, or through a
    // bounce buffer where it cannot (another file system, a kernel without the call).
    bool CopyFromSource(int64_t offset, size_t length)
    {
        while (length > 0) {
            off_t in = off_t(offset);
            const ssize_t n = copy_file_range(m_sourceFd, &in, m_fd, nullptr, length, 0);
            if (n > 0) {
                offset += n;
                length -= size_t(n);
                continue;
            }
            if (n < 0 && errno == EINTR)
                continue;
            if (n == 0 || errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)
                break;
            m_error = errno;
            return false;
        }
        std::vector<uint8_t> bounce;
        while (length > 0) {
            bounce.resize(std::min<size_t>(length, 1 << 20));
            const ssize_t n = pread(m_sourceFd, bounce.data(), bounce.size(), off_t(offset));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0) {
                m_error = n < 0 ? errno : EIO;
                return false;
            }
            if (!WriteAll(bounce.data(), int(n)))
                return false;
            offset += n;
            length -= size_t(n);
        }
        return true;
    }

    // Takes everything gathered so far and writes it in one go, while the muxer gathers the next;
    // two sets of buffers that keep their room, so a packet costs no allocation and no wake-up of
    // its own.
    void Run()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_work.wait(lock, [this] {
                return m_closing || (!m_filling.segments.empty() && (m_flushing || m_pending >= WakeAt));
            });
            if (m_filling.segments.empty())
                return;
            std::swap(m_draining, m_filling);
            m_writing = true;
            lock.unlock();
            bool ok = m_error == 0;
            size_t written = 0;
            for (const Segment &segment : m_draining.segments) {
                if (!ok)
                    break;
                ok = segment.source >= 0 ? CopyFromSource(segment.source, segment.length)
                                         : WriteAll(m_draining.bytes.data() + segment.at, int(segment.length));
                written += segment.length;
            }
            m_draining.segments.clear();
            m_draining.bytes.clear();
            lock.lock();
            m_writing = false;
            m_pending -= std::min(m_pending, written);
            if (!ok) {
                // Nothing more can land: the muxer learns of it at its next write.
                m_filling.segments.clear();
                m_filling.bytes.clear();
                m_pending = 0;
            }
            m_room.notify_all();
        }
    }

    // Bytes handed in, in order: runs of our own bytes, and runs of the source's.
    struct Segment
    {
        int64_t source; // offset in the source, or -1: bytes[at, at + length)
        size_t at;
        size_t length;
    };
    struct Gathered
    {
        std::vector<uint8_t> bytes;
        std::vector<Segment> segments;
        void reserve(size_t n) { bytes.reserve(n); }
    };

    int m_fd;
    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_work, m_room;
    Gathered m_filling, m_draining; // what the muxer hands in; what is being written
    size_t m_pending = 0;           // bytes handed in and not yet written
    bool m_flushing = false;        // a seek waits for every byte to be written
    int m_sourceFd = -1;
    std::function<int64_t(const uint8_t *, int)> m_inSource;
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
    auto *sink = new OutputSink(fd, options);
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
