#include "StatusItem.h"

#include "StatusNotifierItem.h"

namespace Veltrane {

// Qt's own D-Bus tray cannot say that the item is a menu, names it after the executable, and
// signals every icon and tooltip set, changed or not: so the item is ours.
std::unique_ptr<StatusItem> createStatusItem(const QString &id)
{
    return std::make_unique<StatusNotifierItem>(QDBusConnection::sessionBus(), id);
}

} // namespace Veltrane
