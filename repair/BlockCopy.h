#pragma once

#include <QString>
#include <QtGlobal>

#include <atomic>
#include <functional>

// The one copy routine of the program's own file copies (saving, the staging copy, preview copies).
// It moves data at disk speed: copy_file_range where the kernel offers it, else reads and writes of
// BlockSize bytes. A stop request is seen between blocks, a source that ends early and a failed
// write are reported, and progress comes at most about 60 times a second.

struct BlockCopyResult {
    enum Status { Complete, Stopped, ReadFailed, WriteFailed };
    Status status = Complete;
    int error = 0; // errno of the call that failed; 0 when the source ended before its size
    quint64 copied = 0;

    bool Ok() const { return status == Complete; }
    bool Failed() const { return status == ReadFailed || status == WriteFailed; }
    // Why it failed, in the system's words.
    QString Reason() const;
};

constexpr quint64 BlockSize = 1 << 20;

// Copies `size` bytes from the current position of descriptor `in` to that of `out`. `progress`
// receives the bytes done after the first block, then at most every 1/60 s, and always `size` at the
// end of a complete copy (never for an empty one).
// `stop` may be null.
BlockCopyResult CopyBlocks(int in, int out, quint64 size, const std::atomic<bool> *stop,
                           const std::function<void(quint64)> &progress = nullptr);

// The whole of file `from` into a new file `to`, made as CreateFreshDescriptor makes it (never
// through a link). A copy that does not complete is removed.
BlockCopyResult CopyWholeFile(const QByteArray &from, const QByteArray &to);
