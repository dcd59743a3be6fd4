#include "ApplicationIdentity.h"
#include "FreedesktopNotificationCenter.h"
#include "Notify.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <mutex>

using namespace Veltrane;

namespace {

/// org.freedesktop.Notifications as a desktop provides it, recording every call. It lives on a
/// thread and bus connection of its own, as a real server in another process would.
class FakeNotificationServer : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Call {
        QString method;
        QVariantList arguments;
    };

    QStringList capabilities{u"body"_qs};
    QString refusal; // non-empty: Notify fails with this message
    bool stallCapabilities = false; // take the question and never answer it

    QList<Call> calls() const
    {
        std::lock_guard lock(m_mutex);
        return m_calls;
    }

public Q_SLOTS:
    QStringList GetCapabilities()
    {
        record(u"GetCapabilities"_qs, {});
        if (stallCapabilities)
            setDelayedReply(true);
        return capabilities;
    }

    uint Notify(const QString &appName, uint replacesId, const QString &appIcon, const QString &summary,
                const QString &body, const QStringList &actions, const QVariantMap &hints, int expireTimeout)
    {
        record(u"Notify"_qs, {appName, replacesId, appIcon, summary, body, actions, hints, expireTimeout});
        if (!refusal.isEmpty())
            sendErrorReply(QDBusError::AccessDenied, refusal);
        return uint(calls().size());
    }

private:
    void record(const QString &method, const QVariantList &arguments)
    {
        std::lock_guard lock(m_mutex);
        m_calls.append({method, arguments});
    }

    mutable std::mutex m_mutex;
    QList<Call> m_calls;
};

// Log lines of failures that arrive later, from D-Bus replies handled on the main thread.
QStringList g_logged;

void captureLog(QtMsgType, const QMessageLogContext &, const QString &message) { g_logged.append(message); }

} // namespace

class TestNotify : public QObject
{
    Q_OBJECT

private:
    QThread m_serverThread;
    FakeNotificationServer *m_server = nullptr;

