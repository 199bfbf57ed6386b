#include "rebuild/SampleWalker.h"

#include "rebuild/ByteSource.h"
#include "rebuild/TrackDescription.h"

#include <algorithm>

namespace {

// The longest stretch of audio looked at in one go, and how far ahead a picture is looked for.
constexpr int64_t AudioStretch = 1 << 20;
constexpr int64_t ProgressStep = 4 << 20;

} // namespace

SampleWalker::SampleWalker(const Description &description, SourceWindow &window) : m_window(window)
{
    for (size_t i = 0; i < description.tracks.size(); ++i) {
        const TrackDescription &t = description.tracks[i];
        if (t.IsVideo() && m_video < 0) {
            m_largestPicture = std::min(t.SampleLimit(), window.Capacity());
            if ((m_matcher = PictureMatcher::For(t, m_largestPicture)))
                m_video = int(i);
        } else if (!t.IsVideo() && m_audio < 0) {
            if (auto framer = AudioFramer::For(t)) {
                m_audio = int(i);
                m_largestAudio = framer->Largest();
                m_framer = std::move(framer);
            }
        }
    }
}

SampleWalker::~SampleWalker() = default;

PictureMatcher::Unit SampleWalker::PictureAt(int64_t pos, int64_t end)
{
    if (!m_matcher)
        return {};
    if (pos == m_lastPictureAt && end == m_lastPictureEnd)
        return m_lastPicture;
    int64_t available = 0;
    const uint8_t *data = m_window.Bytes(pos, std::min(m_largestPicture, end - pos), &available);
    if (!m_matcher->MayStart(data, available))
        return {};
    PictureMatcher::Unit unit = m_matcher->Match(data, available);
    if (unit.size > 0 && m_matcher->RunsToNextStartCode()) {
        // No start code within the largest picture: not a picture, unless the data ends there.
        if (unit.size == available && pos + available < end)
            unit = {};
        else
            unit.size = PictureEnd(pos, unit.size, end);
    }
    if (unit.size > 0 && !SampleFollows(pos + unit.size, end))
        unit = {};
    m_lastPictureAt = pos;
    m_lastPictureEnd = end;
    m_lastPicture = unit;
    return unit;
}

int64_t SampleWalker::PictureEnd(int64_t pos, int64_t size, int64_t end)
{
    if (!m_framer)
        return size;
    for (int64_t q = pos + 5; q < pos + size; ++q) {
        int64_t available = 0;
        const uint8_t *data = m_window.Bytes(q, std::min(end - q, AudioStretch), &available);
        if (!m_framer->MayResume(data, int(available)) || !m_framer->StartsFrame(data, int(available)))
            continue;
        // Sound starts here when its frames run on to where a picture may start, or to the end.
        // (A start code may turn up inside the sound: the picture's own end says nothing.)
        int rest = 0;
        const std::vector<int> frames = m_framer->Split(data, int(available), &rest);
        if (frames.empty())
            continue;
        const int64_t after = q + int64_t(available) - rest;
        if (after >= end || (rest < m_largestAudio && q + available == end))
            return q - pos;
        const uint8_t *next = m_window.Bytes(after, 8, &available);
        if (m_matcher->MayStart(next, available))
            return q - pos;
    }
    return size;
}

bool SampleWalker::SampleFollows(int64_t pos, int64_t end)
{
    if (pos >= end)
        return true;
    if (m_matcher) {
        int64_t available = 0;
        const uint8_t *data = m_window.Bytes(pos, std::min(m_largestPicture, end - pos), &available);
        if (m_matcher->MayStart(data, available) && m_matcher->Match(data, available).size > 0)
            return true;
        // The data ends inside the next picture, as a recording cut short does.
        if (pos + available >= end && m_matcher->CutOffAt(data, available))
            return true;
    }
    if (m_framer && end - pos < m_largestAudio) {
        // ... or inside an audio frame, which then cannot decode.
        int64_t available = 0;
        const uint8_t *data = m_window.Bytes(pos, end - pos, &available);
        if (m_framer->MayStart(data, int(available)))
            return true;
    }
    return AudioStartsAt(pos, end, false);
}

