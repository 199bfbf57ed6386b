#include "app/FadeIn.h"

#include <QTimer>
#include <QWidget>

FadeIn::FadeIn(QWidget *window, int intervalMs) : QObject(window), m_window(window), m_interval(intervalMs) {}

void FadeIn::Start()
{
    m_opacity = 0;
    m_window->setWindowOpacity(0.0);
    delete m_timer;
    m_timer = new QTimer(this);
    connect(m_timer, &QTimer::timeout, this, &FadeIn::Tick);
    m_timer->start(m_interval);
}

void FadeIn::Tick()
{
    m_window->setWindowOpacity(m_opacity);
    m_opacity += 0.1f;
    if (m_opacity < 1.0f)
        return;
    m_opacity = 1.0f;
    m_window->setWindowOpacity(1.0);
    if (m_timer) {
        m_timer->stop();
        m_timer->deleteLater();
        m_timer = nullptr;
    }
}

bool FadeIn::Running() const
{
    return m_timer && m_timer->isActive();
}
