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

// The desktop's side of the bus, on a thread of its own, so the test's blocking calls never keep
// it from answering. The notification server is there from the start; the panel comes up with it,
// or later by startPanel(), and can be replaced by another (a restarted panel) on a new connection.
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

    /// Brings the panel up, or replaces the running one: the watcher's name gets a new owner.
    void startPanel()
    {
        QMetaObject::invokeMethod(watcher, [this] { publishPanel(); }, Qt::BlockingQueuedConnection);
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
        publish(u"desktop"_qs, u"org.freedesktop.Notifications"_qs, u"/org/freedesktop/Notifications"_qs, notifications);
        if (m_withPanel)
            publishPanel();
        m_ready.release();
        exec();
        for (int i = 0; i <= m_panels; ++i)
            QDBusConnection::disconnectFromBus(connectionName(i));
    }

private:
    static QString connectionName(int panel) { return panel == 0 ? u"desktop"_qs : u"panel-%1"_qs.arg(panel); }

    void publishPanel()
    {
        if (m_panels > 0)
            QDBusConnection::disconnectFromBus(connectionName(m_panels)); // the old panel goes away
        publish(connectionName(++m_panels), u"org.kde.StatusNotifierWatcher"_qs, u"/StatusNotifierWatcher"_qs, watcher);
    }

    static void publish(const QString &connection, const QString &service, const QString &path, QObject *object)
    {
        QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, connection);
        bus.registerObject(path, object, QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllProperties);
        if (!bus.registerService(service))
            qFatal("cannot own %s", qPrintable(service));
    }

    bool m_withPanel;
    int m_panels = 0;
    QSemaphore m_ready;
};

// Every message one connection sends, as dbus-monitor sees it on the bus: "type member" lines.
class BusMonitor
{
public:
    explicit BusMonitor(const QString &sender)
        : m_sender(sender)
    {
        m_process.start(u"dbus-monitor"_qs, {u"--session"_qs, u"--profile"_qs, u"sender='%1'"_qs.arg(sender)});
        // Once it is a monitor, the bus takes its name away: from then on it sees everything.
        QTRY_VERIFY_WITH_TIMEOUT(m_output.append(m_process.readAllStandardOutput()).contains("\tNameLost"), 5000);
    }
    ~BusMonitor()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    QStringList messages()
    {
        m_output.append(m_process.readAllStandardOutput());
        QStringList messages;
        for (const QByteArray &line : m_output.split('\n')) {
            const QList<QByteArray> fields = line.split('\t');
            if (fields.size() > 3 && fields[3] == m_sender.toUtf8())
                messages.append(QString::fromUtf8(fields[0] + ' ' + fields.last()));
        }
        return messages;
    }

private:
    QString m_sender;
    QProcess m_process;
    QByteArray m_output;
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

struct Image {
    int width = 0;
    int height = 0;
    QByteArray argb; // network byte order: A, R, G, B
};

// Reads an icon's images, as a host does.
QList<Image> imagesOf(const QDBusArgument &argument)
{
    QList<Image> images;
    argument.beginArray();
    while (!argument.atEnd()) {
        Image image;
        argument.beginStructure();
        argument >> image.width >> image.height >> image.argb;
        argument.endStructure();
        images.append(image);
    }
    argument.endArray();
    return images;
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
        imagesOf(argument);
        argument >> title;
        return title;
    }

    QList<Image> icon() const { return imagesOf(qvariant_cast<QDBusArgument>(itemProperty(u"IconPixmap"_qs))); }

    // The colour at the centre of the state dot in the 22-pixel image.
    QColor dotColour() const
    {
        for (const Image &image : icon()) {
            if (image.width != 22 || image.height != 22)
                continue;
            const auto *pixel = reinterpret_cast<const uchar *>(image.argb.constData()) + 4 * (16 * image.width + 16);
            return QColor(pixel[1], pixel[2], pixel[3], pixel[0]);
        }
        return {};
    }

