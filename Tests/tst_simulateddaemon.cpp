#include "DaemonProtocol.h"
#include "PeerGenerator.h"
#include "SimulatedDaemon.h"
#include "TrayState.h"

#include <QSet>
#include <QTest>

using namespace Veltrane;
using namespace Veltrane::Simulator;

class TestSimulatedDaemon : public QObject
{
    Q_OBJECT

private:
    static DaemonControlResponse ask(SimulatedDaemon &daemon, const char *command)
    {
        const auto decoded = DaemonProtocol::decodeResponse(
            daemon.reply(DaemonProtocol::encodeRequest({QString::fromLatin1(command)}).chopped(1)));
        if (const auto *failure = std::get_if<DecodeFailure>(&decoded)) {
            QTest::qFail(qPrintable(failure->description), __FILE__, __LINE__);
            return {};
        }
        return std::get<DaemonControlResponse>(decoded);
    }

    static TrayState stateOf(SimulatedDaemon &daemon) { return trayStateFrom(ask(daemon, "get_status").status); }

private Q_SLOTS:
    void peersAreUniqueVariedAndReproducible()
    {
        const auto peers = generatePeers(10000, 42, u"n"_qs, u"Net"_qs);
        QCOMPARE(peers.size(), 10000);
        QCOMPARE(generatePeers(10000, 42, u"n"_qs, u"Net"_qs), peers);
        QVERIFY(generatePeers(50, 43, u"n"_qs, u"Net"_qs) != peers.mid(0, 50));

        QSet<QString> hosts, addresses, clients;
        int offline = 0, emptyComputerName = 0, noHostName = 0;
        for (const auto &peer : peers) {
            hosts.insert(peer.fqdn.value());
            addresses.insert(peer.assignedIp.value());
            clients.insert(peer.clientId.value());
            offline += !peer.online.value();
            emptyComputerName += peer.computerName && peer.computerName->isEmpty();
            noHostName += !peer.hostName;
            QVERIFY(!peer.displayName().isEmpty());
            const auto rtt = peer.connectionStatus->roundTripTimeMilliseconds;
            QCOMPARE(rtt.has_value(), peer.online.value());
        }
        QCOMPARE(hosts.size(), 10000);
        QCOMPARE(addresses.size(), 10000);
        QCOMPARE(clients.size(), 10000);
        QVERIFY(offline > 500 && offline < 3000);
        QVERIFY(emptyComputerName > 100 && noHostName > 50);
    }

    void signInByLinkThenTrigger()
    {
        SimulatedDaemon::Options options;
        options.session = SimulatedDaemon::Session::SignedOut;
        options.loginDelaySeconds = -1;
        options.connectDelaySeconds = 0;
        SimulatedDaemon daemon(options);
        QCOMPARE(stateOf(daemon), TrayState::LoggedOut);
        QCOMPARE(ask(daemon, "logout").error, u"Not signed in."_qs);

        const auto login = ask(daemon, "login_via_link");
        QVERIFY(login.succeeded());
        QVERIFY(login.login->loginUrl->startsWith(u"https://"_qs));
        QCOMPARE(stateOf(daemon), TrayState::LoggedOut);
        daemon.approveLogin();
        QCOMPARE(stateOf(daemon), TrayState::Connected);
        QVERIFY(!ask(daemon, "login_via_link").succeeded());

        QVERIFY(ask(daemon, "stop").succeeded());
        QCOMPARE(stateOf(daemon), TrayState::Stopped);
        QVERIFY(ask(daemon, "start").succeeded());
        QCOMPARE(stateOf(daemon), TrayState::Connected);
        QVERIFY(ask(daemon, "logout").succeeded());
        QCOMPARE(stateOf(daemon), TrayState::LoggedOut);
        QCOMPARE(ask(daemon, "reboot").error, u"Unknown command \u201creboot\u201d."_qs);
    }

    void signInCompletesAfterItsDelayThroughConnecting()
    {
        SimulatedDaemon::Options options;
        options.session = SimulatedDaemon::Session::SignedOut;
        options.loginDelaySeconds = 0.1;
        options.connectDelaySeconds = 0.2;
        options.noNetwork = true;
        SimulatedDaemon daemon(options);
        ask(daemon, "login_via_link");
        QTRY_COMPARE(stateOf(daemon), TrayState::Connecting);
        QTRY_COMPARE(stateOf(daemon), TrayState::NoNetwork);
    }
};

QTEST_GUILESS_MAIN(TestSimulatedDaemon)
#include "tst_simulateddaemon.moc"
