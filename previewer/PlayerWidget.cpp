#include "previewer/PlayerWidget.h"

#include "previewer/PlayerDecoder.h"
#include "previewer/SoundFeed.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QSlider>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <climits>
#include <cmath>

#ifdef CORVANE_PLAYER_SOUND
#include <QAudioDeviceInfo>
#include <QAudioFormat>
#include <QAudioOutput>
#include <QIODevice>

namespace
{

QAudioFormat SoundFormat(int rate, int channels)
{
    QAudioFormat format;
    format.setCodec("audio/pcm");
    format.setSampleRate(rate);
    format.setChannelCount(channels);
    format.setSampleSize(16);
    format.setSampleType(QAudioFormat::SignedInt);
    format.setByteOrder(QAudioFormat::LittleEndian);
    return format;
}

} // namespace

// Plays the decoder's sound on the default output in pull mode. The clock is the time of the last
// byte handed to the device less what the device still holds.
class AudioSink : public QIODevice
{
public:
    AudioSink(PlayerDecoder *decoder, int rate, int channels)
        : m_feed(decoder, rate, channels),
          m_output(QAudioDeviceInfo::defaultOutputDevice(), SoundFormat(rate, channels))
    {
    }

    ~AudioSink() override { m_output.stop(); }

    bool Start(double at)
    {
        m_output.stop();
        m_feed.Restart(at);
        if (!isOpen())
            open(QIODevice::ReadOnly);
        m_output.start(this);
        return m_output.error() == QAudio::NoError && m_output.state() != QAudio::StoppedState;
    }

    void Stop() { m_output.stop(); }
    void Suspend() { m_output.suspend(); }
    void Resume() { m_output.resume(); }
    bool Active() const { return m_output.state() != QAudio::StoppedState; }
    bool Failed() const
    {
        return m_output.error() != QAudio::NoError && m_output.error() != QAudio::UnderrunError;
    }

    double Clock() const
    {
        const double held = double(m_output.bufferSize() - m_output.bytesFree()) / m_feed.BytesPerSecond();
        return std::max(0.0, m_feed.Position() - held);
    }

    double LastSound() const { return m_feed.LastSound(); }

    bool isSequential() const override { return true; }

protected:
    qint64 readData(char *data, qint64 maxSize) override { return m_feed.Read(data, maxSize); }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    SoundFeed m_feed;
    QAudioOutput m_output;
};

#else

// Built without Qt Multimedia: files play silently on the monotonic clock.
class AudioSink
{
public:
    AudioSink(PlayerDecoder *, int, int) {}
    bool Start(double) { return false; }
    void Stop() {}
    void Suspend() {}
    void Resume() {}
    bool Active() const { return false; }
    bool Failed() const { return true; }
    double Clock() const { return 0.0; }
    double LastSound() const { return 0.0; }
};

#endif

namespace
{

QString TimeText(qint64 ms)
{
    const qint64 s = std::max<qint64>(0, ms) / 1000;
    if (s >= 3600)
        return QString("%1:%2:%3")
            .arg(s / 3600)
            .arg(s / 60 % 60, 2, 10, QChar('0'))
            .arg(s % 60, 2, 10, QChar('0'));
    return QString("%1:%2").arg(s / 60).arg(s % 60, 2, 10, QChar('0'));
}

// How long the clock waits after a seek for the first picture at the new position before it runs
// on regardless (a damaged file may have none).
constexpr qint64 kFirstPictureWaitMs = 1000;
constexpr qint64 kStepMs = 5000;

} // namespace

VideoView::VideoView(QWidget *parent) : QWidget(parent)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(160, 90);
}

void VideoView::SetFrame(const QImage &image, double aspect)
{
    m_image = image;
    m_aspect = aspect;
    update();
}

void VideoView::SetMessage(const QString &text)
{
    m_message = text;
    update();
}

void VideoView::Clear()
{
    m_image = QImage();
    m_message.clear();
    update();
}

QSize VideoView::sizeHint() const
{
    return QSize(640, 360);
}

