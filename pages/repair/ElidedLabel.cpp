#include "pages/repair/ElidedLabel.h"

#include <QPainter>
#include <QStyle>

QSize ElidedLabel::minimumSizeHint() const
{
    return QSize(fontMetrics().horizontalAdvance(QStringLiteral("M…M")), QLabel::minimumSizeHint().height());
}

QSize ElidedLabel::sizeHint() const
{
    return QSize(minimumSizeHint().width(), QLabel::sizeHint().height());
}

void ElidedLabel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    drawFrame(&painter);
    const QRect area = contentsRect().adjusted(margin(), margin(), -margin(), -margin());
    const QString shown = fontMetrics().elidedText(text(), Qt::ElideMiddle, area.width());
    style()->drawItemText(&painter, area, QStyle::visualAlignment(layoutDirection(), alignment()), palette(),
                          isEnabled(), shown, foregroundRole());
}
