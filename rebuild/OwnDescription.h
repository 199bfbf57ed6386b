#pragma once

#include "rebuild/TrackDescription.h"

// Learns the tracks of a damaged file from what survives in it, for a rebuild without a reference:
// - the sample descriptions ("stsd"), time scales and sample lengths of a "moov" whose sample
//   tables are damaged, or that precedes media data cut short;
// - H.264 SPS/PPS and HEVC VPS/SPS/PPS repeated in the media data (length prefixes of 4, 2 or 1
//   bytes), from which libavformat's muxer builds the avcC / hvcC record; the frame rate from
//   their timing information;
// - MPEG audio from its frame headers; raw AAC by trial: the configuration (LC, mono or stereo)
//   that frames the most, its rate from how sound and pictures interleave, else from a surviving
//   media header, else assumed.
// Every value it had to assume is listed in the description's assumptions. The description's
// origin is "the file itself".
Description LearnFromDamagedFile(const QString &path);
