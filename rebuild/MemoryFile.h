#pragma once

#include "repair/AvOwners.h"

#include <QByteArray>

#include <memory>
#include <vector>

// libavformat over bytes in memory: to read what a muxer wrote into memory, or a file built here
// from the pieces of a damaged one.

// Opens `bytes` with the demuxer `format` ("mov" reads .mov and .mp4 alike) and reads its stream
// information. Null when it cannot be read.
class MemoryInput
{
public:
    MemoryInput(QByteArray bytes, const char *format);
    ~MemoryInput();
    MemoryInput(const MemoryInput &) = delete;
    MemoryInput &operator=(const MemoryInput &) = delete;

    AVFormatContext *Context() const { return m_fmt; }

private:
    static int Read(void *opaque, uint8_t *buffer, int size);
    static int64_t Seek(void *opaque, int64_t offset, int whence);

    QByteArray m_bytes;
    int64_t m_pos = 0;
    AVIOContext *m_io = nullptr;
    AVFormatContext *m_fmt = nullptr;
};

// Writes boxes (ISO/IEC 14496-12) into a byte string: Begin/End nest them, sizes filled in at End.
class BoxWriter
{
public:
    void Begin(const char *type);
    void End();
    void Box(const char *type, const QByteArray &payload);
    void Raw(const QByteArray &bytes) { m_bytes += bytes; }
    void U8(unsigned v) { m_bytes += char(v); }
    void U16(unsigned v);
    void U32(uint32_t v);
    void Zeros(int n) { m_bytes += QByteArray(n, '\0'); }
    const QByteArray &Bytes() const { return m_bytes; }

private:
    QByteArray m_bytes;
    std::vector<int> m_open;
};
