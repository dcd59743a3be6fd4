// The installed app as a Linux desktop sees it: under Xvfb and a private session bus, with a
// panel's StatusNotifierWatcher and a notification server played by this test, and the simulated
// daemon behind the app's fixed socket path. The test reads what the panel would show (the item's
// tooltip and icon, the exported menu), clicks rows as a panel does, and checks every notice.
#include "SimulatedDaemon.h"
#include "SimulatorServer.h"

#include <QColor>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QFile>
#include <QMutex>
#include <QProcess>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

using namespace Veltrane::Simulator;

namespace {

constexpr int patience = 12000; // milliseconds: a poll comes every 3 s

// A panel's watcher with its host registered: it notes the items that register with it.
class FakeStatusNotifierWatcher : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ isHostRegistered)

public:
    bool isHostRegistered() const { return true; }
    QStringList items() const
    {
        QMutexLocker lock(&m_mutex);
        return m_items;
    }

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString &service)
    {
        QMutexLocker lock(&m_mutex);
        m_items.append(service);
    }

private:
    mutable QMutex m_mutex;
    QStringList m_items;
};

// A notification server that notes each notice as "summary — body".
class FakeNotificationServer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    QStringList notices() const
    {
        QMutexLocker lock(&m_mutex);
        return m_notices;
    }

public Q_SLOTS:
    QStringList GetCapabilities() { return {u"body"_qs}; }
    uint Notify(const QString &, uint, const QString &, const QString &summary, const QString &body,
                const QStringList &, const QVariantMap &, int)
    {
        QMutexLocker lock(&m_mutex);
        m_notices.append(summary + u" \u2014 "_qs + body);
        return uint(m_notices.size());
    }

private:
    mutable QMutex m_mutex;
    QStringList m_notices;
};

// The desktop's side of the bus, on a thread and connection of its own, so the test's blocking
// calls never keep it from answering. The panel comes up with it, or later by startPanel().
class Desktop : public QThread
{
public:
    explicit Desktop(bool withPanel)
        : m_withPanel(withPanel)
    {
        start();
        m_ready.acquire();
    }
    ~Desktop() override
    {
        quit();
        wait();
    }

    void startPanel()
    {
        QMetaObject::invokeMethod(
            watcher, [this] { publish(u"org.kde.StatusNotifierWatcher"_qs, u"/StatusNotifierWatcher"_qs, watcher); },
            Qt::BlockingQueuedConnection);
    }

    FakeStatusNotifierWatcher *watcher = nullptr;
    FakeNotificationServer *notifications = nullptr;

protected:
    // The objects are made, exported and destroyed on this thread, as QtDBus wants.
    void run() override
    {
        FakeStatusNotifierWatcher panel;
        FakeNotificationServer server;
        watcher = &panel;
        notifications = &server;
        publish(u"org.freedesktop.Notifications"_qs, u"/org/freedesktop/Notifications"_qs, notifications);
        if (m_withPanel)
            publish(u"org.kde.StatusNotifierWatcher"_qs, u"/StatusNotifierWatcher"_qs, watcher);
        m_ready.release();
        exec();
        QDBusConnection bus(u"desktop"_qs);
        bus.unregisterObject(u"/StatusNotifierWatcher"_qs);
        bus.unregisterObject(u"/org/freedesktop/Notifications"_qs);
        QDBusConnection::disconnectFromBus(u"desktop"_qs);
    }

private:
    static void publish(const QString &service, const QString &path, QObject *object)
    {
        QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"desktop"_qs);
        bus.registerObject(path, object, QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllProperties);
        if (!bus.registerService(service))
            qFatal("cannot own %s", qPrintable(service));
    }

    bool m_withPanel;
    QSemaphore m_ready;
};

struct MenuNode {
    int id = 0;
    QVariantMap properties;
    QList<MenuNode> children;
};

