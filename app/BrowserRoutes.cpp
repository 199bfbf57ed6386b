#include "app/BrowserRoutes.h"

#include "probes/ShellProbes.h"
#include "probes/ShellQuote.h"

#include <QDesktopServices>
#include <QProcess>
#include <QUrl>

#ifdef Q_OS_MACOS
#include <CoreServices/CoreServices.h>
#endif

namespace
{

bool Launch(const BrowserLaunch &launch)
{
    if (launch.systemHandler) {
#ifdef Q_OS_MACOS
        const QByteArray utf8 = launch.url.toUtf8();
        CFURLRef url = CFURLCreateWithBytes(nullptr, reinterpret_cast<const UInt8 *>(utf8.constData()),
                                            utf8.size(), kCFStringEncodingUTF8, nullptr);
        if (url) {
            LSOpenCFURLRef(url, nullptr);
            CFRelease(url);
        }
#else
        QDesktopServices::openUrl(QUrl(launch.url));
#endif
        return true;
    }
#ifdef Q_OS_MACOS
    RunShell(MacOpenCommand(launch.browser, launch.url, launch.quoteBrowser));
    return true;
#else
    // Started on its own: the window never waits for the browser.
    return !launch.browser.isEmpty() && QProcess::startDetached(launch.browser, {launch.url});
#endif
}

BrowserLauncher &Launcher()
{
    static BrowserLauncher launcher = Launch;
    return launcher;
}

} // namespace

QString MacOpenCommand(const QString &browser, const QString &url, bool quoteBrowser)
{
    return "open -a " + (quoteBrowser ? ShellQuote(browser) : ShellQuoteIfNeeded(browser)) + " " +
           ShellQuote(url);
}

void OpenInBrowser(const QString &url, BrowserRoute route)
{
    BrowserLaunch launch;
    launch.url = url;
    if (strDefaultBrowser.isEmpty() && route != BrowserRoute::BrowserAlways) {
        launch.systemHandler = true;
    } else {
        launch.browser = strDefaultBrowser;
        launch.quoteBrowser = route != BrowserRoute::UnquotedBrowserOrSystem;
    }
    if (!Launcher()(launch))
        OpenWithSystemHandler(url);
}

void OpenWithSystemHandler(const QString &url)
{
    BrowserLaunch launch;
    launch.systemHandler = true;
    launch.url = url;
    Launcher()(launch);
}

void SetBrowserLauncher(BrowserLauncher launcher)
{
    Launcher() = launcher ? std::move(launcher) : BrowserLauncher(Launch);
}
