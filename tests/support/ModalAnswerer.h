#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QStringList>
#include <QTest>
#include <QTimer>

// Answers the modal message boxes that open while it lives, so that code under test which asks a
// question (or warns) never leaves a test waiting. Arm it before the call that opens the box:
//     ModalAnswerer answer(QMessageBox::Yes);
//     page.close();
//     QCOMPARE(answer.Text(), "...");
// Every box gets the same answer; Texts() lists them all in order. It stops looking when no box has
// come for timeoutMs. Enter presses Return instead, which takes the box's default button.
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
