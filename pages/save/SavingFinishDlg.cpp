#include "pages/save/SavingFinishDlg.h"

#include "app/AppGlobals.h"
#include "pages/save/SaveShell.h"
#include "probes/ProbeText.h"
#include "probes/ShellProbes.h"
#include "probes/ShellQuote.h"
#include "ui_SavingFinishDlg.h"

#include <QBitmap>
#include <QFile>
#include <QFileInfo>
#include <QLinearGradient>
#include <QMouseEvent>
#include <QPainter>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

SavingFinishDlg::SavingFinishDlg(QWidget *parent, QString savedFolder)
    : QDialog(parent), ui(new Ui::SavingFinishDlg), m_savedFolder(std::move(savedFolder))
{
    ui->setupUi(this);
    setWindowFlags(Qt::SplashScreen | Qt::FramelessWindowHint);
    setWindowOpacity(0.9);
    connect(ui->OkButton, &QPushButton::clicked, this, &QDialog::accept);
    connect(ui->ViewButton, &QPushButton::clicked, this, &SavingFinishDlg::ShowDestPath);
}

SavingFinishDlg::~SavingFinishDlg() = default;

void SavingFinishDlg::mousePressEvent(QMouseEvent *event)
{
    // Without a title bar the box is dragged by any point: remember where it was taken.
    if (event->button() == Qt::LeftButton) {
        const QPoint offset = event->globalPos() - frameGeometry().topLeft();
        m_nX = offset.x();
        m_nY = offset.y();
    }
    event->accept();
}

void SavingFinishDlg::mouseMoveEvent(QMouseEvent *event)
{
    if (event->buttons() & Qt::LeftButton)
        move(event->globalPos() - QPoint(m_nX, m_nY));
    event->accept();
}

void SavingFinishDlg::resizeEvent(QResizeEvent *event)
{
    // Square corners: the mask covers the whole box.
    QBitmap mask(size());
    mask.fill(Qt::color0);
    QPainter painter(&mask);
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::color1);
    painter.drawRoundedRect(mask.rect(), 0, 0);
    painter.end();
    setMask(mask);
    QDialog::resizeEvent(event);
}

void SavingFinishDlg::paintEvent(QPaintEvent *event)
{
    // The green gradient of the product's colours is kept ready but not drawn: the box shows its
    // style sheet's plain background.
    QLinearGradient gradient(rect().topLeft(), rect().bottomLeft());
    const QColor green(102, 176, 54);
    gradient.setColorAt(0, green.darker(200));
    gradient.setColorAt(0.5, green);
    gradient.setColorAt(1, green.darker(200));
    QDialog::paintEvent(event);
}

void SavingFinishDlg::ShowDestPath()
{
    // Written, run and removed again; this account's own name under /var/tmp.
    const QString path = OwnFixedPath(ProbeFiles::RevealScript);
    const QByteArray script = QFile::encodeName(path);
    if (QFile::exists(path) || QFileInfo(path).isSymLink())
        QFile::remove(path);

    // /var/tmp is shared by every user: create the script afresh and never write through a link
    // someone else left under its name. Only its owner may change it before it runs.
    const int fd = ::open(script.constData(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0700);
    FILE *file = fd < 0 ? nullptr : fdopen(fd, "w+");
    if (!file) {
        if (fd >= 0)
            ::close(fd);
        WarnPathTaken(this, tr("The saved files could not be shown."), path);
        return;
    }
    // The folder's name is written in the file system's encoding, so the script names the very
    // folder that was saved, whatever letters its name has.
    const QByteArray text = RevealScript(m_savedFolder).toUtf8();
    fwrite(text.constData(), 1, size_t(text.size()), file);
    fclose(file);

    RunShell("chmod 700 " + ShellQuoteIfNeeded(path));
    RunShell(ShellQuoteIfNeeded(path));

    if (QFile::exists(path))
        QFile::remove(path);
}
