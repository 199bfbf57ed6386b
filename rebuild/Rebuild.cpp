#include "rebuild/Rebuild.h"

#include "rebuild/ByteSource.h"
#include "rebuild/IndexWriter.h"
#include "rebuild/MediaData.h"
#include "rebuild/SampleWalker.h"
#include "repair/AvOwners.h"
#include "repair/Playback.h"

#include <QFile>
#include <QFileInfo>

namespace {

// The walk's window: the largest picture it accepts fits in it several times over.
constexpr int64_t WindowSize = 64 << 20;

// The bytes of media data the file's index accounts for: the samples of libavformat's index, or,
// for a fragmented file (whose index grows as it is read), of every packet its demuxer reads.
int64_t IndexedBytes(AVFormatContext *fmt, bool fragmented, const std::atomic<bool> *stop)
{
    int64_t bytes = 0;
    if (!fragmented) {
        for (unsigned i = 0; i < fmt->nb_streams; ++i)
            for (int k = 0, n = avformat_index_get_entries_count(fmt->streams[i]); k < n; ++k)
                bytes += avformat_index_get_entry(fmt->streams[i], k)->size;
        return bytes;
    }
    PacketPtr packet(av_packet_alloc());
    while (packet && !(stop && *stop) && av_read_frame(fmt, packet.get()) >= 0) {
        bytes += packet->size;
        av_packet_unref(packet.get());
    }
    return bytes;
}

// Whether some sample of the file, by its index, lies beyond the file's end.
bool IndexPointsPastEnd(AVFormatContext *fmt, int64_t fileSize)
{
    for (unsigned i = 0; i < fmt->nb_streams; ++i) {
        const int n = avformat_index_get_entries_count(fmt->streams[i]);
        if (n <= 0)
            continue;
        const AVIndexEntry *last = avformat_index_get_entry(fmt->streams[i], n - 1);
        if (last && last->pos + last->size > fileSize)
            return true;
    }
    return false;
}

} // namespace

const char *ContainerFor(const QString &fileName)
{
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    if (suffix == "mp4")
        return "mp4";
    if (suffix == "m4v" || suffix == "m4a")
        return "ipod";
    if (suffix == "f4v")
        return "f4v";
    return "mov";
}

RebuildResult RebuildIndex(const QString &damaged, const QString &output, const Description &description,
                           const std::atomic<bool> *stop, const RebuildProgress &progress)
{
    RebuildResult result;
    FileSource source(QFile::encodeName(damaged));
    if (!source.IsOpen() || !description.Usable())
        return result;
    const MediaLayout layout = FindMediaData(source);
    if (!layout.HasMedia())
        return result;

    SourceWindow window(source, WindowSize);
    IndexWriter writer(description);
    if (!writer.Open(QFile::encodeName(output), ContainerFor(output), &window))
        return result;
    SampleWalker walker(description, window);
    const int64_t total = layout.MediaBytes();
    result.mediaBytes = total;
    int64_t before = 0; // media bytes of the regions already walked
    for (const auto &[begin, end] : layout.regions) {
        const WalkStats stats = walker.Walk(
            begin, end,
            [&writer](const WalkedSample &sample, const uint8_t *data) { return writer.Add(sample, data); }, stop,
            [&, begin = begin](int64_t at) {
                if (progress)
                    progress(before + at - begin, total);
            });
        before += end - begin;
        result.skippedBytes += stats.skippedBytes;
        result.skips += stats.skips;
        if (stop && *stop)
            return result;
    }
    result.written = writer.Finish();
    for (size_t k = 0; k < description.tracks.size(); ++k)
        (description.tracks[k].IsVideo() ? result.videoSamples : result.audioSamples) += writer.Written(int(k));
    result.seconds = writer.Seconds();
    return result;
}

bool NeedsRebuild(const QString &path, const std::atomic<bool> *stop)
{
    const QByteArray name = QFile::encodeName(path);
    MediaLayout layout;
    {
        FileSource source(name);
        if (!source.IsOpen())
            return false;
        layout = FindMediaData(source);
        if (!layout.HasMedia())
            return false;
    }
    AVFormatContext *fmt = nullptr;
    if (avformat_open_input(&fmt, name.constData(), nullptr, nullptr) < 0)
        return true;
    FormatPtr owner(fmt);
    if (avformat_find_stream_info(fmt, nullptr) < 0 || IndexPointsPastEnd(fmt, QFileInfo(path).size()))
        return true;
    // An index that accounts for far less than the media data lost the rest (damaged tables, a
    // damaged fragment header).
    if (IndexedBytes(fmt, layout.Find(FourCC("moof")) != nullptr, stop) < layout.MediaBytes() * 9 / 10)
        return true;
    owner.reset();
    return !MeasureFirstPlay(path, stop).Plays();
}
