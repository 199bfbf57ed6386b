#pragma once

#include <QObject>

class QTimer;
class QWidget;

// Fades a window in when it is shown: the opacity starts at 0 and rises by 0.1 on each tick of a
// fresh timer until the window is whole, then the timer goes.
class FadeIn : public QObject
{
    Q_OBJECT

public:
    FadeIn(QWidget *window, int intervalMs);

    // Starts from transparent; a fade already running is replaced, never run twice at once.
    void Start();
    // One step; the pages' OnTimerSlot.
    void Tick();
    bool Running() const;

private:
    QWidget *m_window;
    int m_interval;
    QTimer *m_timer = nullptr;
    float m_opacity = 1.0f;
};
