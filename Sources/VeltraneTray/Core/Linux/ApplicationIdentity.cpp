#include "ApplicationIdentity.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace Veltrane::ApplicationIdentity {

std::optional<QString> detect(const QString &executableDirectory)
{
    const QString identifier = QString::fromLatin1(id);
    const QString entry =
        QDir(executableDirectory).filePath(u"../share/applications/%1.desktop"_s.arg(identifier));
    if (QFileInfo(entry).isFile())
        return identifier;
    return std::nullopt;
}

} // namespace Veltrane::ApplicationIdentity
