#pragma once

#include "rebuild/TrackDescription.h"

#include <QString>

#include <atomic>
#include <cstdint>
#include <functional>

// Rebuilding a lost or broken index from the media data: the samples of a damaged file are found
// in its bare media data with the tracks of a description (learned from a reference recording or
// from the file itself) and written, unchanged, into a new file whose index libavformat's muxer
// writes.

struct RebuildResult
{
    bool written = false;      // the output is a whole file with its index
    int64_t videoSamples = 0;
    int64_t audioSamples = 0;
    double seconds = 0;        // the length of the longest track recovered
    int64_t skippedBytes = 0;  // media data that fitted no track
    int skips = 0;
    int64_t mediaBytes = 0;    // media data walked

    bool Recovered() const { return written && (videoSamples > 0 || audioSamples > 0); }
};

using RebuildProgress = std::function<void(int64_t done, int64_t total)>;

// Rebuilds `damaged` into `output` (made afresh, in the container its name asks for). The damaged
// file is only read. A raised `stop` ends the rebuild early, unfinished.
RebuildResult RebuildIndex(const QString &damaged, const QString &output, const Description &description,
                           const std::atomic<bool> *stop = nullptr, const RebuildProgress &progress = {});

// The muxer for a file name: "mov", "mp4", "ipod" (.m4v, .m4a) or "f4v"; "mov" for anything else.
const char *ContainerFor(const QString &fileName);

// Whether a working copy calls for a rebuild: it holds media data, and libavformat cannot open it,
// or its sample tables point past its end, or nothing of it plays.
bool NeedsRebuild(const QString &path, const std::atomic<bool> *stop = nullptr);
