#pragma once

#include <QByteArray>

#include <cstdint>
#include <vector>

// Read-only access to the bytes of a damaged file, in place or in memory, so that the rebuild never
// loads a whole file and its walker can be tested and fuzzed on buffers.
class ByteSource
{
public:
    virtual ~ByteSource() = default;
    virtual int64_t Size() const = 0;
    // Reads up to `n` bytes at `pos` into `into`; returns how many were read (fewer only at the end
    // of the source or on a read error).
    virtual int64_t Read(int64_t pos, uint8_t *into, int64_t n) const = 0;
    // A descriptor the bytes can be mapped from, or -1.
    virtual int Descriptor() const { return -1; }
};

// A file opened read-only: the rebuild reads the working copy and never writes it.
class FileSource : public ByteSource
{
public:
    explicit FileSource(const QByteArray &path);
    ~FileSource() override;
    FileSource(const FileSource &) = delete;
    FileSource &operator=(const FileSource &) = delete;

    bool IsOpen() const { return m_fd >= 0; }
    int64_t Size() const override { return m_size; }
    int64_t Read(int64_t pos, uint8_t *into, int64_t n) const override;
    int Descriptor() const override { return m_fd; }

private:
    int m_fd = -1;
    int64_t m_size = 0;
};

class MemorySource : public ByteSource
{
public:
    MemorySource(const uint8_t *data, int64_t size) : m_data(data), m_size(size) {}
    int64_t Size() const override { return m_size; }
    int64_t Read(int64_t pos, uint8_t *into, int64_t n) const override;

private:
    const uint8_t *m_data;
    int64_t m_size;
};

// A sliding window over a source for a walk that moves forward: Bytes(pos, n) hands out up to `n`
// bytes at `pos`. A file is mapped a window at a time (the bytes are not copied on their way in);
// other sources are read in large blocks. Memory stays at the window's capacity whatever the size
// of the file.
class SourceWindow
{
public:
    SourceWindow(const ByteSource &source, int64_t capacity);
    ~SourceWindow();
    SourceWindow(const SourceWindow &) = delete;
    SourceWindow &operator=(const SourceWindow &) = delete;

    // The bytes at [pos, pos + n), clipped to the end of the source: *available says how many
    // follow pos. `n` may be at most the capacity. The pointer is valid until the next call.
    const uint8_t *Bytes(int64_t pos, int64_t n, int64_t *available);
    int64_t Size() const { return m_source.Size(); }
    int64_t Capacity() const { return m_capacity; }
    // Where [p, p + n) lies in the file when those bytes are in the current mapping; -1 if not.
    int64_t OffsetOf(const uint8_t *p, int64_t n) const
    {
        return m_map && p >= m_map && n >= 0 && p + n <= m_map + m_mapLength ? m_start + (p - m_map) : -1;
    }
    int Descriptor() const { return m_source.Descriptor(); }

private:
    bool Map(int64_t pos);
    void Unmap();

    const ByteSource &m_source;
    int64_t m_capacity;
    std::vector<uint8_t> m_buffer; // for sources that cannot be mapped
    uint8_t *m_map = nullptr;      // the mapped window, when mapped
    int64_t m_mapLength = 0;
    int64_t m_start = 0; // file position of m_buffer[0]
    int64_t m_length = 0; // valid bytes in m_buffer
};
