#pragma once

#include <QMessageBox>
#include <QObject>
#include <QString>
#include <QTimer>

// Answers the next modal message box that opens, so that code under test which asks a question (or
// warns) never leaves a test waiting. Arm it before the call that opens the box:
//     ModalAnswerer answer(QMessageBox::Yes);
//     page.close();
//     QCOMPARE(answer.Text(), "...");
class ModalAnswerer : public QObject
{
    Q_OBJECT

public:
    explicit ModalAnswerer(QMessageBox::StandardButton button = QMessageBox::Ok, int timeoutMs = 5000);

    bool Answered() const { return m_answered; }
    QString Text() const { return m_text; }
    QString Title() const { return m_title; }
    QMessageBox::Icon Icon() const { return m_icon; }

private:
    void Poll();

    QMessageBox::StandardButton m_button;
    QTimer m_timer;
    int m_remaining;
    bool m_answered = false;
    QString m_text;
    QString m_title;
    QMessageBox::Icon m_icon = QMessageBox::NoIcon;
};
