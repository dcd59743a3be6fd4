#pragma once

class QIcon;
class QMenu;
class QString;

namespace Veltrane {

/// The tray's presence on the desktop as the status menu controller sees it: an icon, a tooltip
/// and a menu. It remembers what it is given, so the controller never needs to know whether the
/// platform's icon exists yet.
class StatusItem
{
public:
    virtual ~StatusItem() = default;

    /// Whether the menu is drawn by Qt, where widget rows show, rather than by a tray host from
    /// an exported description, where only texts and icons do. Fixed for the item's life.
    virtual bool menuShowsWidgets() const = 0;

    /// The menu that opens from the item; the caller keeps ownership.
    virtual void setMenu(QMenu *menu) = 0;
    virtual void setIcon(const QIcon &icon) = 0;
    virtual void setToolTip(const QString &toolTip) = 0;
};

} // namespace Veltrane
