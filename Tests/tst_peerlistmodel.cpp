#include "PeerListModel.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace Veltrane;

namespace {

ConnectableDeviceSnapshot named(std::optional<QString> computerName, std::optional<QString> hostName = {},
                                std::optional<QString> fqdn = {}, std::optional<QString> clientId = {})
{
    ConnectableDeviceSnapshot device;
    device.computerName = std::move(computerName);
    device.hostName = std::move(hostName);
    device.fqdn = std::move(fqdn);
    device.clientId = std::move(clientId);
    return device;
}

std::optional<DaemonStatusSnapshot> snapshotOf(const QList<ConnectableDeviceSnapshot> &devices)
{
    DaemonStatusSnapshot snapshot;
    snapshot.connectableDevices = devices;
    return snapshot;
}

// Each device as its display name, and its client id after a slash when it has one.
QStringList listed(const QList<ConnectableDeviceSnapshot> &devices)
{
    QStringList names;
    for (const ConnectableDeviceSnapshot &device : devices)
        names.append(device.displayName() + (device.clientId ? u"/"_s + *device.clientId : QString()));
    return names;
}

ConnectableDeviceSnapshot peer(std::optional<bool> online, std::optional<NodeConnectionStatusSnapshot> path)
{
    ConnectableDeviceSnapshot device = named(u"Lab"_s, {}, u"lab.example.ts.net"_s);
    device.assignedIp = u"100.64.0.9"_s;
    device.online = online;
    device.connectionStatus = std::move(path);
    return device;
}

} // namespace

class TestPeerListModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Case-insensitive, locale-aware and stable: equal names keep the daemon's order. A session in
    // the C locale sorts the same way.
    void sortsByDisplayName_data()
    {
        QTest::addColumn<QLocale>("locale");
        QTest::addColumn<QList<ConnectableDeviceSnapshot>>("devices");
        QTest::addColumn<QStringList>("expected");
        const QList mixed{named(u"bob"_s, {}, {}, u"1"_s), named(u"Zoë"_s), named(u"alice"_s, {}, {}, u"2"_s),
                          named(u"Émile"_s), named(u"Alice"_s, {}, {}, u"3"_s), named({}, {}, {})};
        const QStringList sorted{QString(), u"alice/2"_s, u"Alice/3"_s, u"bob/1"_s, u"Émile"_s, u"Zoë"_s};
        QTest::newRow("English") << QLocale(QLocale::English, QLocale::UnitedStates) << mixed << sorted;
        QTest::newRow("C") << QLocale::c() << mixed << sorted;
        QTest::newRow("computer name before host name")
            << QLocale(QLocale::English) << QList{named(u"Office"_s, u"aaa-office-mbp"_s), named({}, u"build-01"_s)}
            << QStringList{u"build-01"_s, u"Office"_s};
    }

    void sortsByDisplayName()
    {
        QFETCH(QLocale, locale);
        QFETCH(QList<ConnectableDeviceSnapshot>, devices);
        QFETCH(QStringList, expected);
        QLocale::setDefault(locale); // the model collates under the locale of its making
        PeerListModel model;
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        model.applySnapshot(snapshotOf(devices));
        QCOMPARE(listed(model.allDevices()), expected);
        QCOMPARE(model.rowCount(), expected.size());
    }

    // Sort keys and search texts are reused between snapshots; a renamed device must still move to
    // its new place, and be found by its new name only, also in a list of the same size.
    void followsRenamedDevices()
    {
        PeerListModel model;
        model.setSearchText(u"a"_s);
        model.applySnapshot(snapshotOf({named(u"beta"_s, {}, {}, u"b"_s), named(u"alpha"_s, {}, {}, u"a"_s)}));
        QCOMPARE(listed(model.allDevices()), (QStringList{u"alpha/a"_s, u"beta/b"_s}));
        model.setSearchText(u"alp"_s);
        QCOMPARE(listed(model.filteredDevices()), QStringList{u"alpha/a"_s});
        model.applySnapshot(snapshotOf({named(u"beta"_s, {}, {}, u"b"_s), named(u"gamma"_s, {}, {}, u"a"_s)}));
        QCOMPARE(listed(model.allDevices()), (QStringList{u"beta/b"_s, u"gamma/a"_s}));
        QCOMPARE(listed(model.filteredDevices()), QStringList());
        model.setSearchText(u"gam"_s);
        QCOMPARE(listed(model.filteredDevices()), QStringList{u"gamma/a"_s});
        model.applySnapshot(std::nullopt);
        QCOMPARE(model.rowCount(), 0);
    }

    // Only rows that read differently are announced, whatever moved them there; a status that
    // changes nothing repaints nothing.
    void announcesOnlyChangedRows()
    {
        PeerListModel model;
        QList<ConnectableDeviceSnapshot> devices{named(u"a"_s), named(u"b"_s), named(u"c"_s), named(u"d"_s)};
        model.applySnapshot(snapshotOf(devices));
        QSignalSpy changes(&model, &PeerListModel::dataChanged);
        model.applySnapshot(snapshotOf(devices));
        QCOMPARE(changes.size(), 0);
        QVERIFY(!devices.isDetached()); // the model holds the records it was given, not copies
        devices[3].connectionStatus = NodeConnectionStatusSnapshot{{}, {}, 12.0};
        model.applySnapshot(snapshotOf(devices));
        devices[3].connectionStatus->roundTripTimeMilliseconds = 13.0;
        model.applySnapshot(snapshotOf(devices));
        devices[3].connectionStatus->endpoint = u"203.0.113.9:41641"_s;
        model.applySnapshot(snapshotOf(devices));
        QCOMPARE(changes.size(), 3);
        QCOMPARE(changes[1][0].toModelIndex().row(), 3);
        QCOMPARE(changes[2][0].toModelIndex().row(), 3);
        changes.clear();
        devices[1].assignedIp = u"100.64.0.2"_s;
        devices[2].assignedIp = u"100.64.0.3"_s;
        model.applySnapshot(snapshotOf(devices));
        QCOMPARE(changes.size(), 1);
        QCOMPARE(changes[0][0].toModelIndex().row(), 1);
        QCOMPARE(changes[0][1].toModelIndex().row(), 2);
        model.setSearchText(u"c"_s); // "c" moves up to the first row; row 1 and on go
        QCOMPARE(changes.size(), 2);
        QCOMPARE(changes[1][0].toModelIndex().row(), 0);
        QCOMPARE(changes[1][1].toModelIndex().row(), 0);
    }

    void searchesNameThenDnsNameThenAddress_data()
    {
        QTest::addColumn<QString>("searchText");
        QTest::addColumn<QStringList>("expected");
        const QStringList all{u"Café"_s, u"macbook"_s, u"Office"_s, u"öffice"_s, u"printer"_s, u"Straße"_s};
        QTest::newRow("trimmed, any case") << u"  MAC "_s << QStringList{u"macbook"_s};
        QTest::newRow("an address") << u"10.7"_s << QStringList{u"printer"_s};
        QTest::newRow("a DNS name") << u"lab.corp"_s << QStringList{u"Office"_s};
        QTest::newRow("host name behind a computer name") << u"mbp"_s << QStringList{};
        QTest::newRow("network name and client id") << u"secret"_s << QStringList{};
        QTest::newRow("blanks and tabs only") << u" \t\u00a0\u2003"_s << all;
        QTest::newRow("one string, not words") << u"mac book"_s << QStringList{};
        QTest::newRow("case folds beyond ASCII, accents stay") << u"ÖFFICE"_s << QStringList{u"öffice"_s};
        QTest::newRow("full case folding") << u"STRASSE"_s << QStringList{u"Straße"_s};
        QTest::newRow("a combining accent finds a precomposed one") << u"cafe\u0301"_s << QStringList{u"Café"_s};
        QTest::newRow("without its accent, no match") << u"cafe"_s << QStringList{};
        QTest::newRow("a ligature is its letters") << u"\ufb01"_s << QStringList{u"Office"_s, u"öffice"_s};
    }

    void searchesNameThenDnsNameThenAddress()
    {
        QFETCH(QString, searchText);
        QFETCH(QStringList, expected);
        ConnectableDeviceSnapshot office = named(u"Office"_s, u"office-mbp"_s, u"lab.corp.example"_s, u"secret-id"_s);
        office.networkName = u"secret-net"_s;
        ConnectableDeviceSnapshot printer = named({}, u"printer"_s, u"prn.example"_s);
        printer.assignedIp = u"10.7.0.12"_s;
        PeerListModel model;
        model.setSearchText(searchText);
        model.applySnapshot(snapshotOf({printer, named(u"macbook"_s, {}, u"book.example"_s), office, named(u"öffice"_s),
                                        named(u"Stra\u00dfe"_s), named(u"Caf\u00e9"_s)}));
        QStringList shown;
        for (const ConnectableDeviceSnapshot &device : model.filteredDevices())
            shown.append(device.displayName());
        QCOMPARE(shown, expected);
    }

    // Two names tie in the order exactly when searching for one finds the other.
    void ordersAndSearchesAlike_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<bool>("alike");
        QTest::newRow("sharp s") << u"Stra\u00dfe"_s << u"STRASSE"_s << true;
        QTest::newRow("composed and decomposed") << u"Caf\u00e9"_s << u"CAFE\u0301"_s << true;
        QTest::newRow("final sigma") << u"\u03bb\u03cc\u03b3\u03bf\u03c2"_s << u"\u039b\u038c\u0393\u039f\u03a3"_s
                                     << true;
        QTest::newRow("accent") << u"caf\u00e9"_s << u"cafe"_s << false;
    }

    void ordersAndSearchesAlike()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(bool, alike);
        PeerListModel model;
        const auto order = [&](const QString &first, const QString &second) {
            model.applySnapshot(snapshotOf({named(first), named(second)}));
            return model.allDevices().first().displayName();
        };
        // Tied names keep the daemon's order either way round.
        QCOMPARE(order(a, b) == a && order(b, a) == b, alike);
        model.setSearchText(a);
        QCOMPARE(model.filteredDevices().size(), alike ? 2 : 1);
    }

    void cellsShowTextsAndTones_data()
    {
        QTest::addColumn<ConnectableDeviceSnapshot>("device");
        QTest::addColumn<QStringList>("texts");
        QTest::addColumn<bool>("statusSecondary");
        const auto path = [](std::optional<QString> state, std::optional<QString> endpoint, std::optional<double> rtt) {
            return std::optional(NodeConnectionStatusSnapshot{std::move(state), std::move(endpoint), rtt});
        };
        const QString ip = u"100.64.0.9"_s;
        QTest::newRow("online, a path") << peer(true, path(u"direct"_s, u"203.0.113.5:41641"_s, 23.6))
                                        << QStringList{u"Lab"_s, ip, u"direct"_s, u"203.0.113.5:41641"_s, u"24 ms"_s} << false;
        QTest::newRow("online, no path") << peer(true, {}) << QStringList{u"Lab"_s, ip, u"online"_s, {}, {}} << false;
        QTest::newRow("online, no state") << peer(true, path({}, {}, 0.4))
                                          << QStringList{u"Lab"_s, ip, u"online"_s, {}, u"0 ms"_s} << false;
        QTest::newRow("empty state and endpoint, zero time") << peer(true, path(u""_s, u""_s, 0))
                                                             << QStringList{u"Lab"_s, ip, {}, {}, {}} << false;
        QTest::newRow("offline, negative time") << peer(false, path(u"relay"_s, u"relay-fra1"_s, -3))
                                                << QStringList{u"Lab"_s, ip, u"offline"_s, u"relay-fra1"_s, {}} << true;
        QTest::newRow("online unknown, half rounds to even") << peer({}, path(u"direct"_s, {}, 2.5))
                                                             << QStringList{u"Lab"_s, ip, u"offline"_s, {}, u"2 ms"_s} << true;
        QTest::newRow("nothing known") << ConnectableDeviceSnapshot{} << QStringList{{}, {}, u"offline"_s, {}, {}} << true;
    }

    void cellsShowTextsAndTones()
    {
        QFETCH(ConnectableDeviceSnapshot, device);
        QFETCH(QStringList, texts);
        QFETCH(bool, statusSecondary);
        PeerListModel model;
        model.applySnapshot(snapshotOf({device}));
        const QList<bool> secondary{false, false, statusSecondary, true, true};
        for (int column = 0; column < PeerListModel::ColumnCount; ++column) {
            const QModelIndex index = model.index(0, column);
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