    QString menuPath() const { return qvariant_cast<QDBusObjectPath>(itemProperty(u"Menu"_qs)).path(); }

    // The sizes of the icon's images; -1 for one whose pixels do not fill it.
    QList<int> iconSizes() const
    {
        QList<int> sizes;
        for (const Image &image : icon())
            sizes.append(image.argb.size() == 4 * image.width * image.height ? image.width : -1);
        return sizes;
    }

    qsizetype statusRequests() const { return m_server->requestsReceived().count("{\"command\":\"get_status\"}"); }

    void startDaemon(const SimulatedDaemon::Options &options)
    {
        m_daemon = std::make_unique<SimulatedDaemon>(options);
        m_server = std::make_unique<SimulatorServer>(*m_daemon);
        QCOMPARE(m_server->listen(daemonDirectory() + u"/daemon.sock"_qs), std::nullopt);
    }

    // Whether X shows a window of the app's other than the peers window: the menu Qt draws itself.
    static bool qtMenuShown()
    {
        QProcess search;
        search.start(u"xdotool"_qs, {u"search"_qs, u"--onlyvisible"_qs, u"--classname"_qs, u"veltrane-tray"_qs});
        search.waitForFinished();
        return !search.readAllStandardOutput().trimmed().isEmpty();
    }

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

        // No daemon yet. The item is a menu, named for the product, with an icon for every host.
        QTRY_COMPARE_WITH_TIMEOUT(m_desktop->watcher->items().size(), 1, patience);
        QTRY_COMPARE_WITH_TIMEOUT(rows(), menu(u"Disconnected"_qs, {u"(off) Connect"_qs}), patience);
        QCOMPARE(toolTipTitle(), u"Veltrane \u2014 Disconnected"_qs);
        QCOMPARE(dotColour(), QColor(239, 68, 68));
        QCOMPARE(itemProperty(u"Id"_qs).toString(), u"net.veltrane.tray"_qs);
        QCOMPARE(itemProperty(u"Title"_qs).toString(), u"Veltrane"_qs);
        QCOMPARE(itemProperty(u"Category"_qs).toString(), u"ApplicationStatus"_qs);
        QCOMPARE(itemProperty(u"Status"_qs).toString(), u"Active"_qs);
        QCOMPARE(itemProperty(u"ItemIsMenu"_qs).toBool(), true);
        QCOMPARE(itemProperty(u"IconName"_qs).toString(), QString());
        QCOMPARE(iconSizes(), (QList<int>{16, 22, 24, 32, 44, 48, 64, 96, 128}));

        // A host that calls Activate or ContextMenu anyway gets the menu, drawn by Qt at the click.
        for (const QString &method : {u"Activate"_qs, u"ContextMenu"_qs}) {
            QVERIFY(!qtMenuShown());
            QCOMPARE(callItem(u"/StatusNotifierItem"_qs, u"org.kde.StatusNotifierItem"_qs, method, {40, 40}).type(),
                     QDBusMessage::ReplyMessage);
            QTRY_VERIFY_WITH_TIMEOUT(qtMenuShown(), patience);
            QProcess::execute(u"xdotool"_qs, {u"key"_qs, u"Escape"_qs});
            QTRY_VERIFY_WITH_TIMEOUT(!qtMenuShown(), patience);
        }

        // The daemon comes up, stopped and signed out.
        SimulatedDaemon::Options options;
        options.wantRunning = false;
        options.session = SimulatedDaemon::Session::SignedOut;
        options.loginDelaySeconds = -1;
        options.connectDelaySeconds = 0.5;
        startDaemon(options);
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
        QTRY_COMPARE_WITH_TIMEOUT(rows().value(1), u"(off) Connected"_qs, patience);
        // The DNS name is shortened in the middle to the row's width, as the device row draws it.
        QStringList shown = rows();
        const QString name = shown.takeAt(4);
        QVERIFY2(name.startsWith(u"(off) maria-workstation."_qs) && name.contains(u'\u2026')
                     && name.endsWith(u"veltrane.net"_qs),
                 qPrintable(name));
        QCOMPARE(shown, menu(u"Connected"_qs, {u"Disconnect"_qs, u"(off) 100.64.0.1 \u00b7 maria.lopez@acme.example"_qs,
                                               u"Peers\u2026"_qs, u"Log out"_qs}));
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

