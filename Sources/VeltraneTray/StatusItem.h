#pragma once

#include <QString>

#include <memory>

class QDBusConnection;
class QIcon;
class QMenu;

namespace Veltrane {

/// The tray's presence on the desktop as the status menu controller sees it: an icon, a tooltip
/// and a menu that opens when the item is clicked. The menu is drawn by the platform or by a tray
/// host from an exported description, never by Qt's widgets, so its rows are texts and icons.
class StatusItem
{
public:
    virtual ~StatusItem() = default;

    /// The menu that opens from the item; the caller keeps ownership.
    virtual void setMenu(QMenu *menu) = 0;
    virtual void setIcon(const QIcon &icon) = 0;
    virtual void setToolTip(const QString &toolTip) = 0;

    /// The activation token the desktop handed over with the latest click on the item or one of
    /// its rows, given out once: a window shown for that click brings itself to the front with
    /// it. Empty where the desktop gives none.
    virtual QString takeActivationToken() { return {}; }
};

/// This platform's status item, for the application with identity `id`; `bus` is the session bus
/// where the desktop's tray host is reached, on platforms that have one.
std::unique_ptr<StatusItem> createStatusItem(const QDBusConnection &bus, const QString &id);

} // namespace Veltrane
