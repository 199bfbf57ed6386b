#pragma once

#include <QByteArray>
#include <QImage>
#include <QObject>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

// One decoded picture, converted for drawing. `pts` is in seconds from the start of the file;
// `aspect` is the display aspect ratio (width / height) after the sample aspect ratio.
struct VideoFrame {
    QImage image;
    double pts = 0.0;
    double aspect = 0.0;
};

// Opens one file and decodes it on its own thread into two bounded queues: pictures as RGB32 images
// and sound as interleaved signed 16-bit samples at the rate and channel count asked for. The user
// interface takes from the queues at its own pace; the thread waits while they are full, so memory
// stays small however long the file is. Results reach the receiver through queued signals only.
class PlayerDecoder : public QObject
{
    Q_OBJECT

public:
    // `audioRate` 0 decodes no sound at all.
    PlayerDecoder(QString path, int audioRate, int audioChannels, QObject *parent = nullptr);
    // Stops the thread and waits for it: no signal is emitted after this returns.
    ~PlayerDecoder() override;

    void Start();

    // Drops everything queued and continues decoding from `seconds`; pictures and sound before that
    // point are decoded but not queued, so the first picture queued is the one showing at `seconds`.
    void Seek(double seconds);
    // The sound output failed: stop decoding sound and drop what is queued.
    void DisableAudio();

    // The queue of pictures, for the user interface.
    bool PeekVideo(double *pts) const;
    bool TakeVideo(VideoFrame *frame);
    int QueuedVideoFrames() const;

    // Copies queued sound into `data` from one queued block at most. `*pts` is the time of the first
    // byte copied. Blocks that end before `notBefore` are dropped unread: they are too late to play.
    qint64 ReadAudio(char *data, qint64 maxSize, double *pts, double notBefore);
    // The time of the next byte ReadAudio would copy.
    bool PeekAudio(double *pts) const;
    qint64 QueuedAudioBytes() const;

    // The end of the file has been decoded and both queues are empty.
    bool Drained() const;

Q_SIGNALS:
    void Opened(double duration, bool hasVideo, bool hasAudio);
    void Failed(QString reason);
    void FrameQueued();

private:
    struct Media;
    struct AudioBlock {
        QByteArray bytes;
        qint64 offset = 0;
        double pts = 0.0;
    };

    void Run();
    bool OpenMedia(QString *reason);
    void Loop();
    void DoSeek(double seconds);
    void Decode(int stream, const struct AVPacket *packet);
    void QueueVideo(struct AVFrame *frame);
    void QueueAudio(struct AVFrame *frame);
    bool Full() const; // under m_mutex
    static int Interrupt(void *opaque);

    const QString m_path;
    const int m_audioRate;
    const int m_audioChannels;
    std::unique_ptr<Media> m_media; // touched by the decoding thread only

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<VideoFrame> m_video;
    std::deque<AudioBlock> m_audio;
    qint64 m_audioBytes = 0;
    bool m_seekPending = false;
    double m_seekTarget = 0.0;
    bool m_endOfFile = false;

    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_audioOn{false};
    std::thread m_thread;
};