        // Daemon text shows as typed: "_" is escaped for the panel, "&" means nothing there.
        m_server->setScriptedReply("{\"success\":true,\"status\":{\"membershipState\":\"membership_active\","
                                   "\"selfFqdn\":\"build_box & co\",\"assignedIp\":\"100.64.0.2\"}}\n");
        m_server->setFault(Fault::Scripted, u"get_status"_qs);
        QTRY_VERIFY_WITH_TIMEOUT(rows().contains(u"(off) build__box & co"_qs), patience);

        QCOMPARE(m_desktop->notifications->notices(),
                 (QStringList{u"Sign-in \u2014 Complete the sign-in in your browser. Veltrane will pick up the "
                              u"session automatically."_qs,
                              u"Signed in \u2014 The daemon picked up your session."_qs}));

        click(u"Quit Veltrane"_qs);
        QVERIFY(app->waitForFinished(patience));
        QCOMPARE(app->exitStatus(), QProcess::NormalExit);
        QCOMPARE(app->exitCode(), 0);
    }

    // Autostarted before the panel: the item appears once the panel does, and registers again
    // with a panel that replaces it.
    void registersWithEveryPanel()
    {
        m_desktop = std::make_unique<Desktop>(false);
        QProcess *app = launchApp();
        QTest::qWait(2500);
        QCOMPARE(app->state(), QProcess::Running);
        m_desktop->startPanel();
        QTRY_COMPARE_WITH_TIMEOUT(m_desktop->watcher->items().size(), 1, patience);
        QTRY_COMPARE_WITH_TIMEOUT(toolTipTitle(), u"Veltrane \u2014 Disconnected"_qs, patience);

        m_desktop->startPanel();
        QTRY_COMPARE_WITH_TIMEOUT(m_desktop->watcher->items().size(), 2, patience);
        QCOMPARE(m_desktop->watcher->items().value(1), m_desktop->watcher->items().value(0));
        QCOMPARE(toolTipTitle(), u"Veltrane \u2014 Disconnected"_qs);
    }

    // A poll that changes nothing sends nothing; a change of state sends one icon change, one
    // tooltip change and one menu update.
    void sendsOnlyWhatChanged()
    {
        m_desktop = std::make_unique<Desktop>(true);
        SimulatedDaemon::Options options;
        options.connectDelaySeconds = 0;
        startDaemon(options);
        launchApp();
        QTRY_COMPARE_WITH_TIMEOUT(rows().value(1), u"(off) Connected"_qs, patience);

        BusMonitor monitor(m_desktop->watcher->items().value(0));
        const qsizetype served = statusRequests();
        QTRY_VERIFY_WITH_TIMEOUT(statusRequests() >= served + 3, 4 * patience);
        QCOMPARE(monitor.messages(), QStringList());

        m_server->setScriptedReply("{\"success\":true,\"status\":{\"wantRunning\":true,"
                                   "\"membershipState\":\"no_active_memberships\"}}\n");
        m_server->setFault(Fault::Scripted, u"get_status"_qs);
        const QStringList oneChange{u"sig NewIcon"_qs, u"sig NewToolTip"_qs, u"sig ItemsPropertiesUpdated"_qs};
        QTRY_COMPARE_WITH_TIMEOUT(monitor.messages(), oneChange, patience);
        const qsizetype changed = statusRequests();
        QTRY_VERIFY_WITH_TIMEOUT(statusRequests() >= changed + 2, 3 * patience);
        QCOMPARE(monitor.messages(), oneChange);
        QCOMPARE(toolTipTitle(), u"Veltrane \u2014 Connected, no network"_qs);
    }
};

QTEST_GUILESS_MAIN(TestDesktop)
#include "tst_desktop.moc"
