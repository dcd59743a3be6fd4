#include "DaemonProtocol.h"
#include "PeerGenerator.h"
#include "SimulatedDaemon.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace Veltrane;

// Each reply line and what the decoder makes of it, written as JSON: the record that comes out,
// in the daemon's own spelling, or "!" and the reason it is rejected, in the same words whichever
// simdjson the app is built with.
// The expected side is written out by hand, not taken from the key table that the decoder and the
// simulator share, so a misspelt key in that table shows.
class TestDaemonProtocol : public QObject
{
    Q_OBJECT

private:
    static QByteArray decoded(const QByteArray &line, DaemonProtocol::DeviceRecords devices)
    {
        const auto result = DaemonProtocol::decodeResponse(line, devices);
        if (const auto *failure = std::get_if<DecodeFailure>(&result))
            return "!" + failure->description.toUtf8();
        return QJsonDocument(Simulator::toJson(std::get<DaemonControlResponse>(result))).toJson(QJsonDocument::Compact);
    }

    // Devices made at once or when asked: the same records, the same failures.
    static QByteArray decoded(const QByteArray &line)
    {
        const QByteArray now = decoded(line, DaemonProtocol::DeviceRecords::Now);
        const QByteArray whenAsked = decoded(line, DaemonProtocol::DeviceRecords::WhenAsked);
        return now == whenAsked ? now : "!differs when asked later: " + whenAsked;
    }

private Q_SLOTS:
    void decodes_data();

    void decodes()
    {
        QFETCH(QByteArray, line);
        QFETCH(QByteArray, expected);
        const QByteArray got = decoded(line);
        if (expected.startsWith('!'))
            QCOMPARE(got, expected);
        else
            QCOMPARE(QJsonDocument::fromJson(got).object(), QJsonDocument::fromJson(expected).object());
    }

    // The generated peers fill every field; what the simulator writes reads back as the same
    // records, whether the bytes come padded or not.
    void decodesWhatTheDaemonWrites()
    {
        DaemonControlResponse response;
        response.success = true;
        response.status = DaemonStatusSnapshot{};
        response.status->membershipState = u"membership_active"_s;
        response.status->connectableDevices = Simulator::generatePeers(300, 7, u"net-1"_s, u"Net Work"_s);
        const QByteArray bytes = QJsonDocument(Simulator::toJson(response)).toJson(QJsonDocument::Compact);
        QByteArray exact(bytes.constData(), bytes.size());
        exact.squeeze();
        QByteArray padded = bytes;
        padded.reserve(padded.size() + DaemonProtocol::paddingBytes);
        for (const QByteArray &line : {exact, padded})
            QCOMPARE(std::get<DaemonControlResponse>(DaemonProtocol::decodeResponse(line)), response);
        const auto kept = std::get<DaemonControlResponse>(
            DaemonProtocol::decodeResponse(padded, DaemonProtocol::DeviceRecords::WhenAsked));
        QVERIFY(kept.status->connectableDevices->keepsReply());
        QCOMPARE(kept, response);
    }

    // The strings of a reply share their storage; each one outlives the reply, ends in a NUL, and
    // changes without touching another, also when it is the last one left.
    void stringsOutliveTheirReply()
    {
        QString code, error;
        {
            auto response = std::get<DaemonControlResponse>(
                DaemonProtocol::decodeResponse(R"({"code":"ok","error":"Caf\u00e9","message":"m"})"));
            code = *response.code;
            error = *response.error;
        }
        error += u" ouverte et encore ouverte"_s;
        code.append(u'!');
        QCOMPARE(code, u"ok!"_s);
        QCOMPARE(error, u"Caf\u00e9 ouverte et encore ouverte"_s);
        QCOMPARE(code.utf16()[code.size()], u'\0');
    }

    void displayNameFallsBackInOrder_data()
    {
        QTest::addColumn<QByteArray>("device");
        QTest::addColumn<QString>("expected");
        QTest::newRow("computer name") << QByteArray(R"({"computerName":"Maria’s Mac","hostName":"m","fqdn":"m.x"})")
                                       << u"Maria’s Mac"_s;
        QTest::newRow("empty computer name") << QByteArray(R"({"computerName":"","hostName":"host","fqdn":"h.x"})")
                                             << u"host"_s;
        QTest::newRow("blank is not empty") << QByteArray(R"({"computerName":"  ","hostName":"host"})") << u"  "_s;
        QTest::newRow("fqdn unchanged") << QByteArray(R"({"hostName":"","fqdn":" Host.X "})") << u" Host.X "_s;
        QTest::newRow("nothing") << QByteArray("{}") << QString();
    }

    void displayNameFallsBackInOrder()
    {
        QFETCH(QByteArray, device);
        QFETCH(QString, expected);
        const auto result = DaemonProtocol::decodeResponse("{\"status\":{\"connectableDevices\":[" + device + "]}}");
        QCOMPARE(std::get<DaemonControlResponse>(result).status->connectableDevices->devices().first().displayName(), expected);
    }
};