void VideoView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), Qt::black);
    if (!m_image.isNull() && width() > 0 && height() > 0) {
        const double aspect = m_aspect > 0.0 ? m_aspect : double(m_image.width()) / m_image.height();
        double w = width();
        double h = w / aspect;
        if (h > height()) {
            h = height();
            w = h * aspect;
        }
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(QRectF((width() - w) / 2.0, (height() - h) / 2.0, w, h), m_image);
    }
    if (!m_message.isEmpty()) {
        QFont font = painter.font();
        font.setPointSizeF(font.pointSizeF() * 1.2);
        painter.setFont(font);
        painter.setPen(Qt::white);
        painter.drawText(rect().adjusted(24, 24, -24, -24), Qt::AlignCenter | Qt::TextWordWrap, m_message);
    }
}

PlayerWidget::PlayerWidget(QWidget *parent) : QWidget(parent)
{
    m_view = new VideoView(this);
    m_view->setObjectName("videoView");

    m_playButton = new QToolButton(this);
    m_playButton->setObjectName("playButton");
    m_playButton->setAutoRaise(true);
    m_playButton->setFocusPolicy(Qt::NoFocus);
    m_playButton->setToolTip(tr("Play or pause (Space)"));

    m_slider = new QSlider(Qt::Horizontal, this);
    m_slider->setObjectName("seekBar");
    m_slider->setFocusPolicy(Qt::NoFocus);
    m_slider->setSingleStep(1000);
    m_slider->setPageStep(int(kStepMs));

    m_time = new QLabel(this);
    m_time->setObjectName("timeLabel");

    auto *controls = new QHBoxLayout;
    controls->setContentsMargins(6, 4, 10, 4);
    controls->addWidget(m_playButton);
    controls->addWidget(m_slider, 1);
    controls->addWidget(m_time);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_view, 1);
    layout->addLayout(controls);
    setFocusPolicy(Qt::StrongFocus);

    m_presentTimer.setSingleShot(true);
    m_presentTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_presentTimer, &QTimer::timeout, this, &PlayerWidget::OnPresent);
    m_tickTimer.setInterval(100);
    connect(&m_tickTimer, &QTimer::timeout, this, &PlayerWidget::OnTick);
    connect(m_playButton, &QToolButton::clicked, this, &PlayerWidget::TogglePlay);
    connect(m_slider, &QSlider::valueChanged, this, &PlayerWidget::OnSliderValue);
    connect(m_slider, &QSlider::sliderReleased, this, [this] { Seek(m_slider->value()); });
    UpdateControls();
}

PlayerWidget::~PlayerWidget()
{
    Close();
}

void PlayerWidget::Close()
{
    m_presentTimer.stop();
    m_tickTimer.stop();
    m_sound.reset();
    m_decoder.reset();
    ++m_generation;
    m_open = false;
    m_hasVideo = false;
    m_duration = 0.0;
    m_clockBase = 0.0;
    m_lastMedia = 0.0;
    m_atEnd = false;
    m_showNextFrame = false;
    m_playWhenOpen = false;
    m_pictureSize = QSize();
    SetPlaying(false);
}

void PlayerWidget::ProbeSound()
{
    m_audioRate = 0;
#ifdef CORVANE_PLAYER_SOUND
    const QAudioDeviceInfo device = QAudioDeviceInfo::defaultOutputDevice();
    if (device.isNull())
        return;
    QAudioFormat format = SoundFormat(
        device.preferredFormat().sampleRate() > 0 ? device.preferredFormat().sampleRate() : 48000, 2);
    if (!device.isFormatSupported(format))
        format = device.nearestFormat(format);
    if (format.sampleSize() != 16 || format.sampleType() != QAudioFormat::SignedInt ||
        format.byteOrder() != QAudioFormat::LittleEndian || format.channelCount() < 1 ||
        format.channelCount() > 2 || format.sampleRate() <= 0)
        return;
    m_audioRate = format.sampleRate();
    m_audioChannels = format.channelCount();
#endif
}

void PlayerWidget::Open(const QString &path, bool play)
{
    Close();
    m_view->Clear();
    ProbeSound();
    m_decoder = std::make_unique<PlayerDecoder>(path, m_audioRate, m_audioChannels);
    const int generation = m_generation;
    PlayerDecoder *decoder = m_decoder.get();
    connect(decoder, &PlayerDecoder::Opened, this,
            [this, generation](double duration, bool video, bool audio) {
                if (generation == m_generation)
                    OnOpened(duration, video, audio);
            });
    connect(decoder, &PlayerDecoder::Failed, this, [this, generation](const QString &reason) {
        if (generation == m_generation)
            OnFailed(reason);
    });
    connect(decoder, &PlayerDecoder::FrameQueued, this, [this, generation] {
        if (generation == m_generation)
            OnFrameQueued();
    });
    m_playWhenOpen = play;
    m_decoder->Start();
    UpdateControls();
}

