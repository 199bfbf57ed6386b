#include "pages/save/FolderDialog.h"

#include <QCoreApplication>
#include <QFileDialog>

std::function<QString()> ChooseFolder = [] {
    return QFileDialog::getExistingDirectory(
        nullptr, QCoreApplication::translate("VideoSavingWindow", "Open Directory"), "/root",
        QFileDialog::ShowDirsOnly);
};
