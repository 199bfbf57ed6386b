#pragma once

#include <QTreeWidget>

// The file trees of both pages. Space never toggles a check box (the pages keep the root's box and
// the buttons in step only through clicks), and there is no context menu.
class MyTreeWidget : public QTreeWidget
{
    Q_OBJECT

public:
    using QTreeWidget::QTreeWidget;

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
};
