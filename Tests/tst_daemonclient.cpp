#include "DaemonClient.h"
#include "DaemonSocket.h"
#include "SimulatedDaemon.h"
#include "SimulatorServer.h"

#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <cerrno>
#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Veltrane;
using Simulator::Fault;

Q_DECLARE_METATYPE(Fault)

namespace {

int openDescriptorCount() { return int(QDir(u"/proc/self/fd"_qs).entryList(QDir::NoDotAndDotDot | QDir::System).size()); }

// A listening socket with no daemon behind it: the test accepts and drops connections itself.
struct BareListener {
    int descriptor = -1;
    explicit BareListener(const QString &path)
    {
        ::unlink(path.toUtf8().constData());
        descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, path.toUtf8().constData(), sizeof address.sun_path);
        ::bind(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address);
        ::listen(descriptor, 4);
    }
    ~BareListener() { ::close(descriptor); }
};

} // namespace

namespace Veltrane {
char *toString(const ClientError &error) { return QTest::toString(error.errorDescription()); }
} // namespace Veltrane

class TestDaemonClient : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString m_path;
    std::unique_ptr<Simulator::SimulatedDaemon> m_daemon;
    std::unique_ptr<Simulator::SimulatorServer> m_server;

    DaemonResult exchange(const QString &command, double timeout = 5)
    {
        std::optional<DaemonResult> result;
        DaemonClient(m_path).send({command}, timeout, this, [&](const DaemonResult &r) { result = r; });
        [&] { QTRY_VERIFY_WITH_TIMEOUT(result.has_value(), 15000); }();
        return result.value_or(ClientError::emptyResponse());
    }

    // These record a failure and hand back a harmless value, so the test goes on to report more.
    static ClientError errorOf(const DaemonResult &result)
    {
        if (const auto *error = std::get_if<ClientError>(&result))
            return *error;
        QTest::qFail("the exchange succeeded", __FILE__, __LINE__);
        return ClientError::ioFailed(u"(succeeded)"_qs);
    }

    static DaemonControlResponse responseOf(const DaemonResult &result)
    {
        if (const auto *error = std::get_if<ClientError>(&result)) {
            QTest::qFail(qPrintable(error->errorDescription()), __FILE__, __LINE__);
            return {};
        }
        return std::get<DaemonControlResponse>(result);
    }

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_dir.isValid());
        m_path = m_dir.filePath(u"daemon.sock"_qs);
        Simulator::SimulatedDaemon::Options options;
        options.peerCount = 20;
        options.connectDelaySeconds = 0;
        m_daemon = std::make_unique<Simulator::SimulatedDaemon>(options);
        m_server = std::make_unique<Simulator::SimulatorServer>(*m_daemon);
        QCOMPARE(m_server->listen(m_path), std::nullopt);
    }

    void cleanup()
    {
        m_server.reset();
        m_daemon.reset();
    }

    void statusArrivesOnMainThreadNeverOnCallerStack()
    {
        std::optional<DaemonStatusSnapshot> status;
        bool called = false;
        QThread *calledOn = nullptr;
        DaemonClient(m_path).tryGetStatus(this, [&](const std::optional<DaemonStatusSnapshot> &s) {
            called = true;
            calledOn = QThread::currentThread();
            status = s;
        });
        QVERIFY(!called);
        QTRY_VERIFY(called);
        QCOMPARE(calledOn, thread());
        QVERIFY(status.has_value());
        QCOMPARE(status->membershipState, u"membership_active"_qs);
        QCOMPARE(status->connectableDevices->size(), 20);
        QCOMPARE(m_server->requestsReceived(), QList<QByteArray>{"{\"command\":\"get_status\"}"});
    }

    void immediateFailureIsStillDeliveredLater()
    {
        m_server.reset();
        bool called = false;
        DaemonClient(m_path).send({u"get_status"_qs}, 5, this, [&](const DaemonResult &) { called = true; });
        QThread::msleep(50); // the worker has long failed to connect; the result waits for the loop
        QVERIFY(!called);
        QTRY_VERIFY(called);
    }

    void connectFailuresCarryTheSystemReason()
    {
        m_server.reset();
        ClientError missing = errorOf(exchange(u"get_status"_qs));
        QCOMPARE(missing.kind(), ClientError::Kind::ConnectFailed);
        QCOMPARE(missing.errorDescription(),
                 u"Cannot reach the Veltrane daemon (%1)."_qs.arg(ClientError::systemReason(ENOENT)));

        { BareListener stale(m_path); } // leaves a socket file nobody listens on
        QCOMPARE(errorOf(exchange(u"get_status"_qs)), ClientError::connectFailed(ClientError::systemReason(ECONNREFUSED)));
    }

    void socketPathLimitCountsTheNul()
    {
        const QString longest = u"/tmp/"_qs + QString(103 - 5, u'x'); // 103 bytes and a NUL
        std::optional<DaemonResult> fits, tooLong;
        DaemonClient(longest).send({u"get_status"_qs}, 5, this, [&](const DaemonResult &r) { fits = r; });
        DaemonClient(longest + u'x').send({u"get_status"_qs}, 5, this, [&](const DaemonResult &r) { tooLong = r; });
        QTRY_VERIFY(fits && tooLong);
        QCOMPARE(errorOf(*fits), ClientError::connectFailed(ClientError::systemReason(ENOENT)));
        QCOMPARE(errorOf(*tooLong), ClientError::connectFailed(u"socket path too long"_qs));
    }

    void silentDaemonTimesOutNoSoonerThanTwoSeconds()
    {
        m_server->setFault(Fault::Silent);
        QElapsedTimer clock;
        clock.start();
        const ClientError error = errorOf(exchange(u"get_status"_qs, 1));
        QCOMPARE(error, ClientError::ioFailed(u"read: "_qs + ClientError::systemReason(EAGAIN)));
        QVERIFY2(clock.elapsed() >= 1900, qPrintable(QString::number(clock.elapsed())));
    }

    void timeLimitsAreSetOnBothDirections()
    {
        const QString bare = m_dir.filePath(u"bare.sock"_qs);
        BareListener listener(bare);
        auto connected = DaemonSocket::connect(bare.toUtf8());
        auto &socket = std::get<DaemonSocket>(connected);
        QCOMPARE(socket.applyTimeout(15), std::nullopt);
        for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
            timeval limit{};
            socklen_t size = sizeof limit;
            QCOMPARE(::getsockopt(socket.descriptor(), SOL_SOCKET, option, &limit, &size), 0);
            QCOMPARE(limit.tv_sec, 15);
            QCOMPARE(limit.tv_usec, 0);
        }
        const timeval split = DaemonSocket::timevalFor(2.5);
        QCOMPARE(split.tv_sec, 2);
        QCOMPARE(split.tv_usec, 500000);
    }

    // A peer that is gone must yield an error, not SIGPIPE: if the signal got through, this test
    // process would die here.
    void writingToAClosedDaemonFailsWithoutSignal()
    {
        const QString bare = m_dir.filePath(u"bare.sock"_qs);
        BareListener listener(bare);
        auto connected = DaemonSocket::connect(bare.toUtf8());
        ::close(::accept(listener.descriptor, nullptr, nullptr));
        auto &socket = std::get<DaemonSocket>(connected);
        QCOMPARE(socket.writeAll(QByteArray(64 * 1024, 'x')), ClientError::ioFailed(u"write: "_qs + ClientError::systemReason(EPIPE)));

        m_server->setFault(Fault::CloseBeforeRead);
        const ClientError early = errorOf(exchange(u"get_status"_qs));
        QVERIFY2(early.kind() != ClientError::Kind::ConnectFailed, qPrintable(early.errorDescription()));
    }

    void replyShapesAreReadToTheFirstLineFeed_data()
    {
        QTest::addColumn<Fault>("fault");
        QTest::addColumn<QByteArray>("scripted");
        QTest::addColumn<QString>("membershipState");
        QTest::newRow("in slow pieces") << Fault::SlowReply << QByteArray() << u"membership_active"_qs;
        QTest::newRow("bytes after the line feed") << Fault::TrailingBytes << QByteArray() << u"membership_active"_qs;
        QTest::newRow("closed without line feed")
            << Fault::Scripted << QByteArray(R"({"success":true,"status":{"membershipState":"x"}})") << u"x"_qs;
    }

    void replyShapesAreReadToTheFirstLineFeed()
    {
        QFETCH(Fault, fault);
        QFETCH(QByteArray, scripted);
        QFETCH(QString, membershipState);
        m_server->setFault(fault);
        m_server->setScriptedReply(scripted);
        const DaemonControlResponse response = responseOf(exchange(u"get_status"_qs));
        QVERIFY(response.succeeded());
        QCOMPARE(response.status->membershipState, membershipState);
    }

    void badRepliesFailAsAWhole_data()
    {
        QTest::addColumn<Fault>("fault");
        QTest::addColumn<QString>("expected");
        const QString invalid = u"Daemon request failed (invalid response: "_qs;
        QTest::newRow("nothing at all") << Fault::Empty << u"The daemon returned an empty response."_qs;
        QTest::newRow("half a line") << Fault::CloseMidLine << invalid;
        QTest::newRow("garbage") << Fault::Garbage << invalid;
        QTest::newRow("wrong type deep inside")
            << Fault::WrongTypes
            << invalid + u"expected a boolean at status.connectableDevices[19].online, found a string)."_qs;
        QTest::newRow("endless stream, cut at 4 MiB") << Fault::EndlessStream << invalid + u"Empty: no JSON found)."_qs;
    }

    void badRepliesFailAsAWhole()
    {
        QFETCH(Fault, fault);
        QFETCH(QString, expected);
        m_server->setFault(fault);
        const QString description = errorOf(exchange(u"get_status"_qs)).errorDescription();
        QVERIFY2(description.startsWith(expected), qPrintable(description));
    }

    void readingStopsAtTheCap()
    {
        m_server->setFault(Fault::EndlessStream);
        auto connected = DaemonSocket::connect(m_path.toUtf8());
        auto &socket = std::get<DaemonSocket>(connected);
        QCOMPARE(socket.writeAll("{\"command\":\"get_status\"}\n"), std::nullopt);
        const QByteArray gathered = std::get<QByteArray>(socket.readLine());
        QVERIFY(gathered.size() >= DaemonSocket::replyCapBytes);
        QVERIFY(gathered.size() < DaemonSocket::replyCapBytes + DaemonSocket::readChunkBytes);
    }

    void refusalsGiveNoStatus_data()
    {
        QTest::addColumn<Fault>("fault");
        QTest::addColumn<QByteArray>("scripted");
        QTest::addColumn<std::optional<QString>>("error");
        QTest::newRow("refused with error") << Fault::Refuse << QByteArray() << std::optional(u"The daemon is busy; try again."_qs);
        QTest::newRow("refused bare") << Fault::RefuseWithoutError << QByteArray() << std::optional<QString>();
        QTest::newRow("refused with status")
            << Fault::Scripted << QByteArray("{\"success\":false,\"status\":{\"membershipState\":\"membership_active\"}}\n")
            << std::optional<QString>();
        QTest::newRow("success without status") << Fault::Scripted << QByteArray("{\"success\":true}\n") << std::optional<QString>();
        QTest::newRow("success absent") << Fault::Scripted << QByteArray("{\"status\":{}}\n") << std::optional<QString>();
    }

    void refusalsGiveNoStatus()
    {
        QFETCH(Fault, fault);
        QFETCH(QByteArray, scripted);
        QFETCH(std::optional<QString>, error);
        m_server->setFault(fault);
        m_server->setScriptedReply(scripted);
        QCOMPARE(responseOf(exchange(u"start"_qs)).error, error);

        bool called = false;
        std::optional<DaemonStatusSnapshot> status = DaemonStatusSnapshot{};
        DaemonClient(m_path).tryGetStatus(this, [&](const std::optional<DaemonStatusSnapshot> &s) {
            called = true;
            status = s;
        });
        QTRY_VERIFY(called);
        QCOMPARE(status, std::nullopt);
    }

    void exchangesRunInSubmissionOrder()
    {
        m_server->setFault(Fault::SlowReply, u"stop"_qs);
        QStringList completed;
        const DaemonClient client(m_path);
        for (const QString &command : {u"stop"_qs, u"get_status"_qs, u"start"_qs, u"get_status"_qs})
            client.send({command}, 5, this, [&completed, command](const DaemonResult &) { completed.append(command); });
        QTRY_COMPARE(completed.size(), 4);
        QCOMPARE(completed, (QStringList{u"stop"_qs, u"get_status"_qs, u"start"_qs, u"get_status"_qs}));
        const QList<QByteArray> expected{"{\"command\":\"stop\"}", "{\"command\":\"get_status\"}",
                                         "{\"command\":\"start\"}", "{\"command\":\"get_status\"}"};
        QCOMPARE(m_server->requestsReceived(), expected);
    }

    void completionOfAGoneOwnerIsDropped()
    {
        auto owner = std::make_unique<QObject>();
        bool called = false;
        DaemonClient(m_path).send({u"get_status"_qs}, 5, owner.get(), [&](const DaemonResult &) { called = true; });
        owner.reset();
        bool later = false;
        DaemonClient(m_path).send({u"get_status"_qs}, 5, this, [&](const DaemonResult &) { later = true; });
        QTRY_VERIFY(later);
        QVERIFY(!called);
    }

    void everyPathClosesItsSocket()
    {
        exchange(u"get_status"_qs); // the worker thread and its buffers exist from here on
        const int before = openDescriptorCount();
        for (const Fault fault : {Fault::None, Fault::Empty, Fault::Garbage, Fault::CloseMidLine,
                                  Fault::CloseBeforeRead, Fault::Refuse}) {
            m_server->setFault(fault);
            exchange(u"get_status"_qs);
        }
        DaemonClient(m_path + u".missing"_qs).send({u"get_status"_qs}, 5, this, [](const DaemonResult &) {});
        exchange(u"get_status"_qs);
        QCOMPARE(openDescriptorCount(), before);
    }
};

QTEST_GUILESS_MAIN(TestDaemonClient)
#include "tst_daemonclient.moc"
