// The exporter's own rules: what a change sends, and when a click runs. Clicks come from a host
// on a second bus connection of this process, whose calls wait in an event loop so the exporter
// can answer them. What every host may ask of the app's menu is asked of the running app by
// tst_session.py.
#include "DBusMenuExporter.h"
#include "IconFactory.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QMenu>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace Veltrane;

namespace {

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
    QDBusConnection m_host = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"host"_s);
    QMenu m_menu;
    QAction *m_file = m_menu.addAction(u"Save build_box && co"_s);
    QAction *m_separator = m_menu.addSeparator();
    QAction *m_status = m_menu.addAction(IconFactory::logoIcon(), u"Connected"_s);
    QAction *m_hidden = m_menu.addAction(u"Peers\u2026"_s);
    QAction *m_quit = m_menu.addAction(u"Quit"_s);
    Exporter m_exporter{&m_menu};

    QDBusMessage event(int id, const QString &name)
    {
        QDBusMessage message = QDBusMessage::createMethodCall(m_app.baseService(), u"/MenuBar"_s,
                                                              u"com.canonical.dbusmenu"_s, u"Event"_s);
        message << id << name << QVariant::fromValue(QDBusVariant(0)) << 0u;
        return m_host.call(message, QDBus::BlockWithGui);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_app.registerObject(u"/MenuBar"_s, &m_exporter, QDBusConnection::ExportScriptableContents));
        m_status->setEnabled(false);
        m_hidden->setVisible(false);
    }

    void labelsShowTextsAsTyped() { QCOMPARE(dbusMenuLabel(u"build_box && co"_s), u"build__box & co"_s); }

    // A click runs its action once, after the host has its reply (a "Quit" may end the process);
    // other events and disabled rows run nothing.
    void clicksTriggerEnabledRowsOnce()
    {
        QList<bool> quitInCall;
        connect(m_quit, &QAction::triggered, this, [&] { quitInCall.append(m_exporter.inCall()); });
        QSignalSpy status(m_status, &QAction::triggered);
        for (const auto &[id, name] : {std::pair(5, u"hovered"_s), {3, u"clicked"_s}, {5, u"clicked"_s}})
            QCOMPARE(event(id, name).type(), QDBusMessage::ReplyMessage);
        QTest::qWait(100);
        QCOMPARE(quitInCall, QList<bool>{false});
        QCOMPARE(status.size(), 0);
    }

    // One turn's changes reach the host as one signal with only what differs; changes that
    // restore what the host knows send nothing; a property that goes away is named as removed.
    void sendsOnlyDifferences()
    {
        QSignalSpy updates(&m_exporter, &DBusMenuExporter::ItemsPropertiesUpdated);
        const auto changeToNoNetwork = [&] {
            m_status->setText(u"Connected, no network"_s);
            m_status->setIcon(IconFactory::statusIcon(TrayState::NoNetwork));
            m_hidden->setVisible(true);
        };
        changeToNoNetwork();
        m_file->setText(u"Other"_s);
        m_file->setText(u"Save build_box && co"_s);
        QTRY_COMPARE(updates.size(), 1);
        const auto updated = updates.takeFirst().at(0).value<DBusMenuItemList>();
        QCOMPARE(updated.size(), 2);
        QCOMPARE(updated[0].id, 3);
        QCOMPARE(QStringList(updated[0].properties.keys()), (QStringList{u"accessible-desc"_s, u"icon-data"_s, u"label"_s}));
        QCOMPARE(updated[1].id, 4);
        // Qt holds a hidden action disabled, so showing it enables it too.
        QCOMPARE(updated[1].properties, (QVariantMap{{u"enabled"_s, true}, {u"visible"_s, true}}));

        changeToNoNetwork();
        QTest::qWait(100);
        QCOMPARE(updates.size(), 0);

        m_status->setIcon(QIcon());
        QTRY_COMPARE(updates.size(), 1);
        const auto removed = updates.takeFirst().at(1).value<DBusMenuItemKeysList>();
        QCOMPARE(removed.size(), 1);
        QCOMPARE(removed[0].id, 3);
        QCOMPARE(removed[0].properties, QStringList{u"icon-data"_s});
    }
};

QTEST_MAIN(TestDBusMenuExporter)
#include "tst_dbusmenuexporter.moc"
