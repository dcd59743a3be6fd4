#pragma once

#include "StatusItem.h"
#include "StatusNotifierWatch.h"

#include <QIcon>
#include <QPointer>
#include <QString>

#include <memory>

class QSystemTrayIcon;

namespace Veltrane {

/// The status item on a Linux desktop: a `QSystemTrayIcon` that Qt exports as a
/// StatusNotifierItem, its menu exported over DBusMenu for the panel to draw.
///
/// The icon is made only once a panel's tray host is on the session bus (see
/// `StatusNotifierWatch`), so an app autostarted before the panel still appears; until then the
/// icon, tooltip and menu are only remembered.
class SystemTrayStatusItem : public QObject, public StatusItem
{
    Q_OBJECT

public:
    explicit SystemTrayStatusItem(const QDBusConnection &bus, QObject *parent = nullptr);
    ~SystemTrayStatusItem() override;

    bool menuShowsWidgets() const override { return false; }
    void setMenu(QMenu *menu) override;
    void setIcon(const QIcon &icon) override;
    void setToolTip(const QString &toolTip) override;

private:
    void createTrayIcon();

    StatusNotifierWatch m_watch;
    std::unique_ptr<QSystemTrayIcon> m_trayIcon;
    QPointer<QMenu> m_menu;
    QIcon m_icon;
    QString m_toolTip;
};

} // namespace Veltrane
