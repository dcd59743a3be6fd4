// Notices over a real, private session bus to a notification server in another process
// (desktop.py), which prints every call it gets. How the running app's notices reach a server
// that comes late, parses markup or refuses them is checked by tst_session.py.
#include "FreedesktopNotificationCenter.h"
#include "Notify.h"

#include <QDBusConnection>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace Veltrane;

class TestNotify : public QObject
{
    Q_OBJECT

private:
    QProcess m_server;
    QList<QJsonObject> m_events;

    void startServer(const QStringList &options)
    {
        m_server.start(u"/usr/bin/python3"_s, QStringList{QStringLiteral(VELTRANE_TESTS_DIR "/desktop.py"),
                                                          u"--no-panel"_s} + options);
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
            const QJsonArray notice = event[u"notice"_s].toArray();
            if (!notice.isEmpty())
                notices.append(notice[0].toString() + u" | "_s + notice[1].toString());
        }
        return notices;
    }

    qsizetype questions() { return std::count_if(m_events.cbegin(), m_events.cend(), [](auto &e) { return e.contains(u"capabilities"_s); }); }

    static void installDesktopNotifications()
    {
        Notify::install(u"net.veltrane.tray"_s, std::make_shared<FreedesktopNotificationCenter>(
                                                     QDBusConnection::sessionBus(), u"net.veltrane.tray"_s));
    }

private Q_SLOTS:
    void cleanup()
    {
        m_server.kill();
        m_server.waitForFinished();
        m_events.clear();
        Notify::install(std::nullopt, nullptr);
    }

    void withoutIdentityNoticesGoToTheLog()
    {
        startServer({});
        Notify::install(std::nullopt, nullptr); // no service at all: nothing may be asked of one
        QTest::ignoreMessage(QtInfoMsg, "[notification] Signed in \u2014 The daemon picked up your session.");
        QTest::ignoreMessage(QtInfoMsg, "[notification]  \u2014 %2 <b>");
        Notify::show(u"Signed in"_s, u"The daemon picked up your session."_s);
        Notify::show(QString(), u"%2 <b>"_s);
        QTest::qWait(200);
        QCOMPARE(events(), QList<QJsonObject>());
    }

    // A server that takes the capability question and never answers holds notices back only
    // briefly (the bus would wait 25 s); without its answer the body goes out escaped. The
    // question is not asked again.
    void aStalledServerHoldsNoticesBackBriefly()
    {
        startServer({u"--stall"_s});
        installDesktopNotifications();
        Notify::show(u"T"_s, u"a < b"_s);
        QTRY_COMPARE_WITH_TIMEOUT(notices(), QStringList{u"T | a &lt; b"_s}, 3000);
        Notify::show(u"T2"_s, u"c"_s);
        QTRY_COMPARE_WITH_TIMEOUT(notices().size(), 2, 3000);
        QCOMPARE(questions(), 1);
    }

    // Permission is asked once per run, before the first notice, however many follow.
    void asksPermissionOncePerRun()
    {
        struct CountingCenter : NotificationCenter {
            QStringList events;
            void requestAuthorization() override { events.append(u"permission"_s); }
            void add(const NotificationRequest &request, DeliveryHandler) override { events.append(request.title); }
        };
        auto center = std::make_shared<CountingCenter>();
        Notify::install(u"net.veltrane.tray"_s, center);
        for (const QString &title : {u"a"_s, u"b"_s, u"c"_s})
            Notify::show(title, u"body"_s);
        QCOMPARE(center->events, (QStringList{u"permission"_s, u"a"_s, u"b"_s, u"c"_s}));
    }
};

QTEST_GUILESS_MAIN(TestNotify)
#include "tst_notify.moc"
