#pragma once

#include "DBusTypes.h"
#include "StatusItem.h"
#include "StatusNotifierWatch.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QIcon>
#include <QObject>

#include <memory>
#include <utility>

class QMenu;

namespace Veltrane {

class DBusMenuExporter;

/// The status item on a Linux desktop: an `org.kde.StatusNotifierItem` with its menu exported
/// over `com.canonical.dbusmenu`, both on the session bus, for the panel's tray host to draw.
///
/// The item says it is a menu (`ItemIsMenu`), so a host opens the menu on any click. It has no
/// `Activate` or `ContextMenu`: a host that reads the interface (GNOME's extension) then opens the
/// menu at once instead of waiting whether a double click follows, and one that calls them anyway
/// (Plasma) gets the bus's "unknown method" and draws the menu itself. The app never draws a menu
/// of its own.
///
/// The title and the icon's accessible description are the tooltip's text, "Veltrane — " and the
/// state: GNOME's extension names its button after the title when it first reads the item, and
/// after the description only once that changes. The text changes only with the state, and so
/// with the icon, which hosts read again on `NewIcon`. Hosts hand over an activation token before
/// each click (`ProvideXdgActivationToken`), kept for the window that click shows. It registers
/// with every StatusNotifierWatcher that appears, for as long as it lives.
///
/// Nothing is signalled that did not change: setting the same icon (by `cacheKey()`) or tooltip
/// again sends no message, and menu changes reach the host through the exporter, which sends only
/// differences.
class StatusNotifierItem : public QObject, public StatusItem
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category)
    Q_PROPERTY(QString Id READ id)
    Q_PROPERTY(QString Title READ title)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(int WindowId READ windowId)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu)
    Q_PROPERTY(QDBusObjectPath Menu READ menuPath)
    Q_PROPERTY(QString IconThemePath READ emptyText)
    Q_PROPERTY(QString IconName READ emptyText)
    Q_PROPERTY(Veltrane::DBusImageList IconPixmap READ iconPixmap)
    Q_PROPERTY(QString OverlayIconName READ emptyText)
    Q_PROPERTY(Veltrane::DBusImageList OverlayIconPixmap READ noImages)
    Q_PROPERTY(QString AttentionIconName READ emptyText)
    Q_PROPERTY(Veltrane::DBusImageList AttentionIconPixmap READ noImages)
    Q_PROPERTY(QString AttentionMovieName READ emptyText)
    Q_PROPERTY(Veltrane::DBusToolTip ToolTip READ toolTip)
    Q_PROPERTY(QString IconAccessibleDesc READ accessibleDescription)
    Q_PROPERTY(QString AttentionAccessibleDesc READ accessibleDescription)

public:
    static inline const QString itemPath = QStringLiteral("/StatusNotifierItem");
    static inline const QString menuObjectPath = QStringLiteral("/MenuBar");

    /// The pixel sizes of the icon a host is offered: what panels draw at 1× and at 2×.
    static constexpr int iconSizes[] = {16, 22, 24, 32, 44, 48, 64, 96, 128};

    /// Exports the item on `bus` under the application's `id` and starts looking for a watcher.
    StatusNotifierItem(const QDBusConnection &bus, const QString &id, QObject *parent = nullptr);
    ~StatusNotifierItem() override;

    void setMenu(QMenu *menu) override;
    void setIcon(const QIcon &icon) override;
    void setToolTip(const QString &toolTip) override;
    QString takeActivationToken() override { return std::exchange(m_activationToken, {}); }
    void onShownChanged(std::function<void(bool shown)> changed) override;

    QString category() const { return QStringLiteral("ApplicationStatus"); }
    QString id() const { return m_id; }
    QString title() const { return m_toolTip.isEmpty() ? QStringLiteral("Veltrane") : m_toolTip; }
    QString status() const { return QStringLiteral("Active"); }
    int windowId() const { return 0; }
    bool itemIsMenu() const { return true; }
    QDBusObjectPath menuPath() const { return QDBusObjectPath(menuObjectPath); }
    DBusImageList iconPixmap() const;
    DBusToolTip toolTip() const { return {{}, {}, m_toolTip, {}}; }
    QString accessibleDescription() const { return m_toolTip; }

    /// The icon as a host receives it: each of `iconSizes`, drawn at that size.
    static DBusImageList imagesOf(const QIcon &icon);

public Q_SLOTS:
    Q_SCRIPTABLE void SecondaryActivate(int x, int y);
    Q_SCRIPTABLE void Scroll(int delta, const QString &orientation);
    Q_SCRIPTABLE void ProvideXdgActivationToken(const QString &token);

Q_SIGNALS:
    Q_SCRIPTABLE void NewTitle();
    Q_SCRIPTABLE void NewIcon();
    Q_SCRIPTABLE void NewAttentionIcon();
    Q_SCRIPTABLE void NewOverlayIcon();
    Q_SCRIPTABLE void NewToolTip();
    Q_SCRIPTABLE void NewStatus(const QString &status);

private:
    // Hosts read the properties that have no content of ours as empty, not as missing.
    QString emptyText() const { return {}; }
    DBusImageList noImages() const { return {}; }
    void registerWith(const QString &watcher);

    QDBusConnection m_bus;
    QString m_id;
    StatusNotifierWatch m_watch;
    std::unique_ptr<DBusMenuExporter> m_menuExporter;
    QIcon m_icon;
    mutable DBusImageList m_iconImages; // drawn when a host first asks for the current icon
    QString m_toolTip;
    QString m_activationToken;
};

} // namespace Veltrane
