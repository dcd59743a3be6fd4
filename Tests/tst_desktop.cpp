// The installed app as a Linux desktop sees it: under Xvfb and a private session bus, with a
// panel's StatusNotifierWatcher and a notification server played by this test, and the
// simulated daemon behind the app's fixed socket path. The test reads what the panel would
// show (the item's tooltip and icon, the exported menu), clicks rows as the panel does, and
// checks every notice.
#include "DesktopPeers.h"
#include "SimulatedDaemon.h"
#include "SimulatorServer.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Veltrane::Simulator;

namespace {

constexpr int patience = 12000; // milliseconds: a poll comes every 3 s

struct MenuNode {
    int id = 0;
    QVariantMap properties;
    QList<MenuNode> children;

    QString label() const { return properties.value(u"label"_qs).toString(); }
    bool visible() const { return properties.value(u"visible"_qs, true).toBool(); }
    bool enabled() const { return properties.value(u"enabled"_qs, true).toBool(); }
    bool separator() const { return properties.value(u"type"_qs).toString() == u"separator"; }
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

struct IconImage {
    int width = 0;
    int height = 0;
    QByteArray argb; // network byte order
};

QList<IconImage> readImages(const QDBusArgument &argument)
{
    QList<IconImage> images;
    argument.beginArray();
    while (!argument.atEnd()) {
        IconImage image;
        argument.beginStructure();
        argument >> image.width >> image.height >> image.argb;
        argument.endStructure();
        images.append(image);
    }
    argument.endArray();
    return images;
}

QColor pixel(const IconImage &image, int x, int y)
{
    const auto *bytes = reinterpret_cast<const uchar *>(image.argb.constData()) + 4 * (y * image.width + x);
    return QColor(bytes[1], bytes[2], bytes[3], bytes[0]);
}

} // namespace

class TestDesktop : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    std::unique_ptr<DesktopPeers> m_desktop;
    std::unique_ptr<SimulatedDaemon> m_daemon;
    std::unique_ptr<SimulatorServer> m_server;
    std::vector<std::unique_ptr<QProcess>> m_apps;
    QDBusConnection m_bus = QDBusConnection::sessionBus();

    QString daemonDirectory() const { return m_dir.filePath(u"run-veltrane"_qs); }
    QString openedLinksFile() const { return m_dir.filePath(u"opened-links"_qs); }

