// The menu as a tray host reads it over a real session bus: the host is a second connection of
// this process, and its calls wait in an event loop so the exporter can answer them.
#include "DBusMenuExporter.h"
#include "IconFactory.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QMenu>
#include <QSignalSpy>
#include <QTest>

using namespace Veltrane;

namespace {

const QString menuInterface = u"com.canonical.dbusmenu"_qs;
const QString menuPath = u"/MenuBar"_qs;

// Signals the host connection receives from the exported menu, as raw messages.
class SignalLog : public QObject
{
    Q_OBJECT

public:
    QList<QDBusMessage> messages;

public Q_SLOTS:
    void record(const QDBusMessage &message) { messages.append(message); }
};

// The exporter that can tell whether it is inside a D-Bus call.
class Exporter : public DBusMenuExporter
{
public:
    using DBusMenuExporter::DBusMenuExporter;
    bool inCall() const { return calledFromDBus(); }
};

} // namespace

class TestDBusMenuExporter : public QObject
{
    Q_OBJECT

private:
    QDBusConnection m_app = QDBusConnection::sessionBus();
    QDBusConnection m_host = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"host"_qs);
    std::unique_ptr<QMenu> m_menu;
    std::unique_ptr<Exporter> m_exporter;
    QAction *m_file = nullptr;
    QAction *m_status = nullptr;
    QAction *m_hidden = nullptr;
    QAction *m_quit = nullptr;
    SignalLog m_log;

    QDBusMessage call(const QString &method, const QVariantList &arguments)
    {
        QDBusMessage message = QDBusMessage::createMethodCall(m_app.baseService(), menuPath, menuInterface, method);
        message.setArguments(arguments);
        return m_host.call(message, QDBus::BlockWithGui);
    }

    DBusMenuLayoutItem layout(int parent = 0, int depth = -1, const QStringList &names = {})
    {
        const QDBusMessage reply = call(u"GetLayout"_qs, {parent, depth, names});
        return qdbus_cast<DBusMenuLayoutItem>(reply.arguments().value(1));
    }

    // Lets every queued change, signal and trigger run.
    static void settle() { QTest::qWait(100); }

