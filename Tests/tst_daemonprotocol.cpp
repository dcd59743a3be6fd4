#include "DaemonProtocol.h"
#include "PeerGenerator.h"
#include "SimulatedDaemon.h"

#include <QJsonDocument>
#include <QTest>

using namespace Veltrane;

Q_DECLARE_METATYPE(DaemonControlResponse)

class TestDaemonProtocol : public QObject
{
    Q_OBJECT

private:
    static DaemonControlResponse decoded(const QByteArray &line)
    {
        auto result = DaemonProtocol::decodeResponse(line);
        if (auto *failure = std::get_if<DecodeFailure>(&result))
            qFatal("unexpected decode failure: %s", qPrintable(failure->description));
        return std::get<DaemonControlResponse>(result);
    }

private Q_SLOTS:
    void requestBytesAreCompactWithOneLineFeed()
    {
        QCOMPARE(DaemonProtocol::encodeRequest({u"logout"_qs}), QByteArray("{\"command\":\"logout\"}\n"));
        QCOMPARE(DaemonProtocol::encodeRequest({u"get_status"_qs}),
                 QByteArray("{\"command\":\"get_status\"}\n"));
        QCOMPARE(DaemonProtocol::encodeRequest({u"say \"hi\"\n"_qs}),
                 QByteArray("{\"command\":\"say \\\"hi\\\"\\n\"}\n"));
    }

    void acceptsWellFormedReplies_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<DaemonControlResponse>("expected");

        QTest::newRow("empty object") << QByteArray("{}") << DaemonControlResponse{};

        DaemonControlResponse nullStatus;
        nullStatus.success = true;
        QTest::newRow("null is absent") << QByteArray(R"({"success":true,"status":null,"error":null})")
                                        << nullStatus;

        DaemonControlResponse unknownKeys;
        unknownKeys.success = false;
        unknownKeys.status = DaemonStatusSnapshot{};
        unknownKeys.status->membershipState = u"awaiting_login"_qs;
        QTest::newRow("unknown keys at every level")
            << QByteArray(R"({"extra":[1,{"a":null}],"success":false,)"
                          R"("status":{"future":{"x":"y"},"membershipState":"awaiting_login"}})")
            << unknownKeys;

        DaemonControlResponse numbers;
        numbers.status = DaemonStatusSnapshot{};
        numbers.status->connectableDevices = QList<ConnectableDeviceSnapshot>(4);
        const double rtts[] = {12, 12.5, -0.25, 1.5e3};
        for (int i = 0; i < 4; ++i)
            (*numbers.status->connectableDevices)[i].connectionStatus =
                NodeConnectionStatusSnapshot{{}, {}, rtts[i]};
        QTest::newRow("integral and fractional numbers")
            << QByteArray(R"({"status":{"connectableDevices":[)"
                          R"({"connectionStatus":{"roundTripTimeMilliseconds":12}},)"
                          R"({"connectionStatus":{"roundTripTimeMilliseconds":12.5}},)"
                          R"({"connectionStatus":{"roundTripTimeMilliseconds":-0.25}},)"
                          R"({"connectionStatus":{"roundTripTimeMilliseconds":1.5E3}}]}})")
            << numbers;

        // Integers of any length are numbers: beyond 64 bits they read as the nearest double. Digits
        // in strings stay text, also after an escaped quote.
        DaemonControlResponse longIntegers;
        longIntegers.code = u"\"123456789012345678901"_qs;
        longIntegers.status = DaemonStatusSnapshot{};
        longIntegers.status->connectableDevices = QList<ConnectableDeviceSnapshot>(2);
        (*longIntegers.status->connectableDevices)[0].connectionStatus =
            NodeConnectionStatusSnapshot{{}, {}, 123456789012345678901.0};
        (*longIntegers.status->connectableDevices)[1].connectionStatus =
            NodeConnectionStatusSnapshot{{}, {}, 18446744073709551615.0};
        QTest::newRow("integers beyond 64 bits")
            << QByteArray("{\"code\":\"\\\"123456789012345678901\",\"unread\":[-123456789012345678901234567890,1.5],"
                          R"("status":{"connectableDevices":[)"
                          R"({"connectionStatus":{"roundTripTimeMilliseconds":123456789012345678901}},)"
                          R"({"connectionStatus":{"roundTripTimeMilliseconds":18446744073709551615}}]}})")
            << longIntegers;