    void startServer(const QStringList &capabilities, const QString &refusal = {}, bool stall = false)
    {
        m_server = new FakeNotificationServer;
        m_server->capabilities = capabilities;
        m_server->refusal = refusal;
        m_server->stallCapabilities = stall;
        m_server->moveToThread(&m_serverThread);
        m_serverThread.start();
        bool registered = false;
        QMetaObject::invokeMethod(m_server, [this, &registered] {
            auto bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"fake-notifications"_qs);
            registered = bus.registerObject(u"/org/freedesktop/Notifications"_qs, m_server,
                                            QDBusConnection::ExportAllSlots)
                && bus.registerService(u"org.freedesktop.Notifications"_qs);
        }, Qt::BlockingQueuedConnection);
        QVERIFY(registered);
    }

    static void installDesktopNotifications()
    {
        Notify::install(u"net.veltrane.tray"_qs, std::make_shared<FreedesktopNotificationCenter>(
                                                     QDBusConnection::sessionBus(), u"net.veltrane.tray"_qs));
    }

    QList<FakeNotificationServer::Call> notifyCalls() const
    {
        QList<FakeNotificationServer::Call> notifies;
        for (const auto &call : m_server->calls()) {
            if (call.method == u"Notify")
                notifies.append(call);
        }
        return notifies;
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(QDBusConnection::sessionBus().isConnected()); }

    void cleanup()
    {
        if (m_server) {
            QMetaObject::invokeMethod(m_server, [this] {
                QDBusConnection bus(u"fake-notifications"_qs);
                bus.unregisterService(u"org.freedesktop.Notifications"_qs);
                delete m_server;
                QDBusConnection::disconnectFromBus(u"fake-notifications"_qs);
            }, Qt::BlockingQueuedConnection);
            m_server = nullptr;
            m_serverThread.quit();
            m_serverThread.wait();
        }
        Notify::install(std::nullopt, nullptr);
        qInstallMessageHandler(nullptr);
        g_logged.clear();
    }

    void withoutIdentityNoticesGoToTheLog()
    {
        startServer({u"body"_qs});
        Notify::install(std::nullopt, nullptr); // no service at all: nothing may be asked of one
        QTest::ignoreMessage(QtInfoMsg, "[notification] Signed in \u2014 The daemon picked up your session.");
        QTest::ignoreMessage(QtInfoMsg, "[notification]  \u2014 %2 <b>");
        Notify::show(u"Signed in"_qs, u"The daemon picked up your session."_qs);
        Notify::show(QString(), u"%2 <b>"_qs);
        QVERIFY(m_server->calls().isEmpty());
    }

    void deliversOverTheSessionBus()
    {
        startServer({u"body"_qs, u"actions"_qs});
        installDesktopNotifications();
        Notify::show(u"Connected"_qs, u"<b>build_box</b> & co"_qs);
        Notify::show(u"Second"_qs, u"two"_qs);
        QTRY_COMPARE(notifyCalls().size(), 2);

        const auto calls = m_server->calls();
        QCOMPARE(calls.first().method, u"GetCapabilities"_qs);
        QCOMPARE(calls.count(), 3); // one capability query for the run
        const QVariantList first = notifyCalls()[0].arguments;
        QCOMPARE(first[0].toString(), u"Veltrane"_qs);
        QCOMPARE(first[1].toUInt(), 0u);
        QCOMPARE(first[3].toString(), u"Connected"_qs);
        QCOMPARE(first[4].toString(), u"<b>build_box</b> & co"_qs); // no markup: verbatim
        const QVariantMap hints = first[6].toMap();
        QCOMPARE(hints[u"desktop-entry"_qs].toString(), u"net.veltrane.tray"_qs);
        const QString id = hints[u"x-veltrane-id"_qs].toString();
        QVERIFY2(QRegularExpression(u"^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$"_qs)
                     .match(id).hasMatch(), qPrintable(id));
        QVERIFY(id != notifyCalls()[1].arguments[6].toMap()[u"x-veltrane-id"_qs].toString());
        QCOMPARE(notifyCalls()[1].arguments[3].toString(), u"Second"_qs);
    }

    void escapesBodiesForServersThatParseMarkup()
    {
        startServer({u"body"_qs, u"body-markup"_qs});
        installDesktopNotifications();
        Notify::show(u"<i>Title</i>"_qs, u"<b>x</b> &amp; y"_qs);
        QTRY_COMPARE(notifyCalls().size(), 1);
        QCOMPARE(notifyCalls()[0].arguments[3].toString(), u"<i>Title</i>"_qs); // summary is never markup
        QCOMPARE(notifyCalls()[0].arguments[4].toString(), u"&lt;b&gt;x&lt;/b&gt; &amp;amp; y"_qs);
    }

    void serverErrorsAreDeliveryFailures()
    {
        startServer({u"body"_qs}, u"Do not disturb"_qs);
        installDesktopNotifications();
        qInstallMessageHandler(captureLog);
        Notify::show(u"T"_qs, u"B"_qs);
        QTRY_COMPARE(g_logged, QStringList{u"[notification] delivery failed: Do not disturb (T \u2014 B)"_qs});
        QCOMPARE(notifyCalls().size(), 1);
    }

    // A desktop whose notification server starts after the app still gets notices, and with the
    // right escaping: a failed capability query is asked again.
    void serverThatStartsLaterIsUsed()
    {
        installDesktopNotifications();
        qInstallMessageHandler(captureLog);
        Notify::show(u"early"_qs, u"lost"_qs);
        QTRY_COMPARE(g_logged.size(), 1);
        QVERIFY2(g_logged[0].startsWith(u"[notification] delivery failed: "_qs), qPrintable(g_logged[0]));
        startServer({u"body-markup"_qs});
        Notify::show(u"late"_qs, u"a < b"_qs);
        QTRY_COMPARE(notifyCalls().size(), 1);
        QCOMPARE(m_server->calls().first().method, u"GetCapabilities"_qs);
        QCOMPARE(notifyCalls()[0].arguments[4].toString(), u"a &lt; b"_qs);
    }

    // A server that takes the capability question and never answers holds notices back only
    // briefly; without its answer the body goes out escaped. The question is not asked again.
    void aStalledServerHoldsNoticesBackBriefly()
    {
        startServer({u"body"_qs}, {}, true);
        installDesktopNotifications();
        Notify::show(u"T"_qs, u"a < b"_qs);
        QTRY_COMPARE_WITH_TIMEOUT(notifyCalls().size(), 1, 3000); // the bus would wait 25 s
        QCOMPARE(notifyCalls()[0].arguments[4].toString(), u"a &lt; b"_qs);
        Notify::show(u"T2"_qs, u"c"_qs);
        QTRY_COMPARE_WITH_TIMEOUT(notifyCalls().size(), 2, 3000);
        QCOMPARE(m_server->calls().count() - notifyCalls().size(), 1);
    }

    // Permission is asked once per run, before the first notice, however many follow.
    void asksPermissionOncePerRun()
    {
        struct CountingCenter : NotificationCenter {
            QStringList events;
            void requestAuthorization() override { events.append(u"permission"_qs); }
            void add(const NotificationRequest &request, DeliveryHandler) override { events.append(request.title); }
        };
        auto center = std::make_shared<CountingCenter>();
        Notify::install(u"net.veltrane.tray"_qs, center);
        for (const QString &title : {u"a"_qs, u"b"_qs, u"c"_qs})
            Notify::show(title, u"body"_qs);
        QCOMPARE(center->events, (QStringList{u"permission"_qs, u"a"_qs, u"b"_qs, u"c"_qs}));
    }

    void identityComesFromTheInstalledDesktopEntry()
    {
        QTemporaryDir prefix;
        QVERIFY(QDir(prefix.path()).mkpath(u"bin"_qs));
        QVERIFY(QDir(prefix.path()).mkpath(u"share/applications"_qs));
        const QString bin = prefix.filePath(u"bin"_qs);
        QCOMPARE(ApplicationIdentity::detect(bin), std::nullopt);
        QFile entry(prefix.filePath(u"share/applications/net.veltrane.tray.desktop"_qs));
        QVERIFY(entry.open(QIODevice::WriteOnly));
        entry.close();
        QCOMPARE(ApplicationIdentity::detect(bin), std::optional(u"net.veltrane.tray"_qs));
    }
};

QTEST_GUILESS_MAIN(TestNotify)
#include "tst_notify.moc"
