#include "DesktopPeers.h"
#include "StatusNotifierWatch.h"

#include <QSignalSpy>
#include <QTest>

using namespace Veltrane;

// The panel is played on its own thread and bus connection; the watch runs on the test's.
class TestStatusNotifierWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void seesAHostAlreadyThere()
    {
        DesktopPeers desktop(true);
        desktop.startAndWait();
        StatusNotifierWatch watch(QDBusConnection::sessionBus());
        QSignalSpy available(&watch, &StatusNotifierWatch::hostAvailable);
        QVERIFY(!watch.isHostAvailable()); // the answer comes asynchronously
        QTRY_COMPARE(available.size(), 1);
        QVERIFY(watch.isHostAvailable());
    }

    // The panel's watcher comes up after the app, and its host registers later still.
    void waitsForTheWatcherAndThenTheHost()
    {
        DesktopPeers desktop(false);
        desktop.startAndWait();
        desktop.onPeersThread([&] { desktop.watcher->setHostRegistered(false); });
        StatusNotifierWatch watch(QDBusConnection::sessionBus());
        QSignalSpy available(&watch, &StatusNotifierWatch::hostAvailable);
        QTest::qWait(200);
        desktop.startPanel();
        QTest::qWait(300);
        QCOMPARE(available.size(), 0);

        desktop.onPeersThread([&] { desktop.watcher->setHostRegistered(true); });
        QTRY_COMPARE(available.size(), 1);
        desktop.onPeersThread([&] { desktop.watcher->setHostRegistered(true); });
        QTest::qWait(200);
        QCOMPARE(available.size(), 1); // told once
    }
};

QTEST_GUILESS_MAIN(TestStatusNotifierWatch)
#include "tst_statusnotifierwatch.moc"
