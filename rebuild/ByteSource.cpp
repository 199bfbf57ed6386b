#include "rebuild/ByteSource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

FileSource::FileSource(const QByteArray &path)
{
    m_fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    struct stat st;
    if (m_fd >= 0 && ::fstat(m_fd, &st) == 0 && S_ISREG(st.st_mode)) {
        m_size = int64_t(st.st_size);
        // The walk reads the file once, front to back.
        ::posix_fadvise(m_fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    } else if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

FileSource::~FileSource()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

int64_t FileSource::Read(int64_t pos, uint8_t *into, int64_t n) const
{
    int64_t done = 0;
    while (m_fd >= 0 && done < n) {
        const ssize_t got = ::pread(m_fd, into + done, size_t(n - done), off_t(pos + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        done += got;
    }
    return done;
}

int64_t MemorySource::Read(int64_t pos, uint8_t *into, int64_t n) const
{
    if (pos < 0 || pos >= m_size || n <= 0)
        return 0;
    const int64_t count = std::min(n, m_size - pos);
    std::memcpy(into, m_data + pos, size_t(count));
    return count;
}

SourceWindow::SourceWindow(const ByteSource &source, int64_t capacity)
    : m_source(source), m_capacity(std::max<int64_t>(capacity, 64))
{
    if (source.Descriptor() < 0)
        m_buffer.resize(size_t(m_capacity));
}

SourceWindow::~SourceWindow()
{
    Unmap();
}

void SourceWindow::Unmap()
{
    if (m_map)
        ::munmap(m_map, size_t(m_mapLength));
    m_map = nullptr;
    m_mapLength = 0;
}

bool SourceWindow::Map(int64_t pos)
{
    Unmap();
    const int64_t page = ::sysconf(_SC_PAGESIZE);
    m_start = pos - pos % page;
    m_mapLength = std::min(m_capacity + page, m_source.Size() - m_start);
    void *at = ::mmap(nullptr, size_t(m_mapLength), PROT_READ, MAP_SHARED, m_source.Descriptor(), off_t(m_start));
    if (at == MAP_FAILED) {
        m_mapLength = 0;
        m_length = 0;
        return false;
    }
    m_map = static_cast<uint8_t *>(at);
    m_length = m_mapLength;
    // Read ahead the whole window. The working copies it maps live in the program's private folder,
    // where nothing else shortens a file under a mapping.
    ::madvise(m_map, size_t(m_mapLength), MADV_SEQUENTIAL);
    ::madvise(m_map, size_t(m_mapLength), MADV_WILLNEED);
    return true;
}

const uint8_t *SourceWindow::Bytes(int64_t pos, int64_t n, int64_t *available)
{
    static const uint8_t nothing[1] = {0};
    const int64_t size = m_source.Size();
    n = std::min(n, Capacity());
    if (pos < 0 || pos >= size) {
        *available = 0;
        return nothing;
    }
    const int64_t wanted = std::min(n, size - pos);
    if (pos < m_start || pos + wanted > m_start + m_length) {
        if (m_source.Descriptor() >= 0) {
            if (!Map(pos)) {
                *available = 0;
                return nothing;
            }
        } else {
            // Keep what is still ahead of pos, and fill the rest of the window from the source.
            int64_t keep = 0;
            if (pos >= m_start && pos < m_start + m_length) {
                keep = m_start + m_length - pos;
                std::memmove(m_buffer.data(), m_buffer.data() + (pos - m_start), size_t(keep));
            }
            m_start = pos;
            m_length = keep + m_source.Read(pos + keep, m_buffer.data() + keep, Capacity() - keep);
        }
    }
    *available = std::min(wanted, m_start + m_length - pos);
    const uint8_t *base = m_map ? m_map : m_buffer.data();
    return base + (pos - m_start);
}
