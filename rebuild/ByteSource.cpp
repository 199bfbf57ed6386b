#include "rebuild/ByteSource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
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
    : m_source(source), m_buffer(size_t(std::max<int64_t>(capacity, 64)))
{
}

const uint8_t *SourceWindow::Bytes(int64_t pos, int64_t n, int64_t *available)
{
    const int64_t size = m_source.Size();
    n = std::min(n, Capacity());
    if (pos < 0 || pos >= size) {
        *available = 0;
        return m_buffer.data();
    }
    const int64_t wanted = std::min(n, size - pos);
    if (pos < m_start || pos + wanted > m_start + m_length) {
        // Keep what is still ahead of pos, and fill the rest of the window from the source.
        int64_t keep = 0;
        if (pos >= m_start && pos < m_start + m_length) {
            keep = m_start + m_length - pos;
            std::memmove(m_buffer.data(), m_buffer.data() + (pos - m_start), size_t(keep));
        }
        m_start = pos;
        m_length = keep + m_source.Read(pos + keep, m_buffer.data() + keep, Capacity() - keep);
    }
    *available = std::min(wanted, m_start + m_length - pos);
    return m_buffer.data() + (pos - m_start);
}
