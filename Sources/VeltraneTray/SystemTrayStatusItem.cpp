#include "SystemTrayStatusItem.h"

#include <QMenu>
#include <QSystemTrayIcon>

namespace Veltrane {

SystemTrayStatusItem::SystemTrayStatusItem(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_watch(bus)
{
    connect(&m_watch, &StatusNotifierWatch::hostAvailable, this, &SystemTrayStatusItem::createTrayIcon);
}

SystemTrayStatusItem::~SystemTrayStatusItem() = default;

void SystemTrayStatusItem::setMenu(QMenu *menu)
{
    m_menu = menu;
    if (m_trayIcon)
        m_trayIcon->setContextMenu(menu);
}

void SystemTrayStatusItem::setIcon(const QIcon &icon)
{
    m_icon = icon;
    if (m_trayIcon)
        m_trayIcon->setIcon(icon);
}

void SystemTrayStatusItem::setToolTip(const QString &toolTip)
{
    m_toolTip = toolTip;
    if (m_trayIcon)
        m_trayIcon->setToolTip(toolTip);
}

void SystemTrayStatusItem::createTrayIcon()
{
    if (m_trayIcon)
        return;
    m_trayIcon = std::make_unique<QSystemTrayIcon>(m_icon);
    m_trayIcon->setToolTip(m_toolTip);
    m_trayIcon->setContextMenu(m_menu);
    m_trayIcon->show();
}

} // namespace Veltrane
