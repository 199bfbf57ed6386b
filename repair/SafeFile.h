#pragma once

#include <QByteArray>

#include <cstdint>
#include <cstdio>
#include <functional>

// The working copies live in a folder every user may write to. A name there can be replaced by a
// symbolic link at any moment, so the repair never opens one in a way that would follow a link:
// writes must land in our own files, never in a file a link points at.

// Opens an existing regular file for reading and writing ("rb+"); null when the name is a link.
FILE *OpenExistingNoFollow(const QByteArray &path);

// Makes path afresh and opens it for reading and writing ("w+"): whatever stands at that name is
// removed first (a link itself, never its target), and the new file is created exclusively, so
// nothing planted in between can redirect the write. Null on failure.
FILE *CreateFresh(const QByteArray &path);
int CreateFreshDescriptor(const QByteArray &path);

struct AVFormatContext;

struct SafeOutputOptions
{
    int bufferSize = 1 << 16; // bytes gathered before they are written
    bool direct = false;      // a packet's payload goes out as it comes, not through the buffer
    bool background = false;  // written by a thread of its own, so that the muxer's caller works on
                              // while the disk takes the bytes (up to 8 MiB gather meanwhile)
    // With background and direct: payloads that are bytes of the file open at sourceFd (a mapping
    // of it) are copied from there by the kernel instead of through our memory. inSource gives
    // their offset in that file, or -1; it is asked as the muxer writes, while the bytes are there.
    int sourceFd = -1;
    std::function<int64_t(const uint8_t *data, int size)> inSource;
};

// Gives a muxer an output written through a descriptor made by CreateFreshDescriptor rather than
// one the muxer opens by name. False when the file cannot be made.
bool OpenSafeOutput(AVFormatContext *ctx, const QByteArray &path, SafeOutputOptions options = {});
// Flushes and closes that output, if one is open. False when a write failed.
bool CloseSafeOutput(AVFormatContext *ctx);
