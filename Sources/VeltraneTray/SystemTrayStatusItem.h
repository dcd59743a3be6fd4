#pragma once

#include "StatusItem.h"

#include <QSystemTrayIcon>

namespace Veltrane {

/// The status item as Qt's `QSystemTrayIcon`: on macOS a native status item whose click opens
/// the menu. Shown from construction.
class SystemTrayStatusItem : public StatusItem
{
public:
    SystemTrayStatusItem() { m_trayIcon.show(); }

    void setMenu(QMenu *menu) override { m_trayIcon.setContextMenu(menu); }
    void setIcon(const QIcon &icon) override { m_trayIcon.setIcon(icon); }
    void setToolTip(const QString &toolTip) override { m_trayIcon.setToolTip(toolTip); }

private:
    QSystemTrayIcon m_trayIcon;
};

} // namespace Veltrane
