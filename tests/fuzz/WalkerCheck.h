#pragma once

#include <QByteArray>
#include <QString>

// Walks `input` as bare media data with the tracks its first byte picks (H.264 or HEVC with 4-, 2- or
// 1-byte NAL lengths, or MPEG-4 Part 2; with or without AAC or MP3 sound, or sound alone) and checks what must hold for any
// input: the walk ends within a second of processor time, and the samples it finds lie inside the
// data, in order, without overlapping. Returns an empty string when all held.
QString CheckSampleWalker(const QByteArray &input);
