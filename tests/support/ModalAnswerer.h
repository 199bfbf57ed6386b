#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QStringList>
#include <QTest>
#include <QTimer>

// Answers every modal message box that opens while it lives (arm it before the call); Texts()
// lists them in order. Stops when none came for timeoutMs. Enter takes the box's default button.
class ModalAnswerer
{
public:
    static constexpr QMessageBox::StandardButton Enter = QMessageBox::NoButton;

    explicit ModalAnswerer(QMessageBox::StandardButton button = QMessageBox::Ok, int timeoutMs = 5000)
    {
        // The box runs its own event loop, which keeps delivering this timer.
        QObject::connect(&m_timer, &QTimer::timeout, [this, button, timeoutMs, left = timeoutMs]() mutable {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            left = box ? timeoutMs : left - m_timer.interval();
            if (left <= 0)
                m_timer.stop();
            if (!box)
                return;
            m_texts << box->text();
            m_informative = box->informativeText();
            m_title = box->windowTitle();
            m_icon = box->icon();
            if (button == Enter)
                QTest::keyClick(box, Qt::Key_Return);
            else if (QAbstractButton *b = box->button(button))
                b->click();
            else
                box->done(button);
        });
        m_timer.start(10);
    }

    bool Answered() const { return !m_texts.isEmpty(); }
    // The text of the last box answered, and of all of them.
    QString Text() const { return m_texts.value(m_texts.size() - 1); }
    QStringList Texts() const { return m_texts; }
    QString InformativeText() const { return m_informative; }
    QString Title() const { return m_title; }
    QMessageBox::Icon Icon() const { return m_icon; }

private:
    QTimer m_timer;
    QStringList m_texts;
    QString m_informative, m_title;
    QMessageBox::Icon m_icon = QMessageBox::NoIcon;
};
