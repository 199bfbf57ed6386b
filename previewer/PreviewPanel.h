#pragma once

#include <QString>
#include <QWidget>

class PlayerWidget;

// A window that plays one file with the player widget: the preview program's window, and the
// preview panel the window program opens itself. Escape closes it.
class PreviewPanel : public QWidget
{
    Q_OBJECT

public:
    explicit PreviewPanel(QWidget *parent = nullptr);
    ~PreviewPanel() override;

    // Shows the window playing `path`, titled with its file name. With `removeAfterOpen` the file is
    // deleted as soon as the player has opened it, or failed to: a file that is open goes on playing
    // after it is unlinked, and the preview copy never outlives the preview.
    void ShowFile(const QString &path, bool removeAfterOpen);

    PlayerWidget *Player() const { return m_player; }

Q_SIGNALS:
    void Closed();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    void RemoveFile();
    void FitTo(QSize picture);

    PlayerWidget *m_player = nullptr;
    QString m_removeAfterOpen;
    bool m_fitPending = false;
};
