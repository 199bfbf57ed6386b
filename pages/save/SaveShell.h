#pragma once

#include <QString>

// Path rules and script texts of the save page, as plain functions of text so that the macOS
// versions are tested on every platform.

// The volume whose free space decides whether a save fits. macOS: "/Volumes/<name>" for a
// destination under /Volumes (any letter case), else the boot volume "/".
QString MacSaveVolume(const QString &destination);
// The same on the platform this runs on; Linux hands df the destination itself, and df finds its
// mount point.
QString SaveVolume(const QString &destination);

// The Finder script revealing folder. The heredoc delimiter is quoted so that the shell expands
// nothing in the folder's name, and the name is escaped for the AppleScript string, so that no
// line of it can end the heredoc early.
QString MacRevealScript(const QString &folder);
// Asks the desktop's file manager to show folder (D-Bus FileManager1.ShowItems), else opens it
// with xdg-open. Runs in the background, so the script returns at once.
QString LinuxRevealScript(const QString &folder);
// The one of the platform this runs on.
QString RevealScript(const QString &folder);