// moc misreads raw strings that hold quotes, so it does not see the table.
#ifndef Q_MOC_RUN
void TestDaemonProtocol::decodes_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("expected");
    const QByteArray everyKey =
        "{\"success\":true,\"code\":\"c\",\"error\":\"e\",\"message\":\"m\","
        "\"login\":{\"loginUrl\":\"u\",\"loginCode\":\"lc\",\"userEmail\":\"le\"},"
        "\"status\":{\"clientId\":\"sc\",\"networkId\":\"sn\",\"membershipState\":\"ms\",\"assignedIp\":\"si\","
        "\"isDataPlaneActive\":true,\"wantRunning\":false,\"userEmail\":\"se\",\"selfFqdn\":\"sf\","
        "\"isTagged\":true,\"ownerTag\":\"so\",\"connectableDevices\":[{\"networkId\":\"dn\","
        "\"networkName\":\"dnn\",\"clientId\":\"dc\",\"computerName\":\"dcn\",\"hostName\":\"dh\","
        "\"fqdn\":\"df\",\"assignedIp\":\"di\",\"online\":true,\"connectionStatus\":{\"state\":\"cs\","
        "\"endpoint\":\"ce\",\"roundTripTimeMilliseconds\":7}}]}}";
    const auto row = [](const char *name, const QByteArray &line, const QByteArray &expected) {
        QTest::newRow(name) << line << expected;
    };
    row("every key as the daemon spells it", everyKey, everyKey);
    row("empty object", "{}", "{}");
    row("null is absent", R"({"success":true,"status":null,"error":null})", R"({"success":true})");
    row("unknown keys at every level, repeated too",
        R"({"x":[1,{"a":null}],"x":2,"success":false,"status":{"future":{"x":"y"},"membershipState":"awaiting_login"}})",
        R"({"success":false,"status":{"membershipState":"awaiting_login"}})");
    row("integral and fractional numbers",
        R"({"status":{"connectableDevices":[{"connectionStatus":{"roundTripTimeMilliseconds":12}},)"
        R"({"connectionStatus":{"roundTripTimeMilliseconds":-0.25}},{"connectionStatus":{"roundTripTimeMilliseconds":1.5E3}}]}})",
        R"({"status":{"connectableDevices":[{"connectionStatus":{"roundTripTimeMilliseconds":12}},)"
        R"({"connectionStatus":{"roundTripTimeMilliseconds":-0.25}},{"connectionStatus":{"roundTripTimeMilliseconds":1500}}]}})");
    // Beyond 64 bits an integer reads as the nearest double; digits in strings stay text, also
    // after an escaped quote.
    row("integers beyond 64 bits",
        "{\"code\":\"\\\"123456789012345678901\",\"unread\":[-123456789012345678901234567890,1.5],"
        R"("status":{"connectableDevices":[{"connectionStatus":{"roundTripTimeMilliseconds":123456789012345678901}}]}})",
        "{\"code\":\"\\\"123456789012345678901\","
        R"("status":{"connectableDevices":[{"connectionStatus":{"roundTripTimeMilliseconds":1.2345678901234568e+20}}]}})");
    row("strings keep every character",
        R"({"error":"caf\u00e9 \u201cquoted\u201d \ud83d\ude00 <b>&amp;","code":"\ufeffok","login":{"loginUrl":"https:\/\/x.example\/a"}})",
        "{\"error\":\"caf\xc3\xa9 \xe2\x80\x9cquoted\xe2\x80\x9d \xf0\x9f\x98\x80 <b>&amp;\",\"code\":\"\xef\xbb\xbfok\","
        R"("login":{"loginUrl":"https://x.example/a"}})");
    row("trailing carriage return is white space", "{\"code\":\"ok\"}\r", R"({"code":"ok"})");

    row("not JSON", "ERR busy", "!not one JSON value");
    row("two values", "{} {}", "!not one JSON value");
    row("white space only", "  ", "!not one JSON value");
    row("array", "[]", "!expected an object at the top level, found an array");
    row("success as string", R"({"success":"true"})", "!expected a boolean at success, found a string");
    row("status as string", R"({"status":"up"})", "!expected an object at status, found a string");
    row("devices as object", R"({"status":{"connectableDevices":{}}})",
        "!expected an array at status.connectableDevices, found an object");
    row("one bad device among good ones",
        R"({"success":true,"status":{"connectableDevices":[{"online":true},{"hostName":"b","online":"yes"}]}})",
        "!expected a boolean at status.connectableDevices[1].online, found a string");
    row("null device", R"({"status":{"connectableDevices":[{},null]}})",
        "!expected an object at status.connectableDevices[1], found null");
    row("rtt as string", R"({"status":{"connectableDevices":[{"connectionStatus":{"roundTripTimeMilliseconds":"12"}}]}})",
        "!expected a number at status.connectableDevices[0].connectionStatus.roundTripTimeMilliseconds, found a string");
    // A double cannot hold it, and the reply would not say what the daemon meant.
    row("number beyond a double's range", R"({"unread":123456789012345678901,"x":1e400})",
        "!a malformed number, or one beyond a double's range");
    row("long integer where a boolean belongs", R"({"success":123456789012345678901})",
        "!expected a boolean at success, found a number");
    row("invalid UTF-8", "{\"code\":\"\xff\"}", "!not valid UTF-8");
    row("string left open", R"({"code":"ok)", "!a malformed string");
    row("nested too deeply", QByteArray(2000, '[') + QByteArray(2000, ']'), "!nested too deeply");
    row("lone surrogate", R"({"code":"\ud800"})", "!a malformed string");
    // Two values for one key: which one the daemon meant is not in the reply.
    row("success twice", R"({"success":true,"code":"x","success":null})", "!expected one value at success, found two");
    row("a key twice deep inside", R"({"status":{"connectableDevices":[{"online":true,"online":true}]}})",
        "!expected one value at status.connectableDevices[0].online, found two");
}
#endif

QTEST_GUILESS_MAIN(TestDaemonProtocol)
#include "tst_daemonprotocol.moc"
