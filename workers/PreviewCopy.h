#pragma once

#include <QString>

// The copies a preview plays: preview never plays the file itself. They are made only in the
// program's private folder for the user (in the user's cache folder), never beside a user's file,
// and every way out of a preview removes them (RemovePreviewCopies).

// The private folder of the preview copies.
QString PreviewFolder();

// The name the copy of path gets: the file's own name with one leading blank, in PreviewFolder().
QString PreviewCopyName(const QString &path);

// Copies path to PreviewCopyName(path) and returns the copy's path; empty, with why in *reason,
// when no whole copy could be made.
QString MakePreviewCopy(const QString &path, QString *reason = nullptr);

// Removes every preview copy. One running window program per user (SingleInstance) makes them all
// this process's own.
void RemovePreviewCopies();
