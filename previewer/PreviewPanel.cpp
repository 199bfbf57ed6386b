#include "previewer/PreviewPanel.h"

#include "previewer/PlayerWidget.h"

#include <QCloseEvent>
#include <QFile>
#include <QFileInfo>
#include <QKeyEvent>
#include <QScreen>
#include <QVBoxLayout>

#include <algorithm>

PreviewPanel::PreviewPanel(QWidget *parent) : QWidget(parent, Qt::Window)
{
    m_player = new PlayerWidget(this);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_player);
    setFocusProxy(m_player);
    resize(800, 500);
    connect(m_player, &PlayerWidget::opened, this, &PreviewPanel::RemoveFile);
    connect(m_player, &PlayerWidget::error, this, &PreviewPanel::RemoveFile);
    connect(m_player, &PlayerWidget::pictureSize, this, [this](QSize picture) {
        if (m_fitPending) {
            m_fitPending = false;
            FitTo(picture);
        }
    });
}

PreviewPanel::~PreviewPanel()
{
    RemoveFile();
}

void PreviewPanel::ShowFile(const QString &path, bool removeAfterOpen)
{
    RemoveFile();
    setWindowTitle(path.isEmpty() ? QString("VideoFileUtil") : QFileInfo(path).fileName());
    m_player->Open(path);
    if (removeAfterOpen)
        m_removeAfterOpen = path;
    m_fitPending = true;
    show();
    raise();
    activateWindow();
    m_player->setFocus();
}

void PreviewPanel::RemoveFile()
{
    if (m_removeAfterOpen.isEmpty())
        return;
    QFile::remove(m_removeAfterOpen);
    m_removeAfterOpen.clear();
}

// Sizes the window to the first picture of a file: at 100% when that fits in most of the screen,
// scaled down otherwise, and never so small that the controls are cramped. Later pictures and the
// user's own resizing are left alone.
void PreviewPanel::FitTo(QSize picture)
{
    if (picture.isEmpty())
        return;
    QSize view = picture;
    if (const QScreen *screen = this->screen()) {
        const QSize room = screen->availableGeometry().size() * 0.8;
        if (view.width() > room.width() || view.height() > room.height())
            view.scale(room, Qt::KeepAspectRatio);
    }
    if (view.width() < 480)
        view.scale(480, view.height() * 480 / std::max(1, view.width()), Qt::KeepAspectRatio);
    resize(view.width(), view.height() + height() - m_player->View()->height());
}

void PreviewPanel::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}

void PreviewPanel::closeEvent(QCloseEvent *event)
{
    m_player->Pause();
    RemoveFile();
    QWidget::closeEvent(event);
    Q_EMIT Closed();
}
