#include "AppDelegate.h"
#include "SingleInstance.h"

#include <QDBusConnectionInterface>
#include <QSignalSpy>
#include <QTest>

using namespace Veltrane;

namespace {
const QString identity = u"net.veltrane.tray"_qs;
} // namespace

// One instance per identity, on a private session bus; another process is played by a second
// connection to the bus.
class TestAppDelegate : public QObject
{
    Q_OBJECT

private:
    QDBusConnection m_bus = QDBusConnection::sessionBus();

    QDBusConnection otherProcess()
    {
        return QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"other-process"_qs);
    }

private Q_SLOTS:
    void cleanup()
    {
        m_bus.unregisterService(identity);
        QDBusConnection::disconnectFromBus(u"other-process"_qs);
    }

    void firstInstanceRunsAndHoldsTheIdentity()
    {
        AppDelegate delegate(identity, m_bus);
        QSignalSpy terminate(&delegate, &AppDelegate::terminateRequested);
        delegate.applicationDidFinishLaunching();
        QVERIFY(delegate.isRunning());
        QCOMPARE(terminate.size(), 0);
        QCOMPARE(m_bus.interface()->serviceOwner(identity).value(), m_bus.baseService());
        QVERIFY(!SingleInstance::claim(otherProcess(), identity));
    }

    void secondInstanceLeavesAtOnce()
    {
        QVERIFY(SingleInstance::claim(otherProcess(), identity));
        AppDelegate delegate(identity, m_bus);
        QSignalSpy terminate(&delegate, &AppDelegate::terminateRequested);
        delegate.applicationDidFinishLaunching();
        QCOMPARE(terminate.size(), 1);
        QVERIFY(!delegate.isRunning());
    }

    // A bare executable has no identity: it makes no check and runs beside any other.
    void withoutIdentityItAlwaysRuns()
    {
        QDBusConnection other = otherProcess();
        QVERIFY(SingleInstance::claim(other, identity));
        AppDelegate delegate(std::nullopt, m_bus);
        QSignalSpy terminate(&delegate, &AppDelegate::terminateRequested);
        delegate.applicationDidFinishLaunching();
        QVERIFY(delegate.isRunning());
        QCOMPARE(terminate.size(), 0);
        QCOMPARE(m_bus.interface()->serviceOwner(identity).value(), other.baseService());
    }

    void withoutSessionBusItRuns()
    {
        QVERIFY(SingleInstance::claim(QDBusConnection(u"never-connected"_qs), identity));
    }
};

QTEST_MAIN(TestAppDelegate)
#include "tst_appdelegate.moc"
