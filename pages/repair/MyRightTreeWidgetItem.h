#pragma once

#include <QTreeWidgetItem>

// A row of the file trees. Sorting by the size column orders rows by their byte count (kept in the
// hidden column 5), every other column by its text without regard to case.
class MyRightTreeWidgetItem : public QTreeWidgetItem
{
public:
    MyRightTreeWidgetItem() = default;
    explicit MyRightTreeWidgetItem(QTreeWidget *tree) : QTreeWidgetItem(tree) {}
    explicit MyRightTreeWidgetItem(QTreeWidgetItem *parent) : QTreeWidgetItem(parent) {}

    bool operator<(const QTreeWidgetItem &other) const override;
    // A deep copy whose rows are all of this class (the base class would copy plain items).
    QTreeWidgetItem *clone() const override;

    enum Column { Name = 0, Path = 1, Size = 2, FileId = 3, ParentId = 4, Bytes = 5, TemporaryPath = 6 };

    // A row that stands for a file: not the root "Video File(s)" (FileID 1), nor the empty row a
    // folder leaves in the list.
    static bool IsFileRow(const QTreeWidgetItem *row);
};
