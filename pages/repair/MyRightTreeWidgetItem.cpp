#include "pages/repair/MyRightTreeWidgetItem.h"

#include <QTreeWidget>

bool MyRightTreeWidgetItem::operator<(const QTreeWidgetItem &other) const
{
    const int column = treeWidget() ? treeWidget()->sortColumn() : 0;
    if (column == Size)
        return text(Bytes).toLongLong() < other.text(Bytes).toLongLong();
    return text(column).toLower() < other.text(column).toLower();
}

bool MyRightTreeWidgetItem::IsFileRow(const QTreeWidgetItem *row)
{
    return row && row->text(FileId).toUInt() != 1 && !row->text(TemporaryPath).isEmpty();
}

QTreeWidgetItem *MyRightTreeWidgetItem::clone() const
{
    auto *copy = new MyRightTreeWidgetItem;
    *copy = *this; // texts, check states, fonts and flags; not the children
    for (int i = 0; i < childCount(); ++i)
        copy->addChild(child(i)->clone());
    return copy;
}