private Q_SLOTS:
    void initTestCase()
    {
        registerDBusTypes();
        QVERIFY(m_host.isConnected());
        QVERIFY(m_host.connect(m_app.baseService(), menuPath, menuInterface, u"ItemsPropertiesUpdated"_qs, &m_log,
                               SLOT(record(QDBusMessage))));
    }

    void init()
    {
        m_menu = std::make_unique<QMenu>();
        m_file = m_menu->addAction(u"&Save build_box && co"_qs);
        m_menu->addSeparator();
        m_status = m_menu->addAction(IconFactory::dotIcon({34, 197, 94}), u"Connected"_qs);
        m_status->setEnabled(false);
        m_hidden = m_menu->addAction(u"Peers\u2026"_qs);
        m_hidden->setVisible(false);
        m_quit = m_menu->addAction(u"Quit"_qs);
        m_quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
        m_exporter = std::make_unique<Exporter>(m_menu.get());
        QVERIFY(m_app.registerObject(menuPath, m_exporter.get(),
                                     QDBusConnection::ExportScriptableContents | QDBusConnection::ExportAllProperties));
        m_log.messages.clear();
    }

    void cleanup()
    {
        m_app.unregisterObject(menuPath);
        m_exporter.reset();
        m_menu.reset();
    }

    void convertsQtMnemonicsToLabels_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("label");
        QTest::newRow("plain") << u"Log out"_qs << u"Log out"_qs;
        QTest::newRow("underscore is literal") << u"build_box"_qs << u"build__box"_qs;
        QTest::newRow("doubled ampersand is literal") << u"A && B"_qs << u"A & B"_qs;
        QTest::newRow("mnemonic") << u"&Quit"_qs << u"_Quit"_qs;
        QTest::newRow("lone ampersand at the end") << u"A &"_qs << u"A "_qs;
        QTest::newRow("all together") << u"&Save my_box && co"_qs << u"_Save my__box & co"_qs;
    }

    void convertsQtMnemonicsToLabels()
    {
        QFETCH(QString, text);
        QFETCH(QString, label);
        QCOMPARE(dbusMenuLabel(text), label);
    }

    void exportsEveryRowWithItsProperties()
    {
        const QDBusMessage reply = call(u"GetLayout"_qs, {0, -1, QStringList()});
        QCOMPARE(reply.arguments().value(0).toUInt(), 1u);
        const DBusMenuLayoutItem root = qdbus_cast<DBusMenuLayoutItem>(reply.arguments().value(1));
        QCOMPARE(root.properties.value(u"children-display"_qs).toString(), u"submenu"_qs);
        QList<int> ids;
        for (const DBusMenuLayoutItem &child : root.children)
            ids.append(child.id);
        QCOMPARE(ids, (QList<int>{1, 2, 3, 4, 5}));
        const auto properties = [&](int row) { return root.children[row].properties; };
        QCOMPARE(properties(0), (QVariantMap{{u"label"_qs, u"_Save build__box & co"_qs}, {u"enabled"_qs, true},
                                             {u"visible"_qs, true}}));
        QCOMPARE(properties(1), (QVariantMap{{u"type"_qs, u"separator"_qs}, {u"visible"_qs, true}}));
        QCOMPARE(properties(2).value(u"enabled"_qs), false);
        QCOMPARE(properties(3).value(u"visible"_qs), false);
        const QImage icon = QImage::fromData(properties(2).value(u"icon-data"_qs).toByteArray(), "PNG");
        QCOMPARE(icon.pixelColor(icon.width() / 2, icon.height() / 2), QColor(34, 197, 94));
        QCOMPARE(qdbus_cast<DBusMenuShortcut>(properties(4).value(u"shortcut"_qs)), (DBusMenuShortcut{{u"Control"_qs, u"q"_qs}}));

        // Depth, a chosen node and chosen properties.
        QVERIFY(layout(0, 0).children.isEmpty());
        QCOMPARE(layout(5, -1, {u"label"_qs}).properties, (QVariantMap{{u"label"_qs, u"Quit"_qs}}));
        const QDBusMessage group = call(u"GetGroupProperties"_qs, {QVariant::fromValue(QList<int>{3, 99}),
                                                                  QStringList{u"enabled"_qs}});
        const auto items = qdbus_cast<DBusMenuItemList>(group.arguments().value(0));
        QCOMPARE(items.size(), 1);
        QCOMPARE(items[0].properties, (QVariantMap{{u"enabled"_qs, false}}));
        const QDBusMessage property = call(u"GetProperty"_qs, {1, u"label"_qs});
        QCOMPARE(qvariant_cast<QDBusVariant>(property.arguments().value(0)).variant().toString(),
                 u"_Save build__box & co"_qs);
    }

    void rejectsUnknownItems()
    {
        const QString unknownId = u"com.canonical.dbusmenu.Error.UnknownId"_qs;
        QCOMPARE(call(u"GetLayout"_qs, {99, -1, QStringList()}).errorName(), unknownId);
        QCOMPARE(call(u"GetProperty"_qs, {99, u"label"_qs}).errorName(), unknownId);
        QCOMPARE(call(u"GetProperty"_qs, {1, u"no-such-property"_qs}).errorName(),
                 u"org.freedesktop.DBus.Error.InvalidArgs"_qs);
        QCOMPARE(call(u"Event"_qs, {99, u"clicked"_qs, QVariant::fromValue(QDBusVariant(0)), 0u}).errorName(), unknownId);
        QCOMPARE(call(u"AboutToShow"_qs, {99}).errorName(), unknownId);
        const QDBusMessage group = call(u"AboutToShowGroup"_qs, {QVariant::fromValue(QList<int>{1, 98, 99})});
        QCOMPARE(qdbus_cast<QList<int>>(group.arguments().value(1)), (QList<int>{98, 99}));
    }

    // A click runs its action once, after the host has its reply (a "Quit" may end the process);
    // other events and disabled rows run nothing.
    void clicksTriggerEnabledRowsOnce()
    {
        QList<bool> quitInCall;
        connect(m_quit, &QAction::triggered, this, [&] { quitInCall.append(m_exporter->inCall()); });
        QSignalSpy status(m_status, &QAction::triggered);
        const QVariant data = QVariant::fromValue(QDBusVariant(0));
        QCOMPARE(call(u"Event"_qs, {5, u"hovered"_qs, data, 0u}).type(), QDBusMessage::ReplyMessage);
        QCOMPARE(call(u"Event"_qs, {3, u"clicked"_qs, data, 0u}).type(), QDBusMessage::ReplyMessage);
        QCOMPARE(call(u"Event"_qs, {5, u"clicked"_qs, data, 0u}).type(), QDBusMessage::ReplyMessage);
        settle();
        QCOMPARE(quitInCall, QList<bool>{false});
        QCOMPARE(status.size(), 0);

        const DBusMenuEventList events{{5, u"clicked"_qs, QDBusVariant(0), 0}, {99, u"clicked"_qs, QDBusVariant(0), 0}};
        const QDBusMessage group = call(u"EventGroup"_qs, {QVariant::fromValue(events)});
        QCOMPARE(qdbus_cast<QList<int>>(group.arguments().value(0)), QList<int>{99});
        settle();
        QCOMPARE(quitInCall, (QList<bool>{false, false}));
    }

    // One turn's changes reach the host as one message with only what differs; changes that
    // restore what the host knows send nothing.
    void sendsOnlyDifferences()
    {
        m_status->setText(u"Connected, no network"_qs);
        m_status->setIcon(IconFactory::dotIcon({59, 130, 246}));
        m_hidden->setVisible(true);
        m_file->setText(u"Other"_qs);
        m_file->setText(u"&Save build_box && co"_qs);
        QTRY_COMPARE(m_log.messages.size(), 1);
        const QDBusMessage update = m_log.messages.takeFirst();
        QCOMPARE(update.member(), u"ItemsPropertiesUpdated"_qs);
        const auto updated = qdbus_cast<DBusMenuItemList>(update.arguments().value(0));
        QCOMPARE(updated.size(), 2);
        QCOMPARE(updated[0].id, 3);
        QCOMPARE(QStringList(updated[0].properties.keys()), (QStringList{u"icon-data"_qs, u"label"_qs}));
        QCOMPARE(updated[1].id, 4);
        // Qt holds a hidden action disabled, so showing it enables it too.
        QCOMPARE(updated[1].properties, (QVariantMap{{u"enabled"_qs, true}, {u"visible"_qs, true}}));
        QVERIFY(qdbus_cast<DBusMenuItemKeysList>(update.arguments().value(1)).isEmpty());

        // The same state again: the exporter is asked, and answers nothing.
        m_status->setText(u"Connected, no network"_qs);
        m_status->setIcon(IconFactory::dotIcon({59, 130, 246}));
        m_hidden->setVisible(true);
        settle();
        QCOMPARE(m_log.messages.size(), 0);

        // A property that goes away is named as removed.
        m_status->setIcon(QIcon());
        QTRY_COMPARE(m_log.messages.size(), 1);
        const auto removed = qdbus_cast<DBusMenuItemKeysList>(m_log.messages.takeFirst().arguments().value(1));
        QCOMPARE(removed.size(), 1);
        QCOMPARE(removed[0].id, 3);
        QCOMPARE(removed[0].properties, QStringList{u"icon-data"_qs});
    }
};

QTEST_MAIN(TestDBusMenuExporter)
#include "tst_dbusmenuexporter.moc"
