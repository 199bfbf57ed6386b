#pragma once

#include <QString>

// The copy a preview plays: the file's own name with one leading blank, beside the file. Preview
// never plays the file itself. When that name is already taken by a file this program did not make
// (a user's own file), the copy goes into a private temporary folder instead, so that no file of
// the user's is ever overwritten or later deleted. Returns the copy's path; when the source cannot
// be read the path is still returned and no copy exists. Empty when the copy would need the private
// folder and none of our own can be made.
QString MakePreviewCopy(const QString &path);

// The name the copy gets beside its source.
QString PreviewCopyName(const QString &path);
