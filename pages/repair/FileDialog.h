#pragma once

#include <QString>
#include <QStringList>

#include <functional>

class QWidget;

// The repair page's file question: several existing files titled "Select one or more files to
// open", starting at "/home", filtered to the video kinds. Empty when the user cancels. Tests put
// their own answer here, so that no dialog waits for a user.
extern std::function<QStringList(QWidget *parent)> ChooseVideoFiles;

// The reference question: one existing video file, filtered as above, starting in `folder`. Empty
// when the user cancels; tests answer it as they answer ChooseVideoFiles.
extern std::function<QString(QWidget *parent, const QString &folder)> ChooseReferenceFile;