void PlayerWidget::ShowMessage(const QString &text)
{
    Close();
    m_view->Clear();
    m_view->SetMessage(text);
    UpdateControls();
}

void PlayerWidget::OnOpened(double duration, bool hasVideo, bool hasAudio)
{
    m_open = true;
    m_hasVideo = hasVideo;
    m_duration = duration;
    m_clockBase = 0.0;
    m_showNextFrame = hasVideo;
    m_waitingSince.start();
    if (hasAudio)
        m_sound = std::make_unique<AudioSink>(m_decoder.get(), m_audioRate, m_audioChannels);
    UpdateControls();
    Q_EMIT opened(Duration());
    if (m_playWhenOpen)
        Play();
    OnFrameQueued();
}

void PlayerWidget::OnFailed(const QString &reason)
{
    const QString message = tr("This file cannot be played.") + "\n" + reason;
    ShowMessage(message);
    Q_EMIT error(message);
}

bool PlayerWidget::HasSound() const
{
    return m_sound != nullptr;
}

double PlayerWidget::Clock() const
{
    if (!m_playing || m_showNextFrame)
        return m_clockBase;
    if (m_sound && m_sound->Active())
        return m_sound->Clock();
    return m_clockBase + double(m_wall.nsecsElapsed()) / 1e9;
}

qint64 PlayerWidget::Position() const
{
    double t = std::max(0.0, Clock());
    if (m_duration > 0.0)
        t = std::min(t, m_duration);
    return std::llround(t * 1000.0);
}

QString PlayerWidget::Message() const
{
    return m_view->Message();
}

// Starts the clock running from m_clockBase: the sound output's when it starts, the monotonic one
// otherwise.
void PlayerWidget::StartClock()
{
    m_wall.restart();
    if (m_sound && !m_sound->Start(m_clockBase)) {
        m_sound.reset();
        m_decoder->DisableAudio();
    }
    m_tickTimer.start();
}

void PlayerWidget::SetPlaying(bool playing)
{
    if (m_playing == playing)
        return;
    m_playing = playing;
    Q_EMIT playingChanged(playing);
}

void PlayerWidget::Play()
{
    if (!m_open) {
        m_playWhenOpen = m_decoder != nullptr;
        return;
    }
    if (m_playing)
        return;
    if (m_atEnd)
        Seek(0);
    SetPlaying(true);
    if (m_showNextFrame) {
        // The clock starts with the first picture at this position.
        m_tickTimer.start();
    } else if (m_sound && m_sound->Active()) {
        m_wall.restart();
        m_sound->Resume();
        m_tickTimer.start();
    } else {
        StartClock();
    }
    m_presentTimer.start(0);
    UpdateControls();
}

void PlayerWidget::Pause()
{
    if (!m_open) {
        m_playWhenOpen = false;
        return;
    }
    if (!m_playing)
        return;
    m_clockBase = Clock();
    if (m_sound)
        m_sound->Suspend();
    SetPlaying(false);
    m_tickTimer.stop();
    m_presentTimer.stop();
    UpdateControls();
}

void PlayerWidget::TogglePlay()
{
    if (m_playing || (!m_open && m_playWhenOpen))
        Pause();
    else
        Play();
}

void PlayerWidget::Seek(qint64 ms)
{
    if (!m_open)
        return;
    double t = std::max(0.0, double(ms) / 1000.0);
    if (m_duration > 0.0)
        t = std::min(t, m_duration);
    m_clockBase = t;
    m_lastMedia = 0.0;
    m_atEnd = false;
    m_decoder->Seek(t);
    if (m_sound)
        m_sound->Stop();
    m_presentTimer.stop();
    m_showNextFrame = m_hasVideo;
    m_waitingSince.start();
    if (m_playing && !m_showNextFrame)
        StartClock();
    UpdateControls();
}

