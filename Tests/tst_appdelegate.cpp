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

    static QDBusConnection otherProcess()
    {
        return QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"other-process"_qs);
    }

    static QString ownerOfIdentity(const QDBusConnection &bus)
    {
        return bus.interface()->serviceOwner(identity).value();
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
        QVERIFY(!delegate.isRunning()); // the bus answers later; nothing waited for it
        QTRY_VERIFY(delegate.isRunning());
        QCOMPARE(terminate.size(), 0);
        QCOMPARE(ownerOfIdentity(m_bus), m_bus.baseService());
    }

    void secondInstanceLeavesAtOnce()
    {
        QDBusConnection other = otherProcess();
        QVERIFY(other.registerService(identity));
        AppDelegate delegate(identity, m_bus);
        QSignalSpy terminate(&delegate, &AppDelegate::terminateRequested);
        delegate.applicationDidFinishLaunching();
        QTRY_COMPARE(terminate.size(), 1);
        QVERIFY(!delegate.isRunning());
        QCOMPARE(ownerOfIdentity(m_bus), other.baseService());
    }

    // A bare executable has no identity: it makes no check and runs beside any other.
    void withoutIdentityItAlwaysRuns()
    {
        QDBusConnection other = otherProcess();
        QVERIFY(other.registerService(identity));
        AppDelegate delegate(std::nullopt, m_bus);
        QSignalSpy terminate(&delegate, &AppDelegate::terminateRequested);
        delegate.applicationDidFinishLaunching();
        QVERIFY(delegate.isRunning());
        QTest::qWait(50);
        QCOMPARE(terminate.size(), 0);
        QCOMPARE(ownerOfIdentity(m_bus), other.baseService());
    }

    void withoutSessionBusItRuns()
    {
        QObject context;
        std::optional<bool> ours;
        SingleInstance::claim(QDBusConnection(u"never-connected"_qs), identity, &context,
                              [&](bool decided) { ours = decided; });
        QTRY_COMPARE(ours, std::optional(true));
    }
};

QTEST_MAIN(TestAppDelegate)
#include "tst_appdelegate.moc"
