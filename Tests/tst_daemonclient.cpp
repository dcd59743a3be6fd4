// The client over a real Unix socket, with the simulated daemon behind it. What each shape of
// reply comes to is checked on the running app: tst_session.py's status and command tables and
// tst_faults.py's daemons.
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

using namespace Qt::StringLiterals;
using namespace Veltrane;
using Simulator::Fault;

class TestDaemonClient : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString m_path;
    std::unique_ptr<Simulator::SimulatedDaemon> m_daemon;
    std::unique_ptr<Simulator::SimulatorServer> m_server;

    // One line that says everything a caller can learn from an exchange.
    QString exchange(const QString &command, double timeout = 5)
    {
        std::optional<DaemonResult> result;
        DaemonClient(m_path).send({command}, timeout, this, [&](const DaemonResult &r) { result = r; });
        [&] { QTRY_VERIFY_WITH_TIMEOUT(result.has_value(), 15000); }();
        if (const auto *error = std::get_if<ClientError>(&*result))
            return error->errorDescription();
        const auto &response = std::get<DaemonControlResponse>(*result);
        QString text = response.succeeded() ? u"success"_s : u"refused"_s;
        if (response.status)
            text += u" status="_s + response.status->membershipState.value_or(u"?"_s);
        return text + (response.error ? u" error="_s + *response.error : QString());
    }

    static QString unreachable(int error)
    {
        return ClientError::connectFailed(ClientError::systemReason(error)).errorDescription();
    }

    // /dev/fd lists this process's descriptors on Linux and macOS alike.
    static int openDescriptors() { return int(QDir(u"/dev/fd"_s).entryList(QDir::System).size()); }

