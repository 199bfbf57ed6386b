#pragma once

#include <QString>

// Where the program finds its files, from the folder of its own executable. The program is a
// bundle placed inside the "Resources" folder of an enclosing bundle:
//   Outer.app/Contents/Resources/                       property list, help/, Eula.pdf
//   Outer.app/Contents/Resources/VideoRepair.app/Contents/MacOS/<program>
//   .../VideoRepair.app/Contents/Resources/VideoFileUtil.app/Contents/MacOS/VideoFileUtil
// The Linux build lays out the same tree, so these rules are the same on both.
struct BundlePaths {
    QString plist;     // strPlistPath
    QString help;      // HelpFilePath
    QString previewer; // strPreviewerPath
};

BundlePaths BundlePathsFrom(const QString &executableFolder);
