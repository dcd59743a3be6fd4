#include "ApplicationBundle.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace Veltrane::ApplicationBundle {

// The executable of a bundle lies in "Name.app/Contents/MacOS".
namespace {
bool isInBundle(const QString &executableDirectory)
{
    return QDir::cleanPath(executableDirectory + u"/../.."_s).endsWith(u".app"_s);
}
} // namespace

std::optional<QString> resourceDirectory(const QString &executableDirectory)
{
    const QString directory = QDir::cleanPath(executableDirectory + u"/../Resources"_s);
    if (isInBundle(executableDirectory) && QFileInfo(directory).isDir())
        return directory;
    return std::nullopt;
}

QString bundleDirectory(const QString &executableDirectory)
{
    if (isInBundle(executableDirectory))
        return QDir::cleanPath(executableDirectory + u"/../.."_s);
    return QDir::cleanPath(executableDirectory);
}

} // namespace Veltrane::ApplicationBundle
