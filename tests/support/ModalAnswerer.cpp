#include "ModalAnswerer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QTest>

ModalAnswerer::ModalAnswerer(QMessageBox::StandardButton button, int timeoutMs)
    : m_button(button), m_timeout(timeoutMs), m_remaining(timeoutMs)
{
    // The box runs its own event loop, which keeps delivering this timer.
    m_timer.setInterval(10);
    connect(&m_timer, &QTimer::timeout, this, &ModalAnswerer::Poll);
    m_timer.start();
}

void ModalAnswerer::Poll()
{
    m_remaining -= m_timer.interval();
    auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
    if (!box) {
        if (m_remaining <= 0)
            m_timer.stop();
        return;
    }
    m_remaining = m_timeout;
    m_texts << box->text();
    m_informative = box->informativeText();
    m_title = box->windowTitle();
    m_icon = box->icon();
    if (m_button == Enter)
        QTest::keyClick(box, Qt::Key_Return);
    else if (QAbstractButton *b = box->button(m_button))
        b->click();
    else
        box->done(m_button);
}
