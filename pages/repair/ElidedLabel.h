#pragma once

#include <QLabel>

// A one-line label for texts of any length (file names, folders): what does not fit is elided in the
// middle, and the label never asks its window for more width than it has.
class ElidedLabel : public QLabel
{
    Q_OBJECT

public:
    using QLabel::QLabel;

    QSize minimumSizeHint() const override;
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
};
