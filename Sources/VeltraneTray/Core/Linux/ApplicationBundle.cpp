#include "ApplicationBundle.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace Veltrane::ApplicationBundle {

std::optional<QString> resourceDirectory(const QString &executableDirectory)
{
    const QString directory = QDir::cleanPath(executableDirectory + u"/../share/veltrane-tray"_s);
    if (QFileInfo(directory).isDir())
        return directory;
    return std::nullopt;
}

QString bundleDirectory(const QString &executableDirectory) { return QDir::cleanPath(executableDirectory); }

} // namespace Veltrane::ApplicationBundle