MenuNode readNode(const QDBusArgument &argument)
{
    MenuNode node;
    argument.beginStructure();
    argument >> node.id >> node.properties;
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
        node.children.append(readNode(qvariant_cast<QDBusArgument>(child.variant())));
    }
    argument.endArray();
    argument.endStructure();
    return node;
}

// Reads an icon's images, each (width, height, ARGB bytes in network order), and returns the
// colour at the centre of the state dot in the 22-pixel one.
QColor dotColourOf(const QDBusArgument &argument)
{
    QColor colour;
    argument.beginArray();
    while (!argument.atEnd()) {
        int width = 0, height = 0;
        QByteArray argb;
        argument.beginStructure();
        argument >> width >> height >> argb;
        argument.endStructure();
        const auto *pixel = reinterpret_cast<const uchar *>(argb.constData()) + 4 * (16 * width + 16);
        if (width == 22 && height == 22)
            colour = QColor(pixel[1], pixel[2], pixel[3], pixel[0]);
    }
    argument.endArray();
    return colour;
}

} // namespace

class TestDesktop : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    std::unique_ptr<Desktop> m_desktop;
    std::unique_ptr<SimulatedDaemon> m_daemon;
    std::unique_ptr<SimulatorServer> m_server;
    std::vector<std::unique_ptr<QProcess>> m_apps;
    QDBusConnection m_bus = QDBusConnection::sessionBus();

    QString daemonDirectory() const { return m_dir.filePath(u"run-veltrane"_qs); }
    QString openedLinks() const { return m_dir.filePath(u"opened-links"_qs); }

    QProcess *launchApp()
    {
        auto &process = m_apps.emplace_back(std::make_unique<QProcess>());
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"QT_QPA_PLATFORM"_qs, u"xcb"_qs);
        // The browser: a stand-in for xdg-open that notes the link it was asked to open.
        environment.insert(u"PATH"_qs, m_dir.filePath(u"bin"_qs) + u':' + environment.value(u"PATH"_qs));
        process->setProcessEnvironment(environment);
        process->setProcessChannelMode(QProcess::ForwardedChannels);
        process->start(QStringLiteral(VELTRANE_SOURCE_DIR "/scripts/with-daemon-socket.sh"),
                       {daemonDirectory(), QStringLiteral(VELTRANE_INSTALL_PREFIX "/bin/veltrane-tray")});
        process->waitForStarted();
        return process.get();
    }

    // Calls the registered item's object at `path`.
    QDBusMessage callItem(const QString &path, const QString &interface, const QString &method,
                          const QVariantList &arguments) const
    {
        QDBusMessage call =
            QDBusMessage::createMethodCall(m_desktop->watcher->items().value(0), path, interface, method);
        call.setArguments(arguments);
        return m_bus.call(call);
    }

    QVariant itemProperty(const QString &name) const
    {
        const QDBusMessage reply = callItem(u"/StatusNotifierItem"_qs, u"org.freedesktop.DBus.Properties"_qs,
                                            u"Get"_qs, {u"org.kde.StatusNotifierItem"_qs, name});
        return qvariant_cast<QDBusVariant>(reply.arguments().value(0)).variant();
    }

    QString toolTipTitle() const
    {
        const QDBusArgument argument = qvariant_cast<QDBusArgument>(itemProperty(u"ToolTip"_qs));
        QString iconName, title;
        argument.beginStructure();
        argument >> iconName;
        dotColourOf(argument);
        argument >> title;
        return title;
    }

    QColor dotColour() const { return dotColourOf(qvariant_cast<QDBusArgument>(itemProperty(u"IconPixmap"_qs))); }

    QString menuPath() const { return qvariant_cast<QDBusObjectPath>(itemProperty(u"Menu"_qs)).path(); }

    QList<MenuNode> menu() const
    {
        const QDBusMessage reply =
            callItem(menuPath(), u"com.canonical.dbusmenu"_qs, u"GetLayout"_qs, {0, -1, QStringList()});
        if (reply.type() != QDBusMessage::ReplyMessage)
            return {};
        return readNode(qvariant_cast<QDBusArgument>(reply.arguments().value(1))).children;
    }

    // The menu as the panel draws it: visible rows, "—" for separators, "(off)" for disabled rows.
    QStringList rows() const
    {
        QStringList rows;
        for (const MenuNode &node : menu()) {
            const QVariantMap &p = node.properties;
            if (!p.value(u"visible"_qs, true).toBool())
                continue;
            if (p.value(u"type"_qs) == u"separator"_qs)
                rows.append(u"\u2014"_qs);
            else
                rows.append((p.value(u"enabled"_qs, true).toBool() ? QString() : u"(off) "_qs)
                            + p.value(u"label"_qs).toString());
        }
        return rows;
    }

    void click(const QString &label)
    {
        for (const MenuNode &node : menu()) {
            if (node.properties.value(u"label"_qs) == label) {
                const QDBusMessage reply = callItem(menuPath(), u"com.canonical.dbusmenu"_qs, u"Event"_qs,
                                                    {node.id, u"clicked"_qs, QVariant::fromValue(QDBusVariant(0)), 0u});
                QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
                return;
            }
        }
        QFAIL(qPrintable(u"no row "_qs + label));
    }

    // Whether X shows a window titled exactly "Veltrane — Peers".
    static bool peersWindowShown()
    {
        QProcess tree;
        tree.start(u"xwininfo"_qs, {u"-root"_qs, u"-tree"_qs});
        tree.waitForFinished();
        for (const QByteArray &line : tree.readAllStandardOutput().split('\n')) {
            if (!line.contains(u"\"Veltrane \u2014 Peers\":"_qs.toUtf8()))
                continue;
            QProcess info;
            info.start(u"xwininfo"_qs, {u"-id"_qs, QString::fromLatin1(line.trimmed().split(' ').first())});
            info.waitForFinished();
            if (info.readAllStandardOutput().contains("IsViewable"))
                return true;
        }
        return false;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(QDir(m_dir.path()).mkpath(u"bin"_qs) && QDir(m_dir.path()).mkpath(u"run-veltrane"_qs));
        QFile browser(m_dir.filePath(u"bin/xdg-open"_qs));
        QVERIFY(browser.open(QIODevice::WriteOnly));
        browser.write("#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" + openedLinks().toUtf8() + "'\n");
        browser.close();
        browser.setPermissions(browser.permissions() | QFile::ExeOwner);
    }

    void cleanup()
    {
        for (const auto &app : m_apps) {
            app->kill();
            app->waitForFinished();
        }
        m_apps.clear();
        m_server.reset();
        m_desktop.reset();
    }

    void wholeSession()
    {
        m_desktop = std::make_unique<Desktop>(true);
        QProcess *app = launchApp();
        const QString rule = u"\u2014"_qs;
        const auto menu = [&](const QString &header, const QStringList &middle) {
            return QStringList{u"(off) Veltrane"_qs, u"(off) "_qs + header, rule} + middle
                + QStringList{rule, u"Quit Veltrane"_qs};
        };

        // No daemon yet.
        QTRY_COMPARE_WITH_TIMEOUT(m_desktop->watcher->items().size(), 1, patience);
        QTRY_COMPARE_WITH_TIMEOUT(rows(), menu(u"Disconnected"_qs, {u"(off) Connect"_qs}), patience);
        QCOMPARE(toolTipTitle(), u"Veltrane \u2014 Disconnected"_qs);
        QCOMPARE(dotColour(), QColor(239, 68, 68));

        // The daemon comes up, stopped and signed out.
        SimulatedDaemon::Options options;
        options.wantRunning = false;
        options.session = SimulatedDaemon::Session::SignedOut;
        options.loginDelaySeconds = -1;
        options.connectDelaySeconds = 0.5;
        m_daemon = std::make_unique<SimulatedDaemon>(options);
        m_server = std::make_unique<SimulatorServer>(*m_daemon);
        QCOMPARE(m_server->listen(daemonDirectory() + u"/daemon.sock"_qs), std::nullopt);
        QTRY_COMPARE_WITH_TIMEOUT(rows(), menu(u"Disconnected"_qs, {u"Connect"_qs}), patience);
        QCOMPARE(dotColour(), QColor(100, 116, 139));

        click(u"Connect"_qs);
        QTRY_COMPARE_WITH_TIMEOUT(rows(), menu(u"Connected, needs auth"_qs, {u"Disconnect"_qs, u"Log in\u2026"_qs}),
                                  patience);

        // Signing in: the link goes to the browser, and the daemon's pickup is told once.
        click(u"Log in\u2026"_qs);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(openedLinks()), patience);
        QFile links(openedLinks());
        QVERIFY(links.open(QIODevice::ReadOnly));
        QVERIFY(links.readAll().startsWith("https://login.veltrane.example/a/VLT-"));
        m_daemon->approveLogin();
        const QStringList connected{u"Disconnect"_qs, u"(off) maria-workstation.acme-engineering.veltrane.net"_qs,
                                    u"(off) 100.64.0.1 \u00b7 maria.lopez@acme.example"_qs, u"Peers\u2026"_qs,
                                    u"Log out"_qs};
        QTRY_COMPARE_WITH_TIMEOUT(rows(), menu(u"Connected"_qs, connected), patience);
        QCOMPARE(toolTipTitle(), u"Veltrane \u2014 Connected"_qs);
        QCOMPARE(dotColour(), QColor(34, 197, 94));

        click(u"Peers\u2026"_qs);
        QTRY_VERIFY_WITH_TIMEOUT(peersWindowShown(), patience);

        // A second instance leaves at once, and the first is unaffected.
        QProcess *second = launchApp();
        QVERIFY(second->waitForFinished(patience));
        QCOMPARE(second->exitCode(), 0);
        QCOMPARE(m_desktop->watcher->items().size(), 1);
        QCOMPARE(app->state(), QProcess::Running);

        click(u"Disconnect"_qs);
        QTRY_COMPARE_WITH_TIMEOUT(rows(), menu(u"Disconnected"_qs, {u"Connect"_qs}), patience);

        // Daemon text shows as typed: "_" and "&" are escaped for the panel.
        m_server->setScriptedReply("{\"success\":true,\"status\":{\"membershipState\":\"membership_active\","
                                   "\"selfFqdn\":\"build_box & co\",\"assignedIp\":\"100.64.0.2\"}}\n");
        m_server->setFault(Fault::Scripted, u"get_status"_qs);
        QTRY_VERIFY_WITH_TIMEOUT(rows().contains(u"(off) build__box _& co"_qs), patience);

        QCOMPARE(m_desktop->notifications->notices(),
                 (QStringList{u"Sign-in \u2014 Complete the sign-in in your browser. Veltrane will pick up the "
                              u"session automatically."_qs,
                              u"Signed in \u2014 The daemon picked up your session."_qs}));

        click(u"Quit Veltrane"_qs);
        QVERIFY(app->waitForFinished(patience));
        QCOMPARE(app->exitStatus(), QProcess::NormalExit);
        QCOMPARE(app->exitCode(), 0);
    }

    // Autostarted before the panel: the item appears once the panel does.
    void appearsWhenThePanelComesLate()
    {
        m_desktop = std::make_unique<Desktop>(false);
        QProcess *app = launchApp();
        QTest::qWait(2500);
        QCOMPARE(app->state(), QProcess::Running);
        m_desktop->startPanel();
        QTRY_COMPARE_WITH_TIMEOUT(m_desktop->watcher->items().size(), 1, patience);
        QTRY_COMPARE_WITH_TIMEOUT(toolTipTitle(), u"Veltrane \u2014 Disconnected"_qs, patience);
    }
};

QTEST_GUILESS_MAIN(TestDesktop)
#include "tst_desktop.moc"
