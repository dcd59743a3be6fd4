#include "PeerGenerator.h"
#include "PeerListModel.h"

#include <QAbstractItemModelTester>
#include <QTest>

using namespace Veltrane;

namespace {

ConnectableDeviceSnapshot named(std::optional<QString> computerName, std::optional<QString> hostName = {},
                                std::optional<QString> fqdn = {})
{
    ConnectableDeviceSnapshot device;
    device.computerName = std::move(computerName);
    device.hostName = std::move(hostName);
    device.fqdn = std::move(fqdn);
    return device;
}

ConnectableDeviceSnapshot withClientId(ConnectableDeviceSnapshot device, const QString &clientId)
{
    device.clientId = clientId;
    return device;
}

std::optional<DaemonStatusSnapshot> snapshotOf(const QList<ConnectableDeviceSnapshot> &devices)
{
    DaemonStatusSnapshot snapshot;
    snapshot.connectableDevices = devices;
    return snapshot;
}

QStringList displayNames(const QList<ConnectableDeviceSnapshot> &devices)
{
    QStringList names;
    for (const ConnectableDeviceSnapshot &device : devices)
        names.append(device.displayName());
    return names;
}

QStringList clientIds(const QList<ConnectableDeviceSnapshot> &devices)
{
    QStringList ids;
    for (const ConnectableDeviceSnapshot &device : devices)
        ids.append(device.clientId.value_or(u"-"_qs));
    return ids;
}

// A device with a path to it, for the cell tests.
ConnectableDeviceSnapshot peer(std::optional<bool> online, std::optional<NodeConnectionStatusSnapshot> path)
{
    ConnectableDeviceSnapshot device = named(u"Lab"_qs, {}, u"lab.example.ts.net"_qs);
    device.assignedIp = u"100.64.0.9"_qs;
    device.online = online;
    device.connectionStatus = std::move(path);
    return device;
}

NodeConnectionStatusSnapshot path(std::optional<QString> state, std::optional<QString> endpoint,
                                  std::optional<double> roundTrip)
{
    return {std::move(state), std::move(endpoint), roundTrip};
}

} // namespace

class TestPeerListModel : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<PeerListModel> m_model;
    std::unique_ptr<QAbstractItemModelTester> m_tester;

    QStringList shownAfterSearch(const QList<ConnectableDeviceSnapshot> &devices, const QString &searchText)
    {
        m_model->setSearchText(searchText);
        m_model->applySnapshot(snapshotOf(devices));
        return displayNames(m_model->filteredDevices());
    }

