#include "repair/ReadPacket.h"

extern "C" {
#include <libavformat/avformat.h>
}

int ReadPacket(AVFormatContext *fmt, AVPacket *packet, int audio, int video)
{
    const int read = av_read_frame(fmt, packet);
    if (read >= 0 || audio < 0 || video < 0 || fmt->streams[video]->discard == AVDISCARD_ALL ||
        fmt->streams[audio]->discard == AVDISCARD_ALL)
        return read;
    fmt->streams[audio]->discard = AVDISCARD_ALL;
    return av_read_frame(fmt, packet);
}
