#include "AppDelegate.h"

#include <QDBusConnectionInterface>
#include <QSignalSpy>
#include <QTest>

using namespace Veltrane;

// One instance per identity, on a private session bus. The instance already running is played by
// a second connection; the end-to-end desktop test runs two real processes.
class TestAppDelegate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void runsOnlyWhereTheIdentityIsFree_data()
    {
        QTest::addColumn<std::optional<QString>>("identity");
        QTest::addColumn<bool>("running");
        QTest::newRow("installed, another instance runs") << std::optional(u"net.veltrane.tray"_qs) << false;
        QTest::newRow("bare executable, no check") << std::optional<QString>() << true;
    }

    void runsOnlyWhereTheIdentityIsFree()
    {
        QFETCH(std::optional<QString>, identity);
        QFETCH(bool, running);
        QDBusConnection other = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"other"_qs);
        QVERIFY(other.registerService(u"net.veltrane.tray"_qs));
        AppDelegate delegate(identity, QDBusConnection::sessionBus());
        QSignalSpy terminate(&delegate, &AppDelegate::terminateRequested);
        delegate.applicationDidFinishLaunching();
        QTRY_COMPARE(terminate.size() + int(delegate.isRunning()), 1);
        QCOMPARE(delegate.isRunning(), running);
        other.unregisterService(u"net.veltrane.tray"_qs);
        QDBusConnection::disconnectFromBus(u"other"_qs);
    }

    void firstInstanceHoldsTheIdentity()
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        AppDelegate delegate(u"net.veltrane.tray"_qs, bus);
        delegate.applicationDidFinishLaunching();
        QVERIFY(!delegate.isRunning()); // the bus answers later; nothing waited for it
        QTRY_VERIFY(delegate.isRunning());
        QCOMPARE(bus.interface()->serviceOwner(u"net.veltrane.tray"_qs).value(), bus.baseService());
    }
};

QTEST_MAIN(TestAppDelegate)
#include "tst_appdelegate.moc"
