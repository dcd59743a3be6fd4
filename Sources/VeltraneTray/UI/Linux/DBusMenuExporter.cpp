#include "DBusMenuExporter.h"

#include <QAction>
#include <QBuffer>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QEvent>
#include <QGuiApplication>
#include <QIcon>
#include <QMenu>

using namespace Qt::StringLiterals;

namespace Veltrane {

namespace {

const QString unknownIdError = u"com.canonical.dbusmenu.Error.UnknownId"_s;

// Menu icons are shown at 16 points by every host we know, and a host scales the image to that:
// drawn at twice the size, they stay sharp on a 2× screen.
constexpr int menuIconSide = 16;
constexpr qreal menuIconScale = 2;

QVariantMap filtered(const QVariantMap &properties, const QStringList &names)
{
    if (names.isEmpty())
        return properties;
    QVariantMap kept;
    for (const QString &name : names) {
        if (const auto found = properties.constFind(name); found != properties.cend())
            kept.insert(name, *found);
    }
    return kept;
}

} // namespace

QString dbusMenuLabel(const QString &actionText)
{
    return QString(actionText).replace(u'_', u"__"_s).replace(u"&&"_s, u"&"_s);
}

DBusMenuExporter::DBusMenuExporter(QMenu *menu, QObject *parent)
    : QObject(parent)
    , m_menu(menu)
    , m_actions(menu->actions())
{
    m_openBound.setSingleShot(true);
    m_openBound.setInterval(openBoundMilliseconds);
    connect(&m_openBound, &QTimer::timeout, this, &DBusMenuExporter::hostClosed);
    m_sendTimer.setSingleShot(true);
    m_sendTimer.setInterval(0);
    connect(&m_sendTimer, &QTimer::timeout, this, &DBusMenuExporter::sendChanges);
    // Every row exists from the start and stays, so ids are fixed: 1, 2, … in menu order.
    for (int id = 1; id <= m_actions.size(); ++id)
        m_exported[id].properties = propertiesOf(m_actions[id - 1]);
    menu->installEventFilter(this);
}

QString DBusMenuExporter::textDirection() const
{
    return QGuiApplication::layoutDirection() == Qt::RightToLeft ? u"rtl"_s : u"ltr"_s;
}

bool DBusMenuExporter::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::ActionChanged)
        m_sendTimer.start();
    return QObject::eventFilter(watched, event);
}

QAction *DBusMenuExporter::actionOf(int id) const { return id > 0 ? m_actions.value(id - 1) : nullptr; }

QByteArray DBusMenuExporter::iconPngOf(QAction *action)
{
    // An icon is encoded once, not at every poll that sets the same icon again.
    Exported &exported = m_exported[idOf(action)];
    const QIcon icon = action->icon();
    if (icon.cacheKey() != exported.iconKey) {
        exported.iconKey = icon.cacheKey();
        exported.iconPng.clear();
        QBuffer buffer(&exported.iconPng);
        buffer.open(QIODevice::WriteOnly);
        icon.pixmap(QSize(menuIconSide, menuIconSide), menuIconScale).save(&buffer, "PNG");
    }
    return exported.iconPng;
}

// "enabled" and "visible" are always sent, not only when they differ from their defaults: a host
// that misses a removal would otherwise keep a row hidden or greyed. Shortcuts are not sent: a
// panel's menu is the panel's window, where the app's keys do nothing, and hosts built on
// libdbusmenu-gtk (waybar) fail GTK assertions on every row that has one.
QVariantMap DBusMenuExporter::propertiesOf(QAction *action)
{
    QVariantMap properties;
    properties.insert(u"visible"_s, action->isVisible());
    if (action->isSeparator()) {
        properties.insert(u"type"_s, u"separator"_s);
        return properties;
    }
    properties.insert(u"label"_s, dbusMenuLabel(action->text()));
    // Named for screen readers by the text itself: hosts otherwise keep the first label's name.
    properties.insert(u"accessible-desc"_s, QString(action->text()).replace(u"&&"_s, u"&"_s));
    properties.insert(u"enabled"_s, action->isEnabled());
    if (!action->icon().isNull())
        properties.insert(u"icon-data"_s, iconPngOf(action));
    return properties;
}

void DBusMenuExporter::sendChanges()
{
    DBusMenuItemList updated;
    DBusMenuItemKeysList removed;
    for (int id = 1; id <= m_actions.size(); ++id) {
        QAction *action = m_actions[id - 1];
        const QVariantMap now = propertiesOf(action);
        QVariantMap &before = m_exported[id].properties;
        if (now == before)
            continue;
        DBusMenuItem changes{id, {}};
        for (auto it = now.cbegin(); it != now.cend(); ++it) {
            if (before.value(it.key()) != it.value())
                changes.properties.insert(it.key(), it.value());
        }
        QStringList gone;
        for (auto it = before.cbegin(); it != before.cend(); ++it) {
            if (!now.contains(it.key()))
                gone.append(it.key());
        }
        if (!changes.properties.isEmpty())
            updated.append(changes);
        if (!gone.isEmpty())
            removed.append({id, gone});
        before = now;
    }
    if (!updated.isEmpty() || !removed.isEmpty())
        Q_EMIT ItemsPropertiesUpdated(updated, removed);
}

