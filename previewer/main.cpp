// VideoFileUtil: plays the file given as its only argument in a window of its own.

#include "previewer/PlayerWidget.h"
#include "previewer/PreviewPanel.h"

#include <QApplication>
#include <QCoreApplication>
#include <QKeyEvent>
#include <QTextStream>
#include <QTimer>

namespace
{

// For the tests and for screenshots: CORVANE_PREVIEWER_TEST_QUIT_MS=<ms> prints the window's state
// after that time, saves the window to CORVANE_PREVIEWER_TEST_GRAB (a .png) when set, and then
// presses Escape. A window that Escape does not close ends the program with status 3.
void InstallTestHook(PreviewPanel *window)
{
    bool ok = false;
    const int after = qEnvironmentVariableIntValue("CORVANE_PREVIEWER_TEST_QUIT_MS", &ok);
    if (!ok)
        return;
    QTimer::singleShot(after, window, [window] {
        PlayerWidget *player = window->Player();
        QTextStream out(stdout);
        out << "title=" << window->windowTitle() << '\n'
            << "message=" << QString(player->Message()).replace('\n', " | ") << '\n'
            << "duration=" << player->Duration() << '\n'
            << "position=" << player->Position() << '\n'
            << "playing=" << (player->IsPlaying() ? 1 : 0) << '\n'
            << "sound=" << (player->HasSound() ? 1 : 0) << '\n';
        out.flush();
        const QString grab = qEnvironmentVariable("CORVANE_PREVIEWER_TEST_GRAB");
        if (!grab.isEmpty())
            window->grab().save(grab);
        QTimer::singleShot(3000, qApp, [] { QCoreApplication::exit(3); });
        QCoreApplication::postEvent(player, new QKeyEvent(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier));
    });
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName("VideoFileUtil");

    PreviewPanel window;
    const QStringList args = QApplication::arguments();
    if (args.size() < 2) {
        window.setWindowTitle("VideoFileUtil");
        window.Player()->ShowMessage(QCoreApplication::translate(
            "VideoFileUtil", "No file to play.\nStart VideoFileUtil with the path of a video file."));
        window.show();
    } else {
        window.ShowFile(args.at(1), false);
    }
    InstallTestHook(&window);
    return app.exec();
}
