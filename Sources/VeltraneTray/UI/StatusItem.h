#pragma once

#include <QString>

#include <functional>
#include <memory>

class QIcon;
class QMenu;

namespace Veltrane {

/// The tray's presence on the desktop as the status menu controller sees it: an icon, a tooltip
/// and a menu that opens when the item is clicked. The menu is drawn by the platform or by a tray
/// host, never by Qt's widgets: a native macOS menu can host widget rows, a tray host's drawing of
/// an exported description shows only texts and icons.
class StatusItem
{
public:
    virtual ~StatusItem() = default;

    /// The menu that opens from the item; the caller keeps ownership.
    virtual void setMenu(QMenu *menu) = 0;
    virtual void setIcon(const QIcon &icon) = 0;
    virtual void setToolTip(const QString &toolTip) = 0;

    /// Whether the menu shows a row's own widget (a `QWidgetAction`); if not, rows are texts.
    virtual bool showsWidgetRows() const { return false; }

    /// Calls `changed` whenever it becomes known whether the desktop can show the item: on Linux,
    /// whether a panel's watcher is there, told once the bus has answered and at every change. A
    /// menu bar always shows it: told so at once, and never again.
    virtual void onShownChanged(std::function<void(bool shown)> changed) { changed(true); }

    /// The activation token the desktop handed over with the latest click on the item or one of
    /// its rows, given out once: a window shown for that click brings itself to the front with
    /// it. Empty where the desktop gives none.
    virtual QString takeActivationToken() { return {}; }
};

/// This platform's status item, for the application with identity `id`.
std::unique_ptr<StatusItem> createStatusItem(const QString &id);

} // namespace Veltrane
