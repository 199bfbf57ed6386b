#pragma once

#include <QString>

#include <functional>

// The folder question of the save page and of the log report: the platform's directory dialog
// without parent, titled "Open Directory", starting at "/root", folders only. Empty when the user
// cancels. Tests put their own answer here, so that no dialog waits for a user.
extern std::function<QString()> ChooseFolder;