        DaemonControlResponse text;
        text.error = u"caf\u00e9 \u201cquoted\u201d \U0001F600 <b>&amp;"_qs;
        text.login = DaemonLoginSnapshot{u"https://x.example/a?b=c"_qs, {}, {}};
        QTest::newRow("strings keep every character")
            << QByteArray(R"({"error":"caf\u00e9 \u201cquoted\u201d \ud83d\ude00 <b>&amp;",)"
                          R"("login":{"loginUrl":"https:\/\/x.example\/a?b=c"}})")
            << text;

        DaemonControlResponse carriageReturn;
        carriageReturn.code = u"ok"_qs;
        QTest::newRow("trailing carriage return is white space") << QByteArray("{\"code\":\"ok\"}\r")
                                                                << carriageReturn;
    }

    void acceptsWellFormedReplies()
    {
        QFETCH(QByteArray, line);
        QFETCH(DaemonControlResponse, expected);
        QCOMPARE(decoded(line), expected);
    }

    // Every reply that is not exactly right is rejected as a whole, with a reason that names the
    // offending place when the JSON itself was fine.
    void rejectsMalformedReplies_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QString>("description");

        QTest::newRow("not JSON") << QByteArray("ERR busy") << QString();
        QTest::newRow("two values") << QByteArray("{} {}") << QString();
        QTest::newRow("white space only") << QByteArray("  ") << QString();
        QTest::newRow("array") << QByteArray("[]")
                               << u"expected an object at the top level, found an array"_qs;
        QTest::newRow("bare string") << QByteArray(R"("ok")")
                                     << u"expected an object at the top level, found a string"_qs;
        QTest::newRow("success as string") << QByteArray(R"({"success":"true"})")
                                           << u"expected a boolean at success, found a string"_qs;
        QTest::newRow("status as string") << QByteArray(R"({"status":"up"})")
                                          << u"expected an object at status, found a string"_qs;
        QTest::newRow("devices as object")
            << QByteArray(R"({"status":{"connectableDevices":{}}})")
            << u"expected an array at status.connectableDevices, found an object"_qs;
        QTest::newRow("one bad device among good ones")
            << QByteArray(R"({"success":true,"status":{"connectableDevices":[)"
                          R"({"hostName":"a","online":true},{"hostName":"b","online":"yes"}]}})")
            << u"expected a boolean at status.connectableDevices[1].online, found a string"_qs;
        QTest::newRow("null device")
            << QByteArray(R"({"status":{"connectableDevices":[{},null]}})")
            << u"expected an object at status.connectableDevices[1], found null"_qs;
        QTest::newRow("rtt as string")
            << QByteArray(R"({"status":{"connectableDevices":[{"connectionStatus":)"
                          R"({"roundTripTimeMilliseconds":"12"}}]}})")
            << u"expected a number at status.connectableDevices[0].connectionStatus."
               u"roundTripTimeMilliseconds, found a string"_qs;
        // A double cannot hold it, and the reply would not say what the daemon meant.
        QTest::newRow("number beyond a double's range") << QByteArray(R"({"unread":123456789012345678901,"x":1e400})")
                                                       << QString();
        QTest::newRow("long integer where a boolean belongs") << QByteArray(R"({"success":123456789012345678901})")
                                                              << u"expected a boolean at success, found a number"_qs;
        QTest::newRow("invalid UTF-8") << QByteArray("{\"code\":\"\xff\"}") << QString();
        QTest::newRow("lone surrogate") << QByteArray(R"({"code":"\ud800"})") << QString();
    }

    void rejectsMalformedReplies()
    {
        QFETCH(QByteArray, line);
        QFETCH(QString, description);
        const auto result = DaemonProtocol::decodeResponse(line);
        const auto *failure = std::get_if<DecodeFailure>(&result);
        QVERIFY2(failure, line.constData());
        QVERIFY(!failure->description.isEmpty());
        if (!description.isEmpty())
            QCOMPARE(failure->description, description);
    }

    // Every key as the daemon spells it, written out here rather than taken from the key table
    // that the decoder and the simulator share, so a misspelt key in that table shows.
    void readsEveryKeyAsTheDaemonSpellsIt()
    {
        const QByteArray line =
            "{\"success\":true,\"code\":\"c\",\"error\":\"e\",\"message\":\"m\","
            "\"login\":{\"loginUrl\":\"u\",\"loginCode\":\"lc\",\"userEmail\":\"le\"},"
            "\"status\":{\"clientId\":\"sc\",\"networkId\":\"sn\",\"membershipState\":\"ms\",\"assignedIp\":\"si\","
            "\"isDataPlaneActive\":true,\"wantRunning\":false,\"userEmail\":\"se\",\"selfFqdn\":\"sf\","
            "\"isTagged\":true,\"ownerTag\":\"so\",\"connectableDevices\":[{\"networkId\":\"dn\","
            "\"networkName\":\"dnn\",\"clientId\":\"dc\",\"computerName\":\"dcn\",\"hostName\":\"dh\","
            "\"fqdn\":\"df\",\"assignedIp\":\"di\",\"online\":true,\"connectionStatus\":{\"state\":\"cs\","
            "\"endpoint\":\"ce\",\"roundTripTimeMilliseconds\":7}}]}}";
        ConnectableDeviceSnapshot device;
        device.networkId = u"dn"_qs;
        device.networkName = u"dnn"_qs;
        device.clientId = u"dc"_qs;
        device.computerName = u"dcn"_qs;
        device.hostName = u"dh"_qs;
        device.fqdn = u"df"_qs;
        device.assignedIp = u"di"_qs;
        device.online = true;
        device.connectionStatus = NodeConnectionStatusSnapshot{u"cs"_qs, u"ce"_qs, 7};
        DaemonStatusSnapshot status;
        status.clientId = u"sc"_qs;
        status.networkId = u"sn"_qs;
        status.membershipState = u"ms"_qs;
        status.assignedIp = u"si"_qs;
        status.isDataPlaneActive = true;
        status.wantRunning = false;
        status.userEmail = u"se"_qs;
        status.selfFqdn = u"sf"_qs;
        status.isTagged = true;
        status.ownerTag = u"so"_qs;
        status.connectableDevices = QList{device};
        DaemonControlResponse expected;
        expected.success = true;
        expected.code = u"c"_qs;
        expected.error = u"e"_qs;
        expected.message = u"m"_qs;
        expected.login = DaemonLoginSnapshot{u"u"_qs, u"lc"_qs, u"le"_qs};
        expected.status = status;
        QCOMPARE(decoded(line), expected);
    }

    // The generated peers exercise every field; writing them as the daemon does and reading them
    // back must give the same records, whether the bytes come padded or not.
    void decodesWhatTheDaemonWrites()
    {
        DaemonControlResponse response;
        response.success = true;
        response.code = u"ok"_qs;
        response.status = DaemonStatusSnapshot{};
        response.status->wantRunning = true;
        response.status->isTagged = false;
        response.status->membershipState = u"membership_active"_qs;
        response.status->connectableDevices =
            Simulator::generatePeers(300, 7, u"net-1"_qs, u"Net Work"_qs);
        const QByteArray bytes =
            QJsonDocument(Simulator::toJson(response)).toJson(QJsonDocument::Compact);

        QByteArray exact(bytes.constData(), bytes.size());
        exact.squeeze();
        QCOMPARE(decoded(exact), response);

        QByteArray padded = bytes;
        padded.reserve(padded.size() + DaemonProtocol::paddingBytes);
        QCOMPARE(decoded(padded), response);
    }

    void displayNameFallsBackInOrder_data()
    {
        QTest::addColumn<std::optional<QString>>("computerName");
        QTest::addColumn<std::optional<QString>>("hostName");
        QTest::addColumn<std::optional<QString>>("fqdn");
        QTest::addColumn<QString>("expected");
        const std::optional<QString> none;
        QTest::newRow("computer name") << std::optional(u"Maria’s Mac"_qs) << std::optional(u"m"_qs)
                                       << std::optional(u"m.x"_qs) << u"Maria’s Mac"_qs;
        QTest::newRow("empty computer name") << std::optional(QString()) << std::optional(u"host"_qs)
                                             << std::optional(u"host.x"_qs) << u"host"_qs;
        QTest::newRow("blank is not empty") << std::optional(u"  "_qs) << std::optional(u"host"_qs)
                                            << none << u"  "_qs;
        QTest::newRow("fqdn unchanged") << none << std::optional(QString())
                                        << std::optional(u" Host.X "_qs) << u" Host.X "_qs;
        QTest::newRow("empty fqdn") << none << none << std::optional(QString()) << QString();
        QTest::newRow("nothing") << none << none << none << QString();
    }

    void displayNameFallsBackInOrder()
    {
        QFETCH(std::optional<QString>, computerName);
        QFETCH(std::optional<QString>, hostName);
        QFETCH(std::optional<QString>, fqdn);
        QFETCH(QString, expected);
        ConnectableDeviceSnapshot device;
        device.computerName = computerName;
        device.hostName = hostName;
        device.fqdn = fqdn;
        QCOMPARE(device.displayName(), expected);
    }
};

QTEST_GUILESS_MAIN(TestDaemonProtocol)
#include "tst_daemonprotocol.moc"