    QProcess *launchApp()
    {
        auto process = std::make_unique<QProcess>();
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"QT_QPA_PLATFORM"_qs, u"xcb"_qs);
        // The browser: a stand-in for xdg-open that notes the link it was asked to open.
        environment.insert(u"PATH"_qs, m_dir.filePath(u"bin"_qs) + u':' + environment.value(u"PATH"_qs));
        process->setProcessEnvironment(environment);
        process->setProcessChannelMode(QProcess::ForwardedChannels);
        process->start(QStringLiteral(VELTRANE_SOURCE_DIR "/scripts/with-daemon-socket.sh"),
                       {daemonDirectory(), QStringLiteral(VELTRANE_INSTALL_PREFIX "/bin/veltrane-tray")});
        if (!process->waitForStarted())
            qFatal("cannot start the app");
        m_apps.push_back(std::move(process));
        return m_apps.back().get();
    }

    void startDaemon()
    {
        SimulatedDaemon::Options options;
        options.wantRunning = false;
        options.session = SimulatedDaemon::Session::SignedOut;
        options.loginDelaySeconds = -1;
        options.connectDelaySeconds = 0.5;
        m_daemon = std::make_unique<SimulatedDaemon>(options);
        m_server = std::make_unique<SimulatorServer>(*m_daemon);
        QCOMPARE(m_server->listen(daemonDirectory() + u"/daemon.sock"_qs), std::nullopt);
    }

    // The tray item as the panel found it: bus name and object path.
    std::pair<QString, QString> item() const
    {
        const QStringList registrations = m_desktop->watcher->registrations();
        if (registrations.isEmpty())
            return {};
        const QString sender = registrations.first().section(u' ', 0, 0);
        const QString argument = registrations.first().section(u' ', 1);
        if (argument.startsWith(u'/'))
            return {sender, argument};
        return {argument, u"/StatusNotifierItem"_qs};
    }

    QVariant itemProperty(const QString &name) const
    {
        const auto [service, path] = item();
        QDBusMessage get = QDBusMessage::createMethodCall(service, path, u"org.freedesktop.DBus.Properties"_qs, u"Get"_qs);
        get << u"org.kde.StatusNotifierItem"_qs << name;
        const QDBusMessage reply = m_bus.call(get);
        if (reply.type() != QDBusMessage::ReplyMessage)
            return {};
        return qvariant_cast<QDBusVariant>(reply.arguments().value(0)).variant();
    }

    QString toolTipTitle() const
    {
        const QVariant toolTip = itemProperty(u"ToolTip"_qs);
        if (!toolTip.isValid())
            return {};
        const QDBusArgument argument = qvariant_cast<QDBusArgument>(toolTip);
        QString iconName, title, subtitle;
        argument.beginStructure();
        argument >> iconName;
        readImages(argument);
        argument >> title >> subtitle;
        argument.endStructure();
        return title;
    }

    // The colour at the centre of the state dot, in the item's 22-pixel icon.
    QColor dotColour() const
    {
        const QVariant pixmaps = itemProperty(u"IconPixmap"_qs);
        if (!pixmaps.isValid())
            return {};
        for (const IconImage &image : readImages(qvariant_cast<QDBusArgument>(pixmaps))) {
            if (image.width == 22 && image.height == 22)
                return pixel(image, 16, 16);
        }
        return {};
    }

    MenuNode menu() const
    {
        const auto [service, path] = item();
        const QDBusObjectPath menuPath = qvariant_cast<QDBusObjectPath>(itemProperty(u"Menu"_qs));
        QDBusMessage call = QDBusMessage::createMethodCall(service, menuPath.path(), u"com.canonical.dbusmenu"_qs, u"GetLayout"_qs);
        call << 0 << -1 << QStringList();
        const QDBusMessage reply = m_bus.call(call);
        if (reply.type() != QDBusMessage::ReplyMessage)
            return {};
        return readNode(qvariant_cast<QDBusArgument>(reply.arguments().value(1)));
    }

    // The menu as the panel draws it: visible rows, "—" for separators, "(off)" for disabled rows.
    QStringList rows() const
    {
        QStringList rows;
        for (const MenuNode &node : menu().children) {
            if (!node.visible())
                continue;
            if (node.separator())
                rows.append(u"\u2014"_qs);
            else
                rows.append((node.enabled() ? QString() : u"(off) "_qs) + node.label());
        }
        return rows;
    }

    void click(const QString &label)
    {
        const auto [service, path] = item();
        const QDBusObjectPath menuPath = qvariant_cast<QDBusObjectPath>(itemProperty(u"Menu"_qs));
        for (const MenuNode &node : menu().children) {
            if (node.label() != label || !node.visible())
                continue;
            QDBusMessage event = QDBusMessage::createMethodCall(service, menuPath.path(), u"com.canonical.dbusmenu"_qs, u"Event"_qs);
            event << node.id << u"clicked"_qs << QVariant::fromValue(QDBusVariant(0)) << uint(0);
            const QDBusMessage reply = m_bus.call(event);
            QVERIFY2(reply.type() == QDBusMessage::ReplyMessage, qPrintable(reply.errorMessage()));
            return;
        }
        QFAIL(qPrintable(u"no visible row "_qs + label));
    }

    // Whether X shows a window titled "Veltrane — Peers".
    static bool peersWindowShown()
    {
        QProcess tree;
        tree.start(u"xwininfo"_qs, {u"-root"_qs, u"-tree"_qs});
        tree.waitForFinished();
        for (const QByteArray &line : tree.readAllStandardOutput().split('\n')) {
            // The title exactly, with nothing appended to it.
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
        QVERIFY(m_bus.isConnected());
        QVERIFY(QFile::exists(QStringLiteral(VELTRANE_INSTALL_PREFIX "/share/applications/net.veltrane.tray.desktop")));
        QVERIFY(QDir(m_dir.path()).mkpath(u"bin"_qs));
        QVERIFY(QDir(m_dir.path()).mkpath(u"run-veltrane"_qs));
        QFile browser(m_dir.filePath(u"bin/xdg-open"_qs));
        QVERIFY(browser.open(QIODevice::WriteOnly));
        browser.write("#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" + openedLinksFile().toUtf8() + "'\n");
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
        m_daemon.reset();
        m_desktop.reset();
        QFile::remove(daemonDirectory() + u"/daemon.sock"_qs);
    }

    void wholeSession()
    {
        m_desktop = std::make_unique<DesktopPeers>(true);
        m_desktop->startAndWait();
        QProcess *app = launchApp();
        const QString quit = u"Quit Veltrane"_qs;
        const QString rule = u"\u2014"_qs;
        const QString title = u"(off) Veltrane"_qs;

        // No daemon yet.
        QTRY_COMPARE_WITH_TIMEOUT(m_desktop->watcher->registrations().size(), 1, patience);
        QTRY_COMPARE_WITH_TIMEOUT(rows(), (QStringList{title, u"(off) Disconnected"_qs, rule, u"(off) Connect"_qs, rule, quit}), patience);
        QCOMPARE(toolTipTitle(), u"Veltrane \u2014 Disconnected"_qs);
        QCOMPARE(dotColour(), QColor(239, 68, 68));

        // The daemon comes up, stopped and signed out.
        startDaemon();
        QTRY_COMPARE_WITH_TIMEOUT(rows(), (QStringList{title, u"(off) Disconnected"_qs, rule, u"Connect"_qs, rule, quit}), patience);
        QCOMPARE(dotColour(), QColor(100, 116, 139));

        click(u"Connect"_qs);
        QTRY_COMPARE_WITH_TIMEOUT(rows(), (QStringList{title, u"(off) Connected, needs auth"_qs, rule, u"Disconnect"_qs,
                                                       u"Log in\u2026"_qs, rule, quit}), patience);
        QCOMPARE(toolTipTitle(), u"Veltrane \u2014 Connected, needs auth"_qs);

        // Signing in: the link goes to the browser, and the daemon's pickup is told once.
        click(u"Log in\u2026"_qs);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(openedLinksFile()), patience);
        QTRY_COMPARE_WITH_TIMEOUT(m_desktop->notifications->notices().size(), 1, patience);
        QFile links(openedLinksFile());
        QVERIFY(links.open(QIODevice::ReadOnly));
        QVERIFY(links.readAll().startsWith("https://login.veltrane.example/a/VLT-"));
        m_daemon->approveLogin();
        const QStringList connected{title, u"(off) Connected"_qs, rule, u"Disconnect"_qs,
                                    u"(off) maria-workstation.acme-engineering.veltrane.net"_qs,
                                    u"(off) 100.64.0.1 \u00b7 maria.lopez@acme.example"_qs,
                                    u"Peers\u2026"_qs, u"Log out"_qs, rule, quit};
        QTRY_COMPARE_WITH_TIMEOUT(rows(), connected, patience);
        QCOMPARE(toolTipTitle(), u"Veltrane \u2014 Connected"_qs);
        QCOMPARE(dotColour(), QColor(34, 197, 94));

        click(u"Peers\u2026"_qs);
        QTRY_VERIFY_WITH_TIMEOUT(peersWindowShown(), patience);

        // A second instance leaves at once, and the first is unaffected.
        QProcess *second = launchApp();
        QVERIFY(second->waitForFinished(patience));
        QCOMPARE(second->exitStatus(), QProcess::NormalExit);
        QCOMPARE(second->exitCode(), 0);
        QCOMPARE(m_desktop->watcher->registrations().size(), 1);
        QCOMPARE(app->state(), QProcess::Running);

        click(u"Disconnect"_qs);
        QTRY_COMPARE_WITH_TIMEOUT(rows(), (QStringList{title, u"(off) Disconnected"_qs, rule, u"Connect"_qs, rule, quit}), patience);

        // Daemon text shows as typed: "_" and "&" are escaped for the panel.
        m_server->setScriptedReply("{\"success\":true,\"status\":{\"membershipState\":\"membership_active\","
                                  "\"selfFqdn\":\"build_box & co\",\"assignedIp\":\"100.64.0.2\"}}\n");
        m_server->setFault(Fault::Scripted, u"get_status"_qs);
        QTRY_VERIFY_WITH_TIMEOUT(rows().contains(u"(off) build__box _& co"_qs), patience);

        QCOMPARE(m_desktop->notifications->notices(),
                 (QStringList{u"Sign-in \u2014 Complete the sign-in in your browser. Veltrane will pick up the session automatically."_qs,
                              u"Signed in \u2014 The daemon picked up your session."_qs}));

        click(quit);
        QVERIFY(app->waitForFinished(patience));
        QCOMPARE(app->exitStatus(), QProcess::NormalExit);
        QCOMPARE(app->exitCode(), 0);
    }

    // Autostarted before the panel: the item appears once the panel does.
    void appearsWhenThePanelComesLate()
    {
        m_desktop = std::make_unique<DesktopPeers>(false);
        m_desktop->startAndWait();
        QProcess *app = launchApp();
        QTest::qWait(2500);
        QCOMPARE(app->state(), QProcess::Running);
        QVERIFY(m_desktop->watcher->registrations().isEmpty());
        m_desktop->startPanel();
        QTRY_COMPARE_WITH_TIMEOUT(m_desktop->watcher->registrations().size(), 1, patience);
        QTRY_COMPARE_WITH_TIMEOUT(toolTipTitle(), u"Veltrane \u2014 Disconnected"_qs, patience);
        QVERIFY(rows().contains(u"Quit Veltrane"_qs));
    }
};

QTEST_GUILESS_MAIN(TestDesktop)
#include "tst_desktop.moc"
