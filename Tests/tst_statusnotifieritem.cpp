// The status item as a tray host reads it over a real session bus: the host is a second
// connection of this process, and its calls wait in an event loop so the item can answer them.
#include "IconFactory.h"
#include "StatusNotifierItem.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QMenu>
#include <QTest>

using namespace Veltrane;

namespace {

const QString itemInterface = u"org.kde.StatusNotifierItem"_qs;

class SignalLog : public QObject
{
    Q_OBJECT

public:
    QStringList members;

public Q_SLOTS:
    void record(const QDBusMessage &message) { members.append(message.member()); }
};

QIcon solidIcon(const QColor &colour)
{
    QPixmap pixmap(128, 128);
    pixmap.fill(colour);
    return QIcon(pixmap);
}

} // namespace

class TestStatusNotifierItem : public QObject
{
    Q_OBJECT

private:
    QDBusConnection m_app = QDBusConnection::sessionBus();
    QDBusConnection m_host = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"host"_qs);
    SignalLog m_log;

    QVariant property(const QString &name)
    {
        QDBusMessage get = QDBusMessage::createMethodCall(m_app.baseService(), StatusNotifierItem::itemPath,
                                                          u"org.freedesktop.DBus.Properties"_qs, u"Get"_qs);
        get << itemInterface << name;
        const QDBusMessage reply = m_host.call(get, QDBus::BlockWithGui);
        return qvariant_cast<QDBusVariant>(reply.arguments().value(0)).variant();
    }

private Q_SLOTS:
    void initTestCase()
    {
        for (const QString &name : {u"NewIcon"_qs, u"NewToolTip"_qs}) {
            QVERIFY(m_host.connect(m_app.baseService(), StatusNotifierItem::itemPath, itemInterface, name, &m_log,
                                   SLOT(record(QDBusMessage))));
        }
    }

    // The names and flags are read from the installed app by the desktop test; here, the structures.
    void describesItselfToTheHost()
    {
        StatusNotifierItem item(m_app, u"net.veltrane.tray.test"_qs);
        item.setToolTip(u"Veltrane \u2014 Connected"_qs);
        const auto toolTip = qdbus_cast<DBusToolTip>(property(u"ToolTip"_qs));
        QCOMPARE(toolTip.title, u"Veltrane \u2014 Connected"_qs);
        QVERIFY(toolTip.iconPixmap.isEmpty());
        QVERIFY(qdbus_cast<DBusImageList>(property(u"IconPixmap"_qs)).isEmpty()); // no icon yet

        // Pixels go out as A, R, G, B bytes at every size.
        item.setIcon(solidIcon(QColor(10, 20, 30)));
        const auto images = qdbus_cast<DBusImageList>(property(u"IconPixmap"_qs));
        QCOMPARE(images.size(), std::size(StatusNotifierItem::iconSizes));
        for (qsizetype i = 0; i < images.size(); ++i) {
            const int side = StatusNotifierItem::iconSizes[i];
            QCOMPARE(images[i].width, side);
            QCOMPARE(images[i].height, side);
            QCOMPARE(images[i].argb.size(), 4 * side * side);
            QCOMPARE(images[i].argb.left(4), QByteArray("\xff\x0a\x14\x1e"));
        }
    }

    // Setting what the host already has sends nothing; each change sends one signal.
    void signalsOnlyChanges()
    {
        StatusNotifierItem item(m_app, u"net.veltrane.tray.test"_qs);
        m_log.members.clear();
        const QIcon connected = IconFactory::statusIcon(TrayState::Connected);
        for (int poll = 0; poll < 3; ++poll) {
            item.setIcon(connected);
            item.setToolTip(u"Veltrane \u2014 Connected"_qs);
        }
        QTRY_COMPARE(m_log.members, (QStringList{u"NewIcon"_qs, u"NewToolTip"_qs}));
        item.setIcon(IconFactory::statusIcon(TrayState::Stopped));
        item.setToolTip(u"Veltrane \u2014 Connected"_qs);
        QTRY_COMPARE(m_log.members.size(), 3);
        QTest::qWait(100);
        QCOMPARE(m_log.members.last(), u"NewIcon"_qs);
        QCOMPARE(m_log.members.size(), 3);
    }

    // A host that calls Activate or ContextMenu still gets the menu, where the click was.
    void opensTheMenuForHostsThatActivate()
    {
        QMenu menu;
        menu.addAction(u"Quit Veltrane"_qs);
        StatusNotifierItem item(m_app, u"net.veltrane.tray.test"_qs);
        item.setMenu(&menu);
        for (const QString &method : {u"Activate"_qs, u"ContextMenu"_qs}) {
            QDBusMessage call =
                QDBusMessage::createMethodCall(m_app.baseService(), StatusNotifierItem::itemPath, itemInterface, method);
            call << 120 << 80;
            QCOMPARE(m_host.call(call, QDBus::BlockWithGui).type(), QDBusMessage::ReplyMessage);
            QTRY_VERIFY(menu.isVisible());
            QCOMPARE(menu.pos(), QPoint(120, 80));
            menu.hide();
        }
    }
};

QTEST_MAIN(TestStatusNotifierItem)
#include "tst_statusnotifieritem.moc"
