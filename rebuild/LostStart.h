#pragma once

#include <QString>

// A file whose first bytes were lost (zeroed: a bad first sector) while its index survives further
// on: the boxes that stood before the media data ("ftyp", and the "mdat" header, with "free" in
// between) are written back into the zeroed bytes, so that libavformat reads the surviving index
// for every sample after the damage. Only bytes that are all zero are written, and only when the
// index says where the media data began. Returns true when the file was mended.
bool RestoreLostStart(const QString &path);
