#pragma once

#include <QString>

// The cheap check of a file the re-encoding pass wrote, made before it may replace a working copy:
// libavformat opens it, it holds exactly the video and audio packets that were written, and the
// first and the last second of its first video stream (of its audio, for a file without video)
// decode without an error.
bool OutputIsWhole(const QString &path, qint64 videoPackets, qint64 audioPackets);
