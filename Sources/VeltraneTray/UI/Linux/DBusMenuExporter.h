#pragma once

#include "DBusTypes.h"

#include <QDBusContext>
#include <QHash>
#include <QObject>
#include <QTimer>

class QAction;
class QMenu;

namespace Veltrane {

/// A Qt action text as a DBusMenu label, so a host shows what Qt would: a literal "_" becomes "__"
/// and "&&", Qt's literal "&", becomes "&". The app's rows carry no mnemonics, so a lone "&" does
/// not occur.
QString dbusMenuLabel(const QString &actionText);

/// Publishes a `QMenu` as `com.canonical.dbusmenu`, the menu a StatusNotifierItem host draws.
///
/// The menu is flat and its rows are fixed: the actions it holds when the exporter is made are the
/// root's children, numbered from 1 in menu order; actions added later are not exported. Every
/// change to the actions within one turn of the event loop reaches the host as one
/// `ItemsPropertiesUpdated` carrying only what differs from what the host was last told; a change
/// that restores the old value sends nothing. A host's "opened" event of the root, or
/// `AboutToShowGroup` naming the root, makes the menu emit `aboutToShow()`, its "closed" event (or
/// openBoundMilliseconds without one) `aboutToHide()`; `AboutToShow` alone shows nothing, as hosts
/// that ask it also prefetch with it. A "clicked" event triggers its action later, from the event
/// loop, as a click in a Qt menu would; a disabled action ignores it.
///
/// Register it on a bus with `ExportScriptableContents | ExportAllProperties`.
class DBusMenuExporter : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
    Q_PROPERTY(uint Version READ version)
    Q_PROPERTY(QString TextDirection READ textDirection)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(QStringList IconThemePath READ iconThemePath)

public:
    /// How long a menu counts as shown after a host last said it opened it, without "closed".
    static constexpr int openBoundMilliseconds = 15000;

    /// Exports `menu`, which must outlive the exporter.
    explicit DBusMenuExporter(QMenu *menu, QObject *parent = nullptr);

    uint version() const { return 3; }
    QString textDirection() const;
    QString status() const { return QStringLiteral("normal"); }
    QStringList iconThemePath() const { return {}; }

public Q_SLOTS:
    Q_SCRIPTABLE uint GetLayout(int parentId, int recursionDepth, const QStringList &propertyNames,
                                Veltrane::DBusMenuLayoutItem &layout);
    Q_SCRIPTABLE Veltrane::DBusMenuItemList GetGroupProperties(const QList<int> &ids, const QStringList &propertyNames);
    Q_SCRIPTABLE QDBusVariant GetProperty(int id, const QString &name);
    Q_SCRIPTABLE void Event(int id, const QString &eventId, const QDBusVariant &data, uint timestamp);
    Q_SCRIPTABLE QList<int> EventGroup(const Veltrane::DBusMenuEventList &events);
    Q_SCRIPTABLE bool AboutToShow(int id);
    Q_SCRIPTABLE QList<int> AboutToShowGroup(const QList<int> &ids, QList<int> &idErrors);

Q_SIGNALS:
    Q_SCRIPTABLE void ItemsPropertiesUpdated(const Veltrane::DBusMenuItemList &updatedProps,
                                             const Veltrane::DBusMenuItemKeysList &removedProps);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    /// What the host was last told of one action, and the encoded icon that goes with it.
    struct Exported {
        QVariantMap properties;
        qint64 iconKey = 0;
        QByteArray iconPng;
    };

    QAction *actionOf(int id) const;
    int idOf(const QAction *action) const { return int(m_actions.indexOf(action)) + 1; }
    bool isKnown(int id) const; // the root (0) or an action in the menu
    QVariantMap propertiesOf(QAction *action);
    QByteArray iconPngOf(QAction *action);
    DBusMenuLayoutItem nodeOf(int id, int depth, const QStringList &propertyNames);
    void sendChanges();
    bool rejectUnknown(int id);
    void hostOpened();
    void hostClosed();

    QMenu *m_menu;
    QList<QAction *> m_actions; // the exported rows; an action's id is its index + 1
    bool m_hostShowsMenu = false;
    QTimer m_openBound;
    QHash<int, Exported> m_exported;
    static constexpr uint layoutRevision = 1; // the rows never change, only their properties
    QTimer m_sendTimer; // gathers one turn's changes into one message
};

} // namespace Veltrane
