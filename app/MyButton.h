#pragma once

#include <QPushButton>

class QLabel;
class QMovie;

// The large repair button of the start page: a flat button that plays the animated repair image.
class MyButton : public QPushButton
{
    Q_OBJECT

public:
    explicit MyButton(QWidget *parent = nullptr);

    // Places the button, adds the animation and connects clicked() to OnButtonClicked().
    void init();

    QMovie *Movie() const { return m_movie; }

Q_SIGNALS:
    void OnScanStart();
    void MouseEnter();
    void MouseLeave();

public Q_SLOTS:
    void OnButtonClicked();

protected:
    void enterEvent(QEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    QLabel *m_animation = nullptr;
    QMovie *m_movie = nullptr;
};
