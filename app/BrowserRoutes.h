#pragma once

#include <QString>

#include <functional>

// How help and support pages reach the user's browser.
//
// Most entries open the page in the default browser found at start-up (strDefaultBrowser) and,
// when none was found, hand it to the system's handler instead. The web-site link always takes the
// browser route, even without a browser. The support-section entry names the browser unquoted in
// its macOS command; e-mail goes to the system's handler only. Where the browser is a program of its
// own (not on macOS), one that cannot be started, or none at all, leaves the page to the system's
// handler rather than to nothing.
enum class BrowserRoute {
    BrowserOrSystem,         // "open -a 'browser' 'url'", or the system handler
    UnquotedBrowserOrSystem, // "open -a browser 'url'", or the system handler
    BrowserAlways,           // "open -a 'browser' 'url'", whatever the browser
};

// The macOS command. An unquoted browser name is still quoted when it holds something the shell
// would split or interpret.
QString MacOpenCommand(const QString &browser, const QString &url, bool quoteBrowser);

void OpenInBrowser(const QString &url, BrowserRoute route = BrowserRoute::BrowserOrSystem);
// The system's handler for the url ("mailto:", "file://", "https://").
void OpenWithSystemHandler(const QString &url);

// What a route ends up starting. Tests replace the launcher to see it without starting anything.
struct BrowserLaunch {
    bool systemHandler = false;
    QString browser; // the browser program or name; empty with the system handler
    QString url;
    bool quoteBrowser = true; // the macOS command's form
};
// A launcher returns false when the browser could not be started.
using BrowserLauncher = std::function<bool(const BrowserLaunch &)>;
// Installs launcher (an empty one restores the real one).
void SetBrowserLauncher(BrowserLauncher launcher);
