// The menu as a tray host reads it over a real session bus: the host is a second connection of
// this process, and its calls wait in an event loop so the exporter can answer them. What every
// host may ask of the app's own menu is asked of the running app by tst_session.py.
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
        m_file = m_menu->addAction(u"Save build_box && co"_qs);
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

    void labelsShowTextsAsTyped() { QCOMPARE(dbusMenuLabel(u"build_box && co"_qs), u"build__box & co"_qs); }

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
        m_file->setText(u"Save build_box && co"_qs);
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
