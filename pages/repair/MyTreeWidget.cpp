#include "pages/repair/MyTreeWidget.h"

#include <QKeyEvent>

void MyTreeWidget::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Space) {
        event->ignore();
        return;
    }
    QTreeWidget::keyPressEvent(event);
}

void MyTreeWidget::contextMenuEvent(QContextMenuEvent *) {}
