#include "rebuild/MemoryFile.h"

#include <algorithm>
#include <cstring>

MemoryInput::MemoryInput(QByteArray bytes, const char *format) : m_bytes(std::move(bytes))
{
    constexpr int BufferSize = 1 << 14;
    auto *buffer = static_cast<unsigned char *>(av_malloc(BufferSize));
    m_io = buffer ? avio_alloc_context(buffer, BufferSize, 0, this, Read, nullptr, Seek) : nullptr;
    if (!m_io) {
        av_free(buffer);
        return;
    }
    AVFormatContext *fmt = avformat_alloc_context();
    if (!fmt)
        return;
    fmt->pb = m_io;
    if (avformat_open_input(&fmt, nullptr, av_find_input_format(format), nullptr) < 0)
        return; // freed by avformat_open_input
    if (avformat_find_stream_info(fmt, nullptr) < 0) {
        avformat_close_input(&fmt);
        return;
    }
    m_fmt = fmt;
}

MemoryInput::~MemoryInput()
{
    avformat_close_input(&m_fmt);
    if (m_io)
        av_freep(&m_io->buffer);
    avio_context_free(&m_io);
}

int MemoryInput::Read(void *opaque, uint8_t *buffer, int size)
{
    auto *self = static_cast<MemoryInput *>(opaque);
    const int64_t left = self->m_bytes.size() - self->m_pos;
    if (left <= 0)
        return AVERROR_EOF;
    const int n = int(std::min<int64_t>(size, left));
    std::memcpy(buffer, self->m_bytes.constData() + self->m_pos, size_t(n));
    self->m_pos += n;
    return n;
}

int64_t MemoryInput::Seek(void *opaque, int64_t offset, int whence)
{
    auto *self = static_cast<MemoryInput *>(opaque);
    const int64_t size = self->m_bytes.size();
    switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE: return size;
    case SEEK_SET: break;
    case SEEK_CUR: offset += self->m_pos; break;
    case SEEK_END: offset += size; break;
    default: return AVERROR(EINVAL);
    }
    if (offset < 0 || offset > size)
        return AVERROR(EINVAL);
    self->m_pos = offset;
    return offset;
}

void BoxWriter::Begin(const char *type)
{
    m_open.push_back(m_bytes.size());
    U32(0);
    m_bytes += QByteArray(type, 4);
}

void BoxWriter::End()
{
    const int at = m_open.back();
    m_open.pop_back();
    const uint32_t size = uint32_t(m_bytes.size() - at);
    for (int i = 0; i < 4; ++i)
        m_bytes[at + i] = char(size >> (24 - 8 * i));
}

void BoxWriter::Box(const char *type, const QByteArray &payload)
{
    Begin(type);
    m_bytes += payload;
    End();
}

void BoxWriter::U16(unsigned v)
{
    U8(v >> 8);
    U8(v & 0xff);
}

void BoxWriter::U32(uint32_t v)
{
    U16(v >> 16);
    U16(v & 0xffff);
}
