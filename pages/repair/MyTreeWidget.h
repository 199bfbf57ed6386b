#pragma once

#include <QTreeWidget>

// The file trees of both pages. Space never toggles a check box (the pages keep the root's box and
// the buttons in step only through clicks), and there is no context menu.
class MyTreeWidget : public QTreeWidget
{
    Q_OBJECT

public:
    using QTreeWidget::QTreeWidget;

    // Makes column as wide as the widest of texts needs in font, and as its header label needs.
    void FitColumn(int column, const QStringList &texts, const QFont &font);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
};