private Q_SLOTS:
    void init()
    {
        m_path = m_dir.filePath(u"daemon.sock"_s);
        Simulator::SimulatedDaemon::Options options;
        options.peerCount = 20;
        options.connectDelaySeconds = 0;
        m_daemon = std::make_unique<Simulator::SimulatedDaemon>(options);
        m_server = std::make_unique<Simulator::SimulatorServer>(*m_daemon);
        QCOMPARE(m_server->listen(m_path), std::nullopt);
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
        QCOMPARE(status->connectableDevices->devices().size(), 20);
        QCOMPARE(m_server->requestsReceived(), QList<QByteArray>{"{\"command\":\"get_status\"}"});

        // Even a failure that is known at once waits for the event loop.
        m_server.reset();
        bool failed = false;
        DaemonClient(m_path).send({u"get_status"_s}, 5, this, [&](const DaemonResult &) { failed = true; });
        QThread::msleep(50);
        QVERIFY(!failed);
        QTRY_VERIFY(failed);
    }

    void connectFailuresCarryTheSystemReason()
    {
        m_server.reset(); // the socket file goes with it
        QCOMPARE(exchange(u"get_status"_s), u"Cannot reach the Veltrane daemon (%1)."_s.arg(ClientError::systemReason(ENOENT)));
        m_path = u"/tmp/"_s + QString(103 - 5, u'x'); // 103 bytes and a NUL still fit
        QCOMPARE(exchange(u"get_status"_s), unreachable(ENOENT));
        m_path += u'x';
        QCOMPARE(exchange(u"get_status"_s), ClientError::connectFailed(u"socket path too long"_s).errorDescription());
    }

    // A limit below two seconds is applied as two.
    void aSilentDaemonTimesOut()
    {
        m_server->setFault(Fault::Silent);
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(exchange(u"get_status"_s, 1), ClientError::ioFailed(u"read: "_s + ClientError::systemReason(EAGAIN)).errorDescription());
        QVERIFY2(clock.elapsed() >= 1900, qPrintable(QString::number(clock.elapsed())));
    }

    // A daemon that hangs up early is an error, not SIGPIPE: if the signal got through, this test
    // process would die here.
    void aClosedDaemonFailsWithoutSignal()
    {
        m_server->setFault(Fault::CloseBeforeRead);
        const QString early = exchange(QString(1 << 20, u'x')); // more than the socket buffers hold
        QVERIFY2(early.startsWith(ClientError::ioFailed(u"write: "_s).errorDescription().chopped(3)), qPrintable(early));
    }

    void readingStopsAtTheCap()
    {
        m_server->setFault(Fault::EndlessStream);
        auto socket = std::get<DaemonSocket>(DaemonSocket::connect(QFile::encodeName(m_path)));
        QCOMPARE(socket.writeAll("{\"command\":\"get_status\"}\n"), std::nullopt);
        const QByteArray gathered = std::get<QByteArray>(socket.readLine());
        constexpr qsizetype cap = 4'194'304; // as the protocol fixes it, and past it less than 8 KiB
        QVERIFY(gathered.size() >= cap);
        QVERIFY(gathered.size() < cap + 8192);
    }

    // A reply is whole however the daemon's writes cut it: the line feed last in the first read,
    // first in the second, a character cut between writes, bytes after the line.
    void aReplyMaySpanReads_data()
    {
        QTest::addColumn<qsizetype>("lineBytes");
        QTest::addColumn<qsizetype>("chunkBytes");
        const qsizetype firstRead = DaemonSocket::readChunkBytes;
        QTest::newRow("line feed last in the first read") << firstRead - 1 << firstRead;
        QTest::newRow("line feed first in the second read") << firstRead << firstRead;
        QTest::newRow("one byte a write") << qsizetype(300) << qsizetype(1);
        QTest::newRow("many reads") << qsizetype(300'000) << qsizetype(4093);
    }

    void aReplyMaySpanReads()
    {
        QFETCH(qsizetype, lineBytes);
        QFETCH(qsizetype, chunkBytes);
        // Two-byte characters, so that some writes end inside one.
        const QByteArray head = "{\"success\":true,\"error\":\"", tail = "\"}";
        const qsizetype room = lineBytes - head.size() - tail.size();
        QString text = QString(room / 2, u'\u00e9');
        if (room % 2)
            text += u'x';
        const QByteArray line = head + text.toUtf8() + tail;
        QCOMPARE(line.size(), lineBytes);
        m_server->setFault(Fault::Scripted);
        m_server->setScriptedReply(line + "\n{\"success\":false}\n", chunkBytes);
        const DaemonResult result = DaemonClient::exchangeNow(QFile::encodeName(m_path), {u"get_status"_s}, 5);
        const auto *response = std::get_if<DaemonControlResponse>(&result);
        QVERIFY(response);
        QVERIFY(response->succeeded());
        QCOMPARE(response->error, text);
    }

    // In submission order, even when the first is the slowest; a completion whose owner is gone is
    // dropped.
    void exchangesRunInSubmissionOrder()
    {
        m_server->setFault(Fault::SlowReply, u"stop"_s);
        const QList<QByteArray> commands{"stop", "get_status", "start", "get_status"};
        QList<QByteArray> completed;
        auto owner = std::make_unique<QObject>();
        for (const QByteArray &command : commands) {
            const QObject *context = command == "start" ? owner.get() : this;
            DaemonClient(m_path).send({QString::fromLatin1(command)}, 5, context,
                                      [&completed, command](const DaemonResult &) { completed.append(command); });
        }
        owner.reset();
        QTRY_COMPARE(completed.size(), 3);
        QCOMPARE(completed, (QList<QByteArray>{"stop", "get_status", "get_status"}));
        QCOMPARE(m_server->requestsReceived()[2], QByteArray("{\"command\":\"start\"}"));
    }

    void everyPathClosesItsSocket()
    {
        // The simulated daemon runs in this process: each count is taken once its side of every
        // connection is closed, so only what the client holds is compared.
        exchange(u"get_status"_s); // the worker thread and its buffers exist from here on
        m_server->waitUntilIdle();
        const int before = openDescriptors();
        for (const Fault fault : {Fault::None, Fault::Empty, Fault::Garbage, Fault::CloseMidLine,
                                  Fault::CloseBeforeRead, Fault::Refuse}) {
            m_server->setFault(fault);
            exchange(u"get_status"_s);
        }
        m_path += u".missing"_s;
        exchange(u"get_status"_s);
        m_server->waitUntilIdle();
        QCOMPARE(openDescriptors(), before);
    }
};

QTEST_GUILESS_MAIN(TestDaemonClient)
#include "tst_daemonclient.moc"
