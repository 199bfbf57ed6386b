#pragma once

#include <QMessageBox>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

// Answers the modal message boxes that open while it lives, so that code under test which asks a
// question (or warns) never leaves a test waiting. Arm it before the call that opens the box:
//     ModalAnswerer answer(QMessageBox::Yes);
//     page.close();
//     QCOMPARE(answer.Text(), "...");
// Every box gets the same answer; Texts() lists them all in order. It stops looking when no box has
// come for timeoutMs. Enter presses Return instead, which takes the box's default button.
class ModalAnswerer : public QObject
{
    Q_OBJECT

public:
    static constexpr QMessageBox::StandardButton Enter = QMessageBox::NoButton;
    explicit ModalAnswerer(QMessageBox::StandardButton button = QMessageBox::Ok, int timeoutMs = 5000);

    bool Answered() const { return !m_texts.isEmpty(); }
    // The text of the last box answered, and of all of them.
    QString Text() const { return m_texts.isEmpty() ? QString() : m_texts.last(); }
    QStringList Texts() const { return m_texts; }
    QString InformativeText() const { return m_informative; }
    QString Title() const { return m_title; }
    QMessageBox::Icon Icon() const { return m_icon; }

private:
    void Poll();

    QMessageBox::StandardButton m_button;
    QTimer m_timer;
    int m_timeout;
    int m_remaining;
    QStringList m_texts;
    QString m_informative;
    QString m_title;
    QMessageBox::Icon m_icon = QMessageBox::NoIcon;
};
