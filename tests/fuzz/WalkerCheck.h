#pragma once

#include <QByteArray>
#include <QString>

// Walks `input` as bare media data with the tracks its first byte picks (H.264, HEVC or MPEG-4
// Part 2 pictures, AAC or MP3 sound): the walk must end within a second of processor time, and its
// samples lie inside the data, in order, apart. Returns what did not hold, or an empty string.
QString CheckSampleWalker(const QByteArray &input);
