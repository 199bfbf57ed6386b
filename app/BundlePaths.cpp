#include "app/BundlePaths.h"

#include <QDir>

namespace
{

// The folder levels up from folder; the root when there are fewer, as "cd .." stops there.
QString Up(const QString &folder, int levels)
{
    QStringList parts = QDir::cleanPath(QDir(folder).absolutePath()).split('/', Qt::SkipEmptyParts);
    for (int i = 0; i < levels && !parts.isEmpty(); ++i)
        parts.removeLast();
    return "/" + parts.join('/');
}

QString Join(const QString &folder, const QString &name)
{
    return folder.endsWith('/') ? folder + name : folder + "/" + name;
}

} // namespace

BundlePaths BundlePathsFrom(const QString &executableFolder)
{
    // Four levels up: MacOS, Contents, the program's bundle, the enclosing bundle's Resources.
    const QString outerResources = Join(Up(executableFolder, 4), "Resources");
    const QString ownResources = Join(Up(executableFolder, 1), "Resources");
    BundlePaths paths;
    paths.plist = outerResources + "/CorvaneAldrakeVideoRepair.plist";
    paths.help = outerResources;
    paths.previewer = ownResources + "/VideoFileUtil.app/Contents/MacOS/VideoFileUtil";
    return paths;
}
