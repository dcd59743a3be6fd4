#include "TrayState.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace Veltrane;

Q_DECLARE_METATYPE(std::optional<DaemonStatusSnapshot>)
Q_DECLARE_METATYPE(TrayState)

namespace {

std::optional<DaemonStatusSnapshot> snapshot(std::optional<bool> wantRunning,
                                             std::optional<QString> membershipState)
{
    DaemonStatusSnapshot status;
    status.wantRunning = wantRunning;
    status.membershipState = membershipState;
    return status;
}

} // namespace

class TestTrayState : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void derivesStateFromSnapshot_data()
    {
        QTest::addColumn<std::optional<DaemonStatusSnapshot>>("snapshot");
        QTest::addColumn<TrayState>("expected");
        const std::optional<bool> absent;
        const auto active = std::optional(u"membership_active"_s);

        QTest::newRow("no snapshot") << std::optional<DaemonStatusSnapshot>() << TrayState::DaemonUnreachable;
        QTest::newRow("empty snapshot") << std::optional(DaemonStatusSnapshot{}) << TrayState::Connecting;
        QTest::newRow("stopped outranks active") << snapshot(false, active) << TrayState::Stopped;
        QTest::newRow("stopped without membership") << snapshot(false, {}) << TrayState::Stopped;
        QTest::newRow("want running absent") << snapshot(absent, active) << TrayState::Connected;
        QTest::newRow("want running, no membership") << snapshot(true, {}) << TrayState::Connecting;
        QTest::newRow("letter case matters") << snapshot(true, u"Membership_Active"_s) << TrayState::Connecting;
        QTest::newRow("unknown membership") << snapshot(true, u"nodemap_stream_opening"_s) << TrayState::Connecting;
        QTest::newRow("node map open") << snapshot(true, u"nodemap_stream_open"_s) << TrayState::Connected;
        QTest::newRow("no memberships") << snapshot(true, u"no_active_memberships"_s) << TrayState::NoNetwork;
        QTest::newRow("awaiting login") << snapshot(true, u"awaiting_login"_s) << TrayState::LoggedOut;
        QTest::newRow("session revoked") << snapshot(absent, u"session_revoked"_s) << TrayState::LoggedOut;
        QTest::newRow("invalid snapshot") << snapshot(true, u"invalid_snapshot"_s) << TrayState::Error;

        auto dataPlaneDown = snapshot(true, active);
        dataPlaneDown->isDataPlaneActive = false;
        dataPlaneDown->connectableDevices = QList<ConnectableDeviceSnapshot>();
        QTest::newRow("data plane is not consulted") << dataPlaneDown << TrayState::Connected;
    }

    void derivesStateFromSnapshot()
    {
        QFETCH(std::optional<DaemonStatusSnapshot>, snapshot);
        QFETCH(TrayState, expected);
        QCOMPARE(trayStateFrom(snapshot), expected);
    }
};

QTEST_GUILESS_MAIN(TestTrayState)
#include "tst_traystate.moc"
