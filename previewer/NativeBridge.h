#pragma once

#include <QString>

// The preview panel that the window program shows itself, instead of starting the preview program.
// On macOS this is the system's Quick Look panel; elsewhere a PreviewPanel window playing the file
// with the same player as the preview program. Both delete the file they are given once it is
// showing: the caller hands over a preview copy.

// Shows the panel for `path`, or, when the panel is open and visible, closes it and does nothing
// else. Returns at once.
void CallSelectedItems(QString path);

// Shows the panel for strFileForPreview and returns once the panel has been closed, with
// bQuickLookClose true and the file removed. The arguments are not used. Returns 0.
int SetWindowLevel(int, int argc, char **argv);

// The run loop behind SetWindowLevel. Returns 0.
int MyApplicationMain();

// Marks the panel closed (bQuickLookClose) and removes strFileForPreview.
void RemoveTemp();
