#pragma once

#include <QDBusArgument>
#include <QDBusVariant>
#include <QList>
#include <QStringList>
#include <QVariantMap>

// The structures a panel and the tray exchange over D-Bus: a StatusNotifierItem's icons and
// tooltip, and a DBusMenu's layout, item properties and events. Each comment gives the D-Bus
// signature the type marshals as.

namespace Veltrane {

/// One image of an icon, `(iiay)`: width, height, and ARGB32 pixels in network byte order.
struct DBusImage {
    int width = 0;
    int height = 0;
    QByteArray argb;
};
using DBusImageList = QList<DBusImage>; ///< `a(iiay)`: the same icon at several sizes

/// A StatusNotifierItem's tooltip, `(sa(iiay)ss)`.
struct DBusToolTip {
    QString iconName;
    DBusImageList iconPixmap;
    QString title;
    QString description;
};

/// A DBusMenu node, `(ia{sv}av)`: its id, its properties, and its children, each a variant
/// holding a node.
struct DBusMenuLayoutItem {
    int id = 0;
    QVariantMap properties;
    QList<DBusMenuLayoutItem> children;
};

/// An item's properties, `(ia{sv})`.
struct DBusMenuItem {
    int id = 0;
    QVariantMap properties;
};
using DBusMenuItemList = QList<DBusMenuItem>;

/// The names of an item's properties that went back to their defaults, `(ias)`.
struct DBusMenuItemKeys {
    int id = 0;
    QStringList properties;
};
using DBusMenuItemKeysList = QList<DBusMenuItemKeys>;

/// One event of an `EventGroup` call, `(isvu)`.
struct DBusMenuEvent {
    int id = 0;
    QString eventId;
    QDBusVariant data;
    uint timestamp = 0;
};
using DBusMenuEventList = QList<DBusMenuEvent>;

/// Makes the types above known to QtDBus; call before exporting or reading them.
void registerDBusTypes();

QDBusArgument &operator<<(QDBusArgument &argument, const DBusImage &image);
const QDBusArgument &operator>>(const QDBusArgument &argument, DBusImage &image);
QDBusArgument &operator<<(QDBusArgument &argument, const DBusToolTip &toolTip);
const QDBusArgument &operator>>(const QDBusArgument &argument, DBusToolTip &toolTip);
QDBusArgument &operator<<(QDBusArgument &argument, const DBusMenuLayoutItem &item);
const QDBusArgument &operator>>(const QDBusArgument &argument, DBusMenuLayoutItem &item);
QDBusArgument &operator<<(QDBusArgument &argument, const DBusMenuItem &item);
const QDBusArgument &operator>>(const QDBusArgument &argument, DBusMenuItem &item);
QDBusArgument &operator<<(QDBusArgument &argument, const DBusMenuItemKeys &keys);
const QDBusArgument &operator>>(const QDBusArgument &argument, DBusMenuItemKeys &keys);
QDBusArgument &operator<<(QDBusArgument &argument, const DBusMenuEvent &event);
const QDBusArgument &operator>>(const QDBusArgument &argument, DBusMenuEvent &event);

} // namespace Veltrane

Q_DECLARE_METATYPE(Veltrane::DBusImage)
Q_DECLARE_METATYPE(Veltrane::DBusToolTip)
Q_DECLARE_METATYPE(Veltrane::DBusMenuLayoutItem)
Q_DECLARE_METATYPE(Veltrane::DBusMenuItem)
Q_DECLARE_METATYPE(Veltrane::DBusMenuItemKeys)
Q_DECLARE_METATYPE(Veltrane::DBusMenuEvent)