bool DBusMenuExporter::isKnown(int id) const { return id == 0 || actionOf(id); }

bool DBusMenuExporter::rejectUnknown(int id)
{
    if (isKnown(id))
        return false;
    if (calledFromDBus())
        sendErrorReply(unknownIdError, u"No menu item has the id %1"_s.arg(id));
    return true;
}

DBusMenuLayoutItem DBusMenuExporter::nodeOf(int id, int depth, const QStringList &propertyNames)
{
    if (id != 0)
        return {id, filtered(propertiesOf(actionOf(id)), propertyNames), {}};
    DBusMenuLayoutItem root{0, filtered({{u"children-display"_s, u"submenu"_s}}, propertyNames), {}};
    if (depth == 0)
        return root;
    for (int child = 1; child <= m_actions.size(); ++child)
        root.children.append(nodeOf(child, depth - 1, propertyNames));
    return root;
}

uint DBusMenuExporter::GetLayout(int parentId, int recursionDepth, const QStringList &propertyNames,
                                 DBusMenuLayoutItem &layout)
{
    if (!rejectUnknown(parentId))
        layout = nodeOf(parentId, recursionDepth, propertyNames);
    return layoutRevision;
}

DBusMenuItemList DBusMenuExporter::GetGroupProperties(const QList<int> &ids, const QStringList &propertyNames)
{
    // Unknown ids are left out rather than failing the whole group.
    DBusMenuItemList items;
    for (const int id : ids) {
        if (QAction *action = actionOf(id))
            items.append({id, filtered(propertiesOf(action), propertyNames)});
    }
    return items;
}

QDBusVariant DBusMenuExporter::GetProperty(int id, const QString &name)
{
    if (rejectUnknown(id))
        return {};
    const QVariant value = nodeOf(id, 0, {name}).properties.value(name);
    if (!value.isValid())
        sendErrorReply(QDBusError::InvalidArgs, u"Menu item %1 has no property \"%2\""_s.arg(id).arg(name));
    return QDBusVariant(value);
}

void DBusMenuExporter::Event(int id, const QString &eventId, const QDBusVariant &, uint)
{
    if (rejectUnknown(id))
        return;
    if (id == 0 && eventId == u"opened"_s)
        hostOpened();
    else if (id == 0 && eventId == u"closed"_s)
        hostClosed();
    if (eventId != u"clicked"_s)
        return;
    // Triggered from the event loop, after the reply is sent: a slot such as "Quit" may end the
    // process, and the host should not wait on a call that will never be answered.
    if (QAction *action = actionOf(id))
        QMetaObject::invokeMethod(action, &QAction::trigger, Qt::QueuedConnection);
}

QList<int> DBusMenuExporter::EventGroup(const DBusMenuEventList &events)
{
    QList<int> idErrors;
    for (const DBusMenuEvent &event : events) {
        if (!isKnown(event.id))
            idErrors.append(event.id);
        else
            Event(event.id, event.eventId, event.data, event.timestamp);
    }
    if (!events.isEmpty() && idErrors.size() == events.size())
        sendErrorReply(unknownIdError, u"None of the ids is a menu item"_s);
    return idErrors;
}

// The menu is always current, so a host never needs to fetch it again before showing it.
// AboutToShow does not say that a menu is on screen: GNOME Shell's extension asks it of the root
// whenever it reads the item's menu, to prefetch, and it and Plasma, the hosts that ask it, say
// "opened" and "closed" around every real opening. Taken as an opening, a prefetch at start-up or
// after the Shell restarts held polls for the whole openBoundMilliseconds.
bool DBusMenuExporter::AboutToShow(int id)
{
    rejectUnknown(id);
    return false;
}

// Hosts built on libdbusmenu (waybar) ask AboutToShowGroup as the menu opens and never say
// "opened" or "closed" of the root: for them this is the only sign of an opening.
QList<int> DBusMenuExporter::AboutToShowGroup(const QList<int> &ids, QList<int> &idErrors)
{
    for (const int id : ids) {
        if (!isKnown(id))
            idErrors.append(id);
        else if (id == 0)
            hostOpened();
    }
    return {};
}

// The exporter presents the menu as a platform menu does, so the menu tells its owner when a host
// shows and hides it. Some hosts never say "closed" (waybar asks only AboutToShowGroup); one
// that crashes or restarts cannot: the menu counts as closed openBoundMilliseconds after it was
// last seen opening.
void DBusMenuExporter::hostOpened()
{
    m_openBound.start();
    if (!std::exchange(m_hostShowsMenu, true))
        Q_EMIT m_menu->aboutToShow();
}

void DBusMenuExporter::hostClosed()
{
    m_openBound.stop();
    if (std::exchange(m_hostShowsMenu, false))
        Q_EMIT m_menu->aboutToHide();
}

} // namespace Veltrane