bool SampleWalker::AudioStartsAt(int64_t pos, int64_t end, bool confirm)
{
    if (!m_framer)
        return false;
    int64_t available = 0;
    const uint8_t *data = m_window.Bytes(pos, std::min<int64_t>(m_largestAudio, end - pos), &available);
    if (!(confirm ? m_framer->MayResume(data, int(available)) : m_framer->MayStart(data, int(available))))
        return false;
    if (!confirm)
        return m_framer->StartsFrame(data, int(available));
    // Garbage decodes as a frame now and then: where it matters, the next sample must agree.
    const int frame = m_framer->FrameAt(data, int(available));
    return frame > 0 && SampleFollows(pos + frame, end);
}

int64_t SampleWalker::NextPicture(int64_t from, int64_t limit, int64_t end)
{
    // Nearly every position fails the matcher's first look. Take that look on one span of mapped
    // bytes, and ask PictureAt (which may move the window) only where it passes.
    for (int64_t p = from; p < limit;) {
        const int64_t base = p, wanted = std::min(end, limit + m_largestPicture) - base;
        int64_t available = 0;
        const uint8_t *span = m_window.Bytes(base, wanted, &available);
        if (available < wanted) { // more than the window holds: one position at a time
            if (PictureAt(p, end).size > 0)
                return p;
            ++p;
            continue;
        }
        while (p < limit && !m_matcher->MayStart(span + (p - base), std::min(m_largestPicture, end - p)))
            ++p;
        if (p == limit)
            break;
        if (PictureAt(p, end).size > 0)
            return p;
        ++p;
    }
    return limit;
}

int64_t SampleWalker::Resync(int64_t from, int64_t end)
{
    for (int64_t p = from; p < end; ++p) {
        if (PictureAt(p, end).size > 0 || AudioStartsAt(p, end, true))
            return p;
    }
    return end;
}

WalkStats SampleWalker::Walk(int64_t begin, int64_t end, const Sink &sink, const std::atomic<bool> *stop,
                             const Progress &progress)
{
    WalkStats stats;
    int tracks = std::max(m_video, m_audio) + 1;
    stats.samples.assign(size_t(std::max(tracks, 0)), 0);
    if (tracks == 0)
        return stats;
    end = std::min(end, m_window.Size());
    int64_t pos = std::max<int64_t>(begin, 0), reported = pos;
    auto emit = [&](int track, int64_t at, int64_t size, bool key) {
        int64_t available = 0;
        const uint8_t *data = m_window.Bytes(at, size, &available);
        ++stats.samples[size_t(track)];
        const int header = track == m_audio ? m_framer->HeaderLength(data, int(available)) : 0;
        return available == size && sink(WalkedSample{track, at, size, key, header}, data);
    };
    while (pos < end && !(stop && *stop)) {
        if (progress && pos - reported >= ProgressStep) {
            progress(pos);
            reported = pos;
        }
        if (const PictureMatcher::Unit unit = PictureAt(pos, end); unit.size > 0) {
            if (!emit(m_video, pos, unit.size, unit.key))
                break;
            pos += unit.size;
            continue;
        }
        if (m_framer) {
            const int64_t limit = std::min(end, pos + AudioStretch);
            const int64_t stretchEnd = m_matcher ? NextPicture(pos + 1, limit, end) : limit;
            int64_t available = 0;
            const uint8_t *data = m_window.Bytes(pos, stretchEnd - pos, &available);
            int rest = 0;
            const std::vector<int> frames = m_framer->Split(data, int(available), &rest);
            bool stopped = false;
            for (const int size : frames) {
                if (!emit(m_audio, pos, size, true)) {
                    stopped = true;
                    break;
                }
                pos += size;
            }
            if (stopped)
                break;
            if (!frames.empty())
                continue;
        }
        const int64_t next = Resync(pos + 1, end);
        stats.skippedBytes += next - pos;
        ++stats.skips;
        pos = next;
    }
    if (progress)
        progress(pos);
    return stats;
}