private Q_SLOTS:
    // The model collates under the locale of its time of making.
    void init()
    {
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        m_model = std::make_unique<PeerListModel>();
        m_tester = std::make_unique<QAbstractItemModelTester>(m_model.get(), QAbstractItemModelTester::FailureReportingMode::QtTest);
    }

    void cleanup()
    {
        m_tester.reset();
        m_model.reset();
    }

    void sortsByDisplayNameIgnoringCaseAndKeepsTies_data()
    {
        QTest::addColumn<QList<ConnectableDeviceSnapshot>>("devices");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("case-insensitive, ties in daemon order")
            << QList{withClientId(named(u"bob"_qs), u"1"_qs), withClientId(named(u"Alice"_qs), u"2"_qs),
                     withClientId(named(u"alice"_qs), u"3"_qs)}
            << QStringList{u"Alice"_qs, u"alice"_qs, u"bob"_qs};
        QTest::newRow("the other tie order is kept too")
            << QList{named(u"alice"_qs), named(u"bob"_qs), named(u"Alice"_qs)}
            << QStringList{u"alice"_qs, u"Alice"_qs, u"bob"_qs};
        QTest::newRow("no name at all sorts first")
            << QList{named(u"zed"_qs), named({}, {}, {}), named(u"Amy"_qs)}
            << QStringList{QString(), u"Amy"_qs, u"zed"_qs};
        QTest::newRow("accented letters sort with their base letter")
            << QList{named(u"Zoë"_qs), named(u"Eve"_qs), named(u"Émile"_qs), named(u"Ömer"_qs)}
            << QStringList{u"Émile"_qs, u"Eve"_qs, u"Ömer"_qs, u"Zoë"_qs};
        QTest::newRow("computer name stands before host name")
            << QList{named(u"Office"_qs, u"aaa-office-mbp"_qs), named({}, u"build-01"_qs), named(u""_qs, u"nas"_qs)}
            << QStringList{u"build-01"_qs, u"nas"_qs, u"Office"_qs};
    }

    void sortsByDisplayNameIgnoringCaseAndKeepsTies()
    {
        QFETCH(QList<ConnectableDeviceSnapshot>, devices);
        QFETCH(QStringList, expected);
        m_model->applySnapshot(snapshotOf(devices));
        QCOMPARE(displayNames(m_model->allDevices()), expected);
        QCOMPARE(displayNames(m_model->filteredDevices()), expected);
        QCOMPARE(m_model->rowCount(), expected.size());
    }

    // A session in the C locale still sorts without regard to case, and accents with their letter.
    void sortsInTheCLocaleToo()
    {
        QLocale::setDefault(QLocale::c());
        PeerListModel model;
        model.applySnapshot(snapshotOf({named(u"bob"_qs), named(u"Zoë"_qs), named(u"alice"_qs), named(u"Émile"_qs), named(u"Alice"_qs)}));
        QCOMPARE(displayNames(model.allDevices()), (QStringList{u"alice"_qs, u"Alice"_qs, u"bob"_qs, u"Émile"_qs, u"Zoë"_qs}));
    }

    // Sort keys are reused between snapshots; a renamed device must still move to its new place.
    void resortsWhenNamesChangeBetweenSnapshots()
    {
        m_model->applySnapshot(snapshotOf({withClientId(named(u"beta"_qs), u"b"_qs), withClientId(named(u"alpha"_qs), u"a"_qs)}));
        QCOMPARE(clientIds(m_model->allDevices()), (QStringList{u"a"_qs, u"b"_qs}));
        m_model->applySnapshot(snapshotOf({withClientId(named(u"beta"_qs), u"b"_qs), withClientId(named(u"gamma"_qs), u"a"_qs)}));
        QCOMPARE(clientIds(m_model->allDevices()), (QStringList{u"b"_qs, u"a"_qs}));
        m_model->applySnapshot(snapshotOf({withClientId(named(u"Alpha"_qs), u"b"_qs), withClientId(named(u"gamma"_qs), u"a"_qs)}));
        QCOMPARE(clientIds(m_model->allDevices()), (QStringList{u"b"_qs, u"a"_qs}));
    }

    // A realistic network: the order is ascending under the collator throughout.
    void ordersAGeneratedNetwork()
    {
        m_model->applySnapshot(snapshotOf(Simulator::generatePeers(500, 3, u"n"_qs, u"Net"_qs)));
        QCollator collator;
        collator.setCaseSensitivity(Qt::CaseInsensitive);
        const QStringList names = displayNames(m_model->allDevices());
        QCOMPARE(names.size(), 500);
        for (qsizetype i = 1; i < names.size(); ++i)
            QVERIFY2(collator.compare(names[i - 1], names[i]) <= 0, qPrintable(names[i - 1] + u" > "_qs + names[i]));
    }

    void absentSnapshotOrListGivesNoRows()
    {
        m_model->applySnapshot(snapshotOf({named(u"a"_qs)}));
        QCOMPARE(m_model->rowCount(), 1);
        m_model->applySnapshot(std::nullopt);
        QCOMPARE(m_model->rowCount(), 0);
        m_model->applySnapshot(snapshotOf({named(u"a"_qs)}));
        m_model->applySnapshot(DaemonStatusSnapshot{});
        QCOMPARE(m_model->rowCount(), 0);
        QVERIFY(m_model->allDevices().isEmpty());
    }

    void searchesNameThenDnsNameThenAddress_data()
    {
        QTest::addColumn<QString>("searchText");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("trimmed and case-insensitive") << u"  MAC "_qs << QStringList{u"macbook"_qs};
        QTest::newRow("an address") << u"10.7"_qs << QStringList{u"printer"_qs};
        QTest::newRow("a DNS name") << u"lab.corp"_qs << QStringList{u"Office"_qs};
        QTest::newRow("host name behind a computer name is not searched") << u"mbp"_qs << QStringList{};
        QTest::newRow("network name and client id are not searched") << u"secret"_qs << QStringList{};
        QTest::newRow("blanks and tabs only show everything")
            << u" \t\u00a0\u2003"_qs << QStringList{u"macbook"_qs, u"Office"_qs, u"printer"_qs};
        QTest::newRow("empty shows everything") << QString() << QStringList{u"macbook"_qs, u"Office"_qs, u"printer"_qs};
        QTest::newRow("one string, not words") << u"mac book"_qs << QStringList{};
        QTest::newRow("a line break is not trimmed") << u"mac\n"_qs << QStringList{};
        QTest::newRow("accents are not folded") << u"ÖFFICE"_qs << QStringList{};
        QTest::newRow("non-ASCII letters fold their case") << u"ÉMILE"_qs << QStringList{};
        QTest::newRow("a letter found in every row") << u"E"_qs << QStringList{u"macbook"_qs, u"Office"_qs, u"printer"_qs};
    }

    void searchesNameThenDnsNameThenAddress()
    {
        QFETCH(QString, searchText);
        QFETCH(QStringList, expected);
        ConnectableDeviceSnapshot office = named(u"Office"_qs, u"office-mbp"_qs, u"lab.corp.example"_qs);
        office.networkName = u"secret-net"_qs;
        office.clientId = u"secret-id"_qs;
        ConnectableDeviceSnapshot printer = named({}, u"printer"_qs, u"prn.example"_qs);
        printer.assignedIp = u"10.7.0.12"_qs;
        const QList devices{printer, named(u"macbook"_qs, {}, u"book.example"_qs), office};
        QCOMPARE(shownAfterSearch(devices, searchText), expected);
    }

    void searchFoldsCaseBeyondAscii()
    {
        QCOMPARE(shownAfterSearch({named(u"Émile’s iPad"_qs), named(u"Eve"_qs)}, u"émile"_qs), QStringList{u"Émile’s iPad"_qs});
        QCOMPARE(shownAfterSearch({named(u"ÖMER"_qs), named(u"Eve"_qs)}, u"ömer"_qs), QStringList{u"ÖMER"_qs});
    }

    // The search text stays across snapshots; the filtered list follows every snapshot.
    void searchSurvivesSnapshots()
    {
        m_model->setSearchText(u"web"_qs);
        m_model->applySnapshot(snapshotOf({named(u"web-1"_qs), named(u"db-1"_qs)}));
        QCOMPARE(displayNames(m_model->filteredDevices()), QStringList{u"web-1"_qs});
        m_model->applySnapshot(snapshotOf({named(u"web-2"_qs), named(u"web-1"_qs), named(u"db-1"_qs)}));
        QCOMPARE(displayNames(m_model->filteredDevices()), (QStringList{u"web-1"_qs, u"web-2"_qs}));
        QCOMPARE(m_model->allDevices().size(), 3);
    }

    void findsRowsByExactClientId()
    {
        m_model->applySnapshot(snapshotOf({withClientId(named(u"b"_qs), u"nB"_qs), named(u"a"_qs),
                                          withClientId(named(u"c"_qs), u"nC"_qs)}));
        QCOMPARE(m_model->rowOfClientId(u"nC"_qs), 2);
        QCOMPARE(m_model->rowOfClientId(u"nB"_qs), 1);
        QCOMPARE(m_model->rowOfClientId(u"nc"_qs), -1);
        QCOMPARE(m_model->rowOfClientId(QString()), -1);
        QVERIFY(!m_model->device(3));
        QVERIFY(!m_model->device(-1));
        QCOMPARE(m_model->device(0)->displayName(), u"a"_qs);
    }

    void footerTellsTheStateOnly_data()
    {
        QTest::addColumn<TrayState>("state");
        QTest::addColumn<QString>("expected");
        QTest::newRow("unreachable") << TrayState::DaemonUnreachable << u"Control plane: unreachable (daemon not running)"_qs;
        QTest::newRow("stopped") << TrayState::Stopped << u"Control plane: suspended (veltrane stopped)"_qs;
        QTest::newRow("logged out") << TrayState::LoggedOut << u"Control plane: awaiting sign-in"_qs;
        QTest::newRow("connecting") << TrayState::Connecting << u"Control plane: connecting\u2026"_qs;
        QTest::newRow("no network") << TrayState::NoNetwork << u"Control plane: connected (no active network)"_qs;
        QTest::newRow("connected") << TrayState::Connected << u"Control plane: connected"_qs;
        QTest::newRow("error") << TrayState::Error << u"Control plane: error"_qs;
    }

    void footerTellsTheStateOnly()
    {
        QFETCH(TrayState, state);
        QFETCH(QString, expected);
        QCOMPARE(PeerListModel::footerText(state), expected);
    }

    void cellsShowTextsAndTones_data()
    {
        QTest::addColumn<ConnectableDeviceSnapshot>("device");
        QTest::addColumn<QStringList>("texts");
        QTest::addColumn<QList<bool>>("secondary");
        const QList<bool> statusPrimary{false, false, false, true, true};
        const QList<bool> statusSecondary{false, false, true, true, true};
        QTest::newRow("online with a path") << peer(true, path(u"direct"_qs, u"203.0.113.5:41641"_qs, 23.6))
            << QStringList{u"Lab"_qs, u"100.64.0.9"_qs, u"direct"_qs, u"203.0.113.5:41641"_qs, u"24 ms"_qs} << statusPrimary;
        QTest::newRow("online without a path") << peer(true, {})
            << QStringList{u"Lab"_qs, u"100.64.0.9"_qs, u"online"_qs, QString(), QString()} << statusPrimary;
        QTest::newRow("online, path without a state") << peer(true, path({}, {}, 0.4))
            << QStringList{u"Lab"_qs, u"100.64.0.9"_qs, u"online"_qs, QString(), u"0 ms"_qs} << statusPrimary;
        QTest::newRow("online, empty state and endpoint") << peer(true, path(u""_qs, u""_qs, 0))
            << QStringList{u"Lab"_qs, u"100.64.0.9"_qs, QString(), QString(), QString()} << statusPrimary;
        QTest::newRow("offline with a path") << peer(false, path(u"relay"_qs, u"relay-fra1"_qs, -3))
            << QStringList{u"Lab"_qs, u"100.64.0.9"_qs, u"offline"_qs, u"relay-fra1"_qs, QString()} << statusSecondary;
        QTest::newRow("online unknown") << peer({}, path(u"direct"_qs, {}, 2.5))
            << QStringList{u"Lab"_qs, u"100.64.0.9"_qs, u"offline"_qs, QString(), u"2 ms"_qs} << statusSecondary;
        QTest::newRow("nothing known") << ConnectableDeviceSnapshot{}
            << QStringList{QString(), QString(), u"offline"_qs, QString(), QString()} << statusSecondary;
    }

    void cellsShowTextsAndTones()
    {
        QFETCH(ConnectableDeviceSnapshot, device);
        QFETCH(QStringList, texts);
        QFETCH(QList<bool>, secondary);
        m_model->applySnapshot(snapshotOf({device}));
        for (int column = 0; column < PeerListModel::ColumnCount; ++column) {
            const QModelIndex index = m_model->index(0, column);
            QCOMPARE(index.data().toString(), texts[column]);
            QCOMPARE(index.data(PeerListModel::SecondaryTextRole).toBool(), secondary[column]);
            // The device cell's tip is the DNS name; the others repeat their own text.
            const QString tip = column == PeerListModel::DeviceColumn ? device.fqdn.value_or(QString()) : texts[column];
            QCOMPARE(index.data(Qt::ToolTipRole).toString(), tip);
        }
    }
};

QTEST_GUILESS_MAIN(TestPeerListModel)
#include "tst_peerlistmodel.moc"