void PlayerWidget::OnFrameQueued()
{
    if (!m_presentTimer.isActive() && (m_playing || m_showNextFrame))
        m_presentTimer.start(0);
}

void PlayerWidget::OnPresent()
{
    if (!m_decoder)
        return;
    VideoFrame frame;
    bool got = false;
    double pts = 0.0;
    if (m_showNextFrame) {
        if (m_decoder->TakeVideo(&frame)) {
            got = true;
            m_showNextFrame = false;
            if (m_playing)
                StartClock();
        }
    } else if (m_playing) {
        // Pictures that are already late are dropped, and the latest one due is drawn.
        const double now = Clock();
        while (m_decoder->PeekVideo(&pts) && pts <= now + 0.005 && m_decoder->TakeVideo(&frame))
            got = true;
    }
    if (got) {
        m_view->SetFrame(frame.image, frame.aspect);
        m_lastMedia = std::max(m_lastMedia, frame.pts);
        const QSize size(int(std::lround(frame.image.height() * frame.aspect)), frame.image.height());
        if (size != m_pictureSize) {
            m_pictureSize = size;
            Q_EMIT pictureSize(size);
        }
    }
    if (m_playing && !m_showNextFrame && m_decoder->PeekVideo(&pts))
        m_presentTimer.start(int(std::clamp((pts - Clock()) * 1000.0, 1.0, 250.0)));
}

void PlayerWidget::OnTick()
{
    if (!m_decoder)
        return;
    if (m_showNextFrame && (m_waitingSince.elapsed() > kFirstPictureWaitMs || m_decoder->Drained())) {
        m_showNextFrame = false;
        if (m_playing)
            StartClock();
    }
    if (m_sound && m_sound->Failed()) {
        // The device went away while playing: go on silently from where the sound was.
        m_clockBase = m_sound->Clock();
        m_sound.reset();
        m_decoder->DisableAudio();
        if (m_playing)
            StartClock();
    }
    if (m_sound)
        m_lastMedia = std::max(m_lastMedia, m_sound->LastSound());
    if (m_playing && !m_showNextFrame && m_decoder->Drained()) {
        // The end: at the duration the file gives, or, in a file whose duration is wrong, a moment
        // after the last picture or sound.
        double end = m_duration > 0.0 ? m_duration : 1e18;
        if (m_hasVideo || m_sound)
            end = std::min(end, m_lastMedia + 1.0);
        if (Clock() >= end) {
            ReachEnd();
            return;
        }
    }
    UpdateControls();
}

void PlayerWidget::ReachEnd()
{
    m_clockBase = m_duration > 0.0 ? m_duration : Clock();
    if (m_sound)
        m_sound->Stop();
    m_atEnd = true;
    SetPlaying(false);
    m_tickTimer.stop();
    m_presentTimer.stop();
    UpdateControls();
    Q_EMIT finished();
}

void PlayerWidget::OnSliderValue(int value)
{
    if (m_movingSlider)
        return;
    if (m_slider->isSliderDown()) {
        m_time->setText(TimeText(value) + " / " + TimeText(Duration()));
        return;
    }
    Seek(value);
}

void PlayerWidget::UpdateControls()
{
    const qint64 position = Position();
    m_movingSlider = true;
    m_slider->setEnabled(m_open && m_duration > 0.0);
    m_slider->setRange(0, int(std::min<qint64>(Duration(), INT_MAX)));
    if (!m_slider->isSliderDown())
        m_slider->setValue(int(std::min<qint64>(position, INT_MAX)));
    m_movingSlider = false;
    if (!m_slider->isSliderDown())
        m_time->setText(TimeText(position) + " / " + TimeText(Duration()));
    m_playButton->setEnabled(m_open || m_decoder);
    m_playButton->setIcon(style()->standardIcon(m_playing ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay));
    if (position != m_lastPosition) {
        m_lastPosition = position;
        Q_EMIT positionChanged(position);
    }
}

void PlayerWidget::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Space:
        TogglePlay();
        break;
    case Qt::Key_Left:
        Seek(Position() - kStepMs);
        break;
    case Qt::Key_Right:
        Seek(Position() + kStepMs);
        break;
    default:
        // Escape and the rest go to the window.
        QWidget::keyPressEvent(event);
        return;
    }
    event->accept();
}
