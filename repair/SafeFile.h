#pragma once

#include <QByteArray>

#include <cstdio>

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

// Gives a muxer an output written through a descriptor made by CreateFreshDescriptor rather than
// one the muxer opens by name, in writes of `bufferSize` bytes. With `direct`, a packet's payload is
// written as it comes instead of through the buffer (for samples already in memory, large ones).
// False when the file cannot be made.
bool OpenSafeOutput(AVFormatContext *ctx, const QByteArray &path, int bufferSize = 1 << 16, bool direct = false);
// Flushes and closes that output, if one is open.
void CloseSafeOutput(AVFormatContext *ctx);
