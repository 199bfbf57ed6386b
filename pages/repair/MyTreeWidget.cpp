#include "pages/repair/MyTreeWidget.h"

#include <QHeaderView>
#include <QKeyEvent>
#include <QStyleOptionViewItem>

void MyTreeWidget::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Space) {
        event->ignore();
        return;
    }
    QTreeWidget::keyPressEvent(event);
}

void MyTreeWidget::contextMenuEvent(QContextMenuEvent *) {}

void MyTreeWidget::FitColumn(int column, const QStringList &texts, const QFont &font)
{
    // Measured as the item delegate measures a cell: the text in its font within the style's margins.
    QStyleOptionViewItem option;
    option.initFrom(this);
    option.font = font;
    option.fontMetrics = QFontMetrics(font);
    option.features = QStyleOptionViewItem::HasDisplay;
    int width = header()->sectionSizeHint(column);
    for (const QString &text : texts) {
        option.text = text;
        width =
            qMax(width, style()->sizeFromContents(QStyle::CT_ItemViewItem, &option, QSize(), this).width());
    }
    header()->resizeSection(column, width);
}
