#pragma once

#include <QStringList>

#include <functional>

class QWidget;

// The repair page's file question: several existing files titled "Select one or more files to
// open", starting at "/home", filtered to the video kinds. Empty when the user cancels. Tests put
// their own answer here, so that no dialog waits for a user.
extern std::function<QStringList(QWidget *parent)> ChooseVideoFiles;
