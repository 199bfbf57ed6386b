#pragma once

#include <QApplication>
#include <QDialog>
#include <QImage>
#include <QPushButton>
#include <QSet>
#include <QThread>
#include <QTimer>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>

#include <functional>

// Small hands for driving the pages as a user would.
namespace Pages
{

inline QPushButton *Button(QWidget *page, const char *name)
{
    return page->findChild<QPushButton *>(name);
}

// Which of the named buttons are enabled, in the order given.
inline QStringList Enabled(QWidget *page, const QStringList &names)
{
    QStringList on;
    for (const QString &name : names)
        if (Button(page, qPrintable(name))->isEnabled())
            on << name;
    return on;
}

// What a click on a row's check box does: the box toggles, then itemClicked arrives.
inline void Click(QTreeWidget *tree, QTreeWidgetItem *row)
{
    row->setCheckState(0, row->checkState(0) == Qt::Checked ? Qt::Unchecked : Qt::Checked);
    Q_EMIT tree->itemClicked(row, 0);
}

// The check boxes of a tree's first root and its rows, one letter each: "P:CUU" is a partly ticked
// root over one ticked row and two unticked ones.
inline QString Ticks(QTreeWidget *tree)
{
    QString ticks;
    for (QTreeWidgetItemIterator it(tree); *it; ++it)
        ticks += QString("UPC").at((*it)->checkState(0)) + QString(ticks.isEmpty() ? ":" : "");
    return ticks;
}

inline QTreeWidgetItem *Row(QTreeWidget *tree, const QString &name)
{
    return tree->findItems(name, Qt::MatchExactly | Qt::MatchRecursive).value(0);
}

// The colours of a picture, sampled every `step` pixels: a real picture has many, a blank one one.
inline int Colours(const QImage &image, int step = 3)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += step)
        for (int x = 0; x < image.width(); x += step)
            colours.insert(image.pixel(x, y));
    return colours.size();
}

// The visible top-level window of type T, if there is one.
template <typename T> T *Shown()
{
    for (QWidget *w : QApplication::topLevelWidgets())
        if (auto *t = qobject_cast<T *>(w); t && t->isVisible())
            return t;
    return nullptr;
}

// Answers the first dialog of type T that runs its own event loop: `answer` sees it, then it is
// accepted. Accepted while it is still being shown, it would wait on a loop that nothing ends.
template <typename T> class DialogAnswerer
{
public:
    explicit DialogAnswerer(std::function<void(T *)> answer = {})
    {
        QObject::connect(&m_timer, &QTimer::timeout, [this, answer] {
            auto *dlg = qobject_cast<T *>(QApplication::activeModalWidget());
            if (!dlg || QThread::currentThread()->loopLevel() == 0 || m_answered)
                return;
            m_answered = true;
            if (answer)
                answer(dlg);
            dlg->accept();
        });
        m_timer.start(10);
    }
    bool Answered() const { return m_answered; }

private:
    QTimer m_timer;
    bool m_answered = false;
};

} // namespace Pages
