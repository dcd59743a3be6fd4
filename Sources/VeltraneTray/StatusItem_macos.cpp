#include "StatusItem.h"

#include "SystemTrayStatusItem.h"

namespace Veltrane {

// On macOS Qt's tray icon is a native status item whose click opens its menu.
std::unique_ptr<StatusItem> createStatusItem(const QDBusConnection &, const QString &)
{
    return std::make_unique<SystemTrayStatusItem>();
}

} // namespace Veltrane
