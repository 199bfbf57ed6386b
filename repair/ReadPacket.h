#pragma once

struct AVFormatContext;
struct AVPacket;

// av_read_frame for damaged files. In a file cut short, a sound packet that lies past the cut can end
// the input for every stream while pictures before the cut are still to come (ffmpeg, counting the
// pictures alone, sees them). At the first end, while there are pictures to read, the sound stream
// `audio` is given up and the pictures are read on; the pictures rank first in what a file plays.
// `video` is -1 for a file without pictures.
int ReadPacket(AVFormatContext *fmt, AVPacket *packet, int audio, int video);
