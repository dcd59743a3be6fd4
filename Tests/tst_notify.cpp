// Notices over a real, private session bus to a notification server in another process
// (desktop.py), which prints every call it gets.
#include "FreedesktopNotificationCenter.h"
#include "Notify.h"

#include <QDBusConnection>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

using namespace Veltrane;

namespace {

// Log lines of failures that arrive later, from D-Bus replies handled on the main thread.
QStringList g_logged;

void captureLog(QtMsgType, const QMessageLogContext &, const QString &message) { g_logged.append(message); }

} // namespace

class TestNotify : public QObject
{
    Q_OBJECT

private:
    QProcess m_server;
    QList<QJsonObject> m_events;

    void startServer(const QStringList &options)
    {
        m_server.start(u"/usr/bin/python3"_qs, QStringList{QStringLiteral(VELTRANE_TESTS_DIR "/desktop.py"),
                                                          u"--no-panel"_qs} + options);
        QTRY_VERIFY_WITH_TIMEOUT(m_server.canReadLine(), 10000);
        QVERIFY(m_server.readLine().contains("ready"));
    }

    // The server's calls: the notices, and "capabilities" for each question about them.
    QList<QJsonObject> events()
    {
        while (m_server.canReadLine())
            m_events.append(QJsonDocument::fromJson(m_server.readLine()).object());
        return m_events;
    }

    QStringList notices()
    {
        QStringList notices;
        for (const QJsonObject &event : events()) {
            const QJsonArray notice = event[u"notice"_qs].toArray();
            if (!notice.isEmpty())
                notices.append(notice[0].toString() + u" | "_qs + notice[1].toString());
        }
        return notices;
    }

    qsizetype questions() { return std::count_if(m_events.cbegin(), m_events.cend(), [](auto &e) { return e.contains(u"capabilities"_qs); }); }

    static void installDesktopNotifications()
    {
        Notify::install(u"net.veltrane.tray"_qs, std::make_shared<FreedesktopNotificationCenter>(
                                                     QDBusConnection::sessionBus(), u"net.veltrane.tray"_qs));
    }

private Q_SLOTS:
    void cleanup()
    {
        m_server.kill();
        m_server.waitForFinished();
        m_events.clear();
        Notify::install(std::nullopt, nullptr);
        qInstallMessageHandler(nullptr);
        g_logged.clear();
    }

    void withoutIdentityNoticesGoToTheLog()
    {
        startServer({});
        Notify::install(std::nullopt, nullptr); // no service at all: nothing may be asked of one
        QTest::ignoreMessage(QtInfoMsg, "[notification] Signed in \u2014 The daemon picked up your session.");
        QTest::ignoreMessage(QtInfoMsg, "[notification]  \u2014 %2 <b>");
        Notify::show(u"Signed in"_qs, u"The daemon picked up your session."_qs);
        Notify::show(QString(), u"%2 <b>"_qs);
        QTest::qWait(200);
        QCOMPARE(events(), QList<QJsonObject>());
    }

    // One capability question for the run; the app's name; the body as typed for a server that
    // reads no markup. (The hints each notice carries are read from the running app.)
    void deliversOverTheSessionBus()
    {
        startServer({u"--capabilities=body,actions"_qs});
        installDesktopNotifications();
        Notify::show(u"Connected"_qs, u"<b>build_box</b> & co"_qs);
        Notify::show(u"Second"_qs, u"two"_qs);
        QTRY_COMPARE(notices(), (QStringList{u"Connected | <b>build_box</b> & co"_qs, u"Second | two"_qs}));
        QCOMPARE(questions(), 1);
        QVERIFY(m_events.first().contains(u"capabilities"_qs));
        QCOMPARE(m_events[1][u"app"_qs].toString(), u"Veltrane"_qs);
        QCOMPARE(m_events[1][u"replaces"_qs].toInt(), 0);
    }

    void escapesBodiesForServersThatParseMarkup()
    {
        startServer({u"--capabilities=body,body-markup"_qs});
        installDesktopNotifications();
        Notify::show(u"<i>Title</i>"_qs, u"<b>x</b> &amp; y"_qs); // the summary is never markup
        QTRY_COMPARE(notices(), QStringList{u"<i>Title</i> | &lt;b&gt;x&lt;/b&gt; &amp;amp; y"_qs});
    }

    void serverErrorsAreDeliveryFailures()
    {
        startServer({u"--refuse=Do not disturb"_qs});
        installDesktopNotifications();
        qInstallMessageHandler(captureLog);
        Notify::show(u"T"_qs, u"B"_qs);
        QTRY_COMPARE(g_logged, QStringList{u"[notification] delivery failed: Do not disturb (T \u2014 B)"_qs});
    }

    // A desktop whose notification server starts after the app still gets notices, and with the
    // right escaping: a failed capability question is asked again.
    void serverThatStartsLaterIsUsed()
    {
        installDesktopNotifications();
        qInstallMessageHandler(captureLog);
        Notify::show(u"early"_qs, u"lost"_qs);
        QTRY_COMPARE(g_logged.size(), 1);
        QVERIFY2(g_logged[0].startsWith(u"[notification] delivery failed: "_qs), qPrintable(g_logged[0]));
        startServer({u"--capabilities=body-markup"_qs});
        Notify::show(u"late"_qs, u"a < b"_qs);
        QTRY_COMPARE(notices(), QStringList{u"late | a &lt; b"_qs});
        QCOMPARE(questions(), 1);
    }

    // A server that takes the capability question and never answers holds notices back only
    // briefly (the bus would wait 25 s); without its answer the body goes out escaped. The
    // question is not asked again.
    void aStalledServerHoldsNoticesBackBriefly()
    {
        startServer({u"--stall"_qs});
        installDesktopNotifications();
        Notify::show(u"T"_qs, u"a < b"_qs);
        QTRY_COMPARE_WITH_TIMEOUT(notices(), QStringList{u"T | a &lt; b"_qs}, 3000);
        Notify::show(u"T2"_qs, u"c"_qs);
        QTRY_COMPARE_WITH_TIMEOUT(notices().size(), 2, 3000);
        QCOMPARE(questions(), 1);
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
};

QTEST_GUILESS_MAIN(TestNotify)
#include "tst_notify.moc"
