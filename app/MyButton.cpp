#include "app/MyButton.h"

#include <QLabel>
#include <QMovie>

MyButton::MyButton(QWidget *parent) : QPushButton(parent)
{
    setFlat(true);
}

void MyButton::init()
{
    setGeometry(137, 217, 600, 109);
    // The button has no text, so its size hint is tiny; a layout would shrink it to that.
    setMinimumSize(600, 109);
    m_animation = new QLabel(this);
    m_animation->setFixedSize(600, 109);
    m_movie = new QMovie(":/images/img_VideoRepair.gif", QByteArray(), m_animation);
    m_animation->setMovie(m_movie);
    m_movie->start();
    connect(this, &QPushButton::clicked, this, &MyButton::OnButtonClicked);
}

void MyButton::OnButtonClicked()
{
    Q_EMIT OnScanStart();
}

void MyButton::enterEvent(QEvent *event)
{
    QPushButton::enterEvent(event);
    Q_EMIT MouseEnter();
}

void MyButton::leaveEvent(QEvent *event)
{
    QPushButton::leaveEvent(event);
    Q_EMIT MouseLeave();
}
