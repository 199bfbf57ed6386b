#pragma once

#include <QElapsedTimer>
#include <QImage>
#include <QString>
#include <QTimer>
#include <QWidget>

#include <memory>

class PlayerDecoder;
class AudioSink;
class QLabel;
class QSlider;
class QToolButton;

// The picture area: the current frame scaled to fit with its aspect ratio kept, on black, or a
// message in its place.
class VideoView : public QWidget
{
    Q_OBJECT

public:
    explicit VideoView(QWidget *parent = nullptr);

    void SetFrame(const QImage &image, double aspect);
    void SetMessage(const QString &text);
    void Clear();
    QString Message() const { return m_message; }
    QImage Frame() const { return m_image; }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QImage m_image;
    double m_aspect = 0.0;
    QString m_message;
};

// Plays one file: FFmpeg decodes on a thread of its own, this widget draws the pictures on time,
// plays the sound where Qt Multimedia and a sound device are available, and offers play/pause, a
// seek bar and the elapsed and total time. Space toggles play/pause; Left and Right step 5 seconds.
// The clock is the sound output's when there is sound, a monotonic clock otherwise.
class PlayerWidget : public QWidget
{
    Q_OBJECT

public:
    explicit PlayerWidget(QWidget *parent = nullptr);
    ~PlayerWidget() override;

    // Starts opening `path`; opened() or error() follows. Playback starts once it is open when
    // `play` is true.
    void Open(const QString &path, bool play = true);
    // Stops playback, releases the file and shows `text` instead of a picture.
    void ShowMessage(const QString &text);

    void Play();
    void Pause();
    void TogglePlay();
    void Seek(qint64 ms);

    bool IsOpen() const { return m_open; }
    bool IsPlaying() const { return m_playing; }
    bool HasSound() const;
    qint64 Duration() const { return qint64(m_duration * 1000.0); }
    qint64 Position() const;
    QString Message() const;
    VideoView *View() const { return m_view; }

Q_SIGNALS:
    void opened(qint64 durationMs);
    void error(QString message);
    void positionChanged(qint64 ms);
    void playingChanged(bool playing);
    void finished();
    // The size the picture has on screen at 100%, sent with the first picture and when it changes.
    void pictureSize(QSize size);

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    void OnOpened(double duration, bool hasVideo, bool hasAudio);
    void OnFailed(const QString &reason);
    void OnFrameQueued();
    void OnPresent();
    void OnTick();
    void OnSliderValue(int value);

    void Close();
    double Clock() const;
    void StartClock();
    void SetPlaying(bool playing);
    void ReachEnd();
    void UpdateControls();
    void ProbeSound();

    VideoView *m_view = nullptr;
    QToolButton *m_playButton = nullptr;
    QSlider *m_slider = nullptr;
    QLabel *m_time = nullptr;

    // Destroyed sound first, then the decoder: the sound output reads from the decoder's queue.
    std::unique_ptr<PlayerDecoder> m_decoder;
    std::unique_ptr<AudioSink> m_sound;
    int m_audioRate = 0;
    int m_audioChannels = 2;
    // Signals of a decoder that has been replaced may still be queued: they carry an older number.
    int m_generation = 0;

    QTimer m_presentTimer; // fires when the next picture is due
    QTimer m_tickTimer;    // time label, seek bar and the end of the file while playing
    QElapsedTimer m_wall;
    QElapsedTimer m_waitingSince;
    double m_clockBase = 0.0; // the position when m_wall was last started or the clock stopped
    double m_duration = 0.0;
    double m_lastMedia = 0.0; // the time of the last picture or sound handed out
    bool m_open = false;
    bool m_hasVideo = false;
    bool m_playing = false;
    bool m_playWhenOpen = false;
    bool m_showNextFrame = false;
    bool m_atEnd = false;
    bool m_movingSlider = false;
    qint64 m_lastPosition = -1;
    QSize m_pictureSize;
};
