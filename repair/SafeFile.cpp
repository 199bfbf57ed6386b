#include "repair/SafeFile.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <cerrno>
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

int WriteOutput(void *opaque, uint8_t *data, int size)
{
    const int fd = int(reinterpret_cast<intptr_t>(opaque));
    int done = 0;
    while (done < size) {
        const ssize_t n = write(fd, data + done, size_t(size - done));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return AVERROR(errno);
        }
        done += int(n);
    }
    return size;
}

int64_t SeekOutput(void *opaque, int64_t offset, int whence)
{
    const int fd = int(reinterpret_cast<intptr_t>(opaque));
    if (whence & AVSEEK_SIZE) {
        struct stat st;
        return fstat(fd, &st) == 0 ? int64_t(st.st_size) : AVERROR(errno);
    }
    const off_t at = lseek(fd, off_t(offset), whence & ~AVSEEK_FORCE);
    return at < 0 ? AVERROR(errno) : int64_t(at);
}

} // namespace

bool OpenSafeOutput(AVFormatContext *ctx, const QByteArray &path, int bufferSize, bool direct)
{
    const int fd = CreateFreshDescriptor(path);
    if (fd < 0)
        return false;
    auto *buffer = static_cast<unsigned char *>(av_malloc(size_t(bufferSize)));
    AVIOContext *pb = buffer ? avio_alloc_context(buffer, bufferSize, 1, reinterpret_cast<void *>(intptr_t(fd)),
                                                  nullptr, WriteOutput, SeekOutput)
                             : nullptr;
    if (!pb) {
        av_free(buffer);
        close(fd);
        return false;
    }
    pb->direct = direct;
    ctx->pb = pb;
    ctx->flags |= AVFMT_FLAG_CUSTOM_IO;
    // Left to decide, the muxer flushes a custom output after every packet: a write per packet.
    ctx->flush_packets = 0;
    return true;
}

void CloseSafeOutput(AVFormatContext *ctx)
{
    if (!ctx || !ctx->pb || !(ctx->flags & AVFMT_FLAG_CUSTOM_IO))
        return;
    AVIOContext *pb = ctx->pb;
    avio_flush(pb);
    const int fd = int(reinterpret_cast<intptr_t>(pb->opaque));
    av_freep(&pb->buffer);
    avio_context_free(&pb);
    ctx->pb = nullptr;
    close(fd);
}
