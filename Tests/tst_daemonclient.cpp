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

    static ClientError errorOf(const DaemonResult &result)
    {
        const auto *error = std::get_if<ClientError>(&result);
        return error ? *error : ClientError::ioFailed(u"(the exchange succeeded)"_qs);
    }

    // One line that says everything a caller can learn from a result.
    static QString describe(const DaemonResult &result)
    {
        if (const auto *error = std::get_if<ClientError>(&result))
            return error->errorDescription();
        const auto &response = std::get<DaemonControlResponse>(result);
        QString text = response.succeeded() ? u"success"_qs : u"refused"_qs;
        if (response.status)
            text += u" status="_qs + response.status->membershipState.value_or(u"?"_qs);
        if (response.error)
            text += u" error="_qs + *response.error;
        return text;
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
        QThread *calledOn = nullptr;
        DaemonClient(m_path).tryGetStatus(this, [&](const std::optional<DaemonStatusSnapshot> &s) {
            calledOn = QThread::currentThread();
            status = s;
        });
        QVERIFY(!calledOn);
        QTRY_COMPARE(calledOn, thread());
        QCOMPARE(status->connectableDevices.value_or(QList<ConnectableDeviceSnapshot>()).size(), 20);
        QCOMPARE(m_server->requestsReceived(), QList<QByteArray>{"{\"command\":\"get_status\"}"});

        // Even a failure that is known at once waits for the event loop.
        m_server.reset();
        bool failed = false;
        DaemonClient(m_path).send({u"get_status"_qs}, 5, this, [&](const DaemonResult &) { failed = true; });
        QThread::msleep(50);
        QVERIFY(!failed);
        QTRY_VERIFY(failed);
    }

    void connectFailuresCarryTheSystemReason()
    {
        m_server.reset();
        QCOMPARE(describe(exchange(u"get_status"_qs)),
                 u"Cannot reach the Veltrane daemon (%1)."_qs.arg(ClientError::systemReason(ENOENT)));
        { BareListener stale(m_path); } // leaves a socket file nobody listens on
        QCOMPARE(errorOf(exchange(u"get_status"_qs)), ClientError::connectFailed(ClientError::systemReason(ECONNREFUSED)));

        m_path = u"/tmp/"_qs + QString(103 - 5, u'x'); // 103 bytes and a NUL still fit
        QCOMPARE(errorOf(exchange(u"get_status"_qs)), ClientError::connectFailed(ClientError::systemReason(ENOENT)));
        m_path += u'x';
        QCOMPARE(errorOf(exchange(u"get_status"_qs)), ClientError::connectFailed(u"socket path too long"_qs));
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
        const DaemonResult early = exchange(u"get_status"_qs);
        QVERIFY(std::holds_alternative<ClientError>(early));
        QVERIFY2(errorOf(early).kind() != ClientError::Kind::ConnectFailed, qPrintable(errorOf(early).errorDescription()));
    }

    // Every shape of reply, well formed or not, and what the caller gets from it. A trailing "…"
    // compares only what comes before it.
    void eachReplyHasOneOutcome_data()
    {
        QTest::addColumn<Fault>("fault");
        QTest::addColumn<QByteArray>("scripted");
        QTest::addColumn<QString>("outcome");
        const QString active = u"success status=membership_active"_qs;
        const QString invalid = u"Daemon request failed (invalid response: "_qs;
        QTest::newRow("plain") << Fault::None << QByteArray() << active;
        QTest::newRow("in slow pieces") << Fault::SlowReply << QByteArray() << active;
        QTest::newRow("bytes after the line feed") << Fault::TrailingBytes << QByteArray() << active;
        QTest::newRow("closed without line feed")
            << Fault::Scripted << QByteArray(R"({"success":true,"status":{"membershipState":"x"}})") << u"success status=x"_qs;
        QTest::newRow("success without status") << Fault::Scripted << QByteArray("{\"success\":true}\n") << u"success"_qs;
        QTest::newRow("refused with error") << Fault::Refuse << QByteArray() << u"refused error=The daemon is busy; try again."_qs;
        QTest::newRow("refused bare") << Fault::RefuseWithoutError << QByteArray() << u"refused"_qs;
        QTest::newRow("refused with status")
            << Fault::Scripted << QByteArray("{\"success\":false,\"status\":{\"membershipState\":\"membership_active\"}}\n")
            << u"refused status=membership_active"_qs;
        QTest::newRow("success absent") << Fault::Scripted << QByteArray("{\"status\":{}}\n") << u"refused status=?"_qs;
        QTest::newRow("nothing at all") << Fault::Empty << QByteArray() << u"The daemon returned an empty response."_qs;
        QTest::newRow("half a line") << Fault::CloseMidLine << QByteArray() << invalid + u"…"_qs;
        QTest::newRow("garbage") << Fault::Garbage << QByteArray() << invalid + u"…"_qs;
        QTest::newRow("wrong type deep inside")
            << Fault::WrongTypes << QByteArray()
            << invalid + u"expected a boolean at status.connectableDevices[19].online, found a string)."_qs;
        QTest::newRow("endless stream") << Fault::EndlessStream << QByteArray() << invalid + u"Empty: no JSON found)."_qs;
    }

    void eachReplyHasOneOutcome()
    {
        QFETCH(Fault, fault);
        QFETCH(QByteArray, scripted);
        QFETCH(QString, outcome);
        m_server->setFault(fault);
        m_server->setScriptedReply(scripted);
        const QString described = describe(exchange(u"get_status"_qs));
        if (outcome.endsWith(u'…'))
            QVERIFY2(described.startsWith(outcome.chopped(1)), qPrintable(described));
        else
            QCOMPARE(described, outcome);

        // tryGetStatus passes a status on only from a successful reply.
        std::optional<std::optional<DaemonStatusSnapshot>> status;
        DaemonClient(m_path).tryGetStatus(this, [&](const std::optional<DaemonStatusSnapshot> &s) { status = s; });
        QTRY_VERIFY(status.has_value());
        QCOMPARE(status->has_value(), outcome.startsWith(u"success status="_qs));
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

    void exchangesRunInSubmissionOrder()
    {
        m_server->setFault(Fault::SlowReply, u"stop"_qs); // the first one is also the slowest
        const QList<QByteArray> commands{"stop", "get_status", "start", "get_status"};
        QList<QByteArray> completed;
        for (const QByteArray &command : commands)
            DaemonClient(m_path).send({QString::fromLatin1(command)}, 5, this,
                                      [&completed, command](const DaemonResult &) { completed.append(command); });
        QTRY_COMPARE(completed, commands);
        QCOMPARE(m_server->requestsReceived().size(), 4);
        QCOMPARE(m_server->requestsReceived()[2], QByteArray("{\"command\":\"start\"}"));
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
