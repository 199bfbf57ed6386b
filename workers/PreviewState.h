#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <atomic>

// Process-wide state of previewing, shared by the two pages and the native preview panel.

// Preview copies handed to the preview program; deleted before the next preview and when a page
// closes.
extern QStringList lstRunningFilePath;
// Process ids of running preview programs, refilled by the page's process lookup.
extern QList<unsigned int> lstProcessID;
// The id being killed.
extern unsigned int nRunningID;
// False while a preview panel is showing; the panel sets it to true when it closes, and the page
// then takes the focus back. Written by the panel, polled by the page's timer.
extern std::atomic<bool> bQuickLookClose;
// File that the panel's own run loop shows.
extern QString strFileForPreview;

// The route a preview takes, by the system's version code: 6 (macOS 10.4) has no preview, 7 (10.5)
// shows the panel directly, 8 (10.6) shows it from its own run loop, 9 and above (10.7 and later,
// and every other system) start the preview program.
int PreviewRouteVersion();
