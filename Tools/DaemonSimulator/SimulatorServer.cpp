#include "SimulatorServer.h"

#include "DaemonSocket.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace Veltrane::Simulator {

namespace {

using namespace std::chrono_literals;

constexpr std::array faultTable{
    std::pair{Fault::None, u"none"},
    std::pair{Fault::Silent, u"silent"},
    std::pair{Fault::SlowReply, u"slow-reply"},
    std::pair{Fault::CloseBeforeRead, u"close-before-read"},
    std::pair{Fault::CloseMidLine, u"close-mid-line"},
    std::pair{Fault::Empty, u"empty"},
    std::pair{Fault::Garbage, u"garbage"},
    std::pair{Fault::WrongTypes, u"wrong-types"},
    std::pair{Fault::EndlessStream, u"endless-stream"},
    std::pair{Fault::TrailingBytes, u"trailing-bytes"},
    std::pair{Fault::Refuse, u"refuse"},
    std::pair{Fault::RefuseWithoutError, u"refuse-without-error"},
    std::pair{Fault::Scripted, u"scripted"},
};

constexpr auto pollSlice = 100; // ms between looks at the stop flag

// One value of the wrong type where the client looks hardest: deep inside the last peer when
// there are peers, else the top-level success flag.
QByteArray withWrongType(const QByteArray &reply)
{
    QJsonObject object = QJsonDocument::fromJson(reply).object();
    QJsonObject status = object[u"status"_s].toObject();
    QJsonArray devices = status[u"connectableDevices"_s].toArray();
    if (devices.isEmpty()) {
        object[u"success"_s] = u"true"_s;
    } else {
        QJsonObject last = devices.last().toObject();
        last[u"online"_s] = u"true"_s;
        devices.replace(devices.size() - 1, last);
        status[u"connectableDevices"_s] = devices;
        object[u"status"_s] = status;
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QString commandOf(const QByteArray &request)
{
    return QJsonDocument::fromJson(request)[u"command"_s].toString();
}

} // namespace

std::optional<Fault> faultFromName(const QString &name)
{
    for (const auto &[fault, faultName] : faultTable) {
        if (name == QStringView(faultName))
            return fault;
    }
    return std::nullopt;
}

QStringList faultNames()
{
    QStringList names;
    for (const auto &entry : faultTable)
        names.append(QString::fromUtf16(entry.second));
    return names;
}

SimulatorServer::SimulatorServer(SimulatedDaemon &daemon) : m_daemon(daemon) {}

SimulatorServer::~SimulatorServer() { stop(); }

std::optional<QString> SimulatorServer::listen(const QString &path)
{
    m_path = path.toUtf8();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (size_t(m_path.size()) >= sizeof address.sun_path)
        return u"socket path too long"_s;
    std::memcpy(address.sun_path, m_path.constData(), size_t(m_path.size()) + 1);

    m_listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ::unlink(m_path.constData());
    if (m_listener < 0 || !DaemonSocket::prepareDescriptor(m_listener)
        || ::bind(m_listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0
        || ::listen(m_listener, 64) != 0 || ::pipe(m_wakePipe) != 0
        || !DaemonSocket::prepareDescriptor(m_wakePipe[0]) || !DaemonSocket::prepareDescriptor(m_wakePipe[1])) {
        const QString reason = QString::fromLocal8Bit(std::strerror(errno));
        stop();
        return reason;
    }
    m_acceptThread = std::thread(&SimulatorServer::acceptLoop, this);
    return std::nullopt;
}

void SimulatorServer::stop()
{
    m_stopping = true;
    if (m_wakePipe[1] >= 0)
        (void)!::write(m_wakePipe[1], "x", 1);
    if (m_acceptThread.joinable())
        m_acceptThread.join();

    std::list<Worker> workers;
    {
        std::lock_guard lock(m_mutex);
        for (const int connection : m_openConnections)
            ::shutdown(connection, SHUT_RDWR);
        workers.swap(m_workers);
    }
    for (Worker &worker : workers)
        worker.thread.join();

    for (int *descriptor : {&m_listener, &m_wakePipe[0], &m_wakePipe[1]}) {
        if (*descriptor >= 0)
            ::close(std::exchange(*descriptor, -1));
    }
    if (!m_path.isEmpty())
        ::unlink(std::exchange(m_path, {}).constData());
}

void SimulatorServer::setFault(Fault fault, const QString &command)
{
    std::lock_guard lock(m_mutex);
    m_fault = fault;
    m_faultCommand = command;
}

void SimulatorServer::setScriptedReply(const QByteArray &bytes, qsizetype chunkBytes)
{
    std::lock_guard lock(m_mutex);
    m_scriptedReply = bytes;
    m_scriptedChunkBytes = chunkBytes;
}

void SimulatorServer::setLogRequests(bool log)
{
    std::lock_guard lock(m_mutex);
    m_logRequests = log;
}

Fault SimulatorServer::activeFault(const QByteArray &request)
{
    std::lock_guard lock(m_mutex);
    if (m_logRequests) {
        std::fprintf(stderr, "request: %s\n", request.constData());
        std::fflush(stderr);
    }
    m_requests.append(request);
    ++m_requestCounts[request];
    if (m_requests.size() > requestHistory)
        m_requests.removeFirst();
    const bool applies = m_faultCommand.isEmpty() || m_faultCommand == commandOf(request);
    return applies ? m_fault : Fault::None;
}

QList<QByteArray> SimulatorServer::requestsReceived() const
{
    std::lock_guard lock(m_mutex);
    return m_requests;
}

qint64 SimulatorServer::requestCount(const QByteArray &request) const
{
    std::lock_guard lock(m_mutex);
    return m_requestCounts.value(request);
}

void SimulatorServer::waitUntilIdle()
{
    for (;;) {
        reapFinishedWorkers();
        {
            std::lock_guard lock(m_mutex);
            if (m_workers.empty())
                return;
        }
        std::this_thread::sleep_for(1ms);
    }
}

void SimulatorServer::reapFinishedWorkers()
{
    std::lock_guard lock(m_mutex);
    m_workers.remove_if([](Worker &worker) {
        if (!*worker.finished)
            return false;
        worker.thread.join();
        return true;
    });
}

void SimulatorServer::acceptLoop()
{
    pollfd watched[2] = {{m_listener, POLLIN, 0}, {m_wakePipe[0], POLLIN, 0}};
    while (!m_stopping) {
        if (::poll(watched, 2, -1) < 0 && errno != EINTR)
            return;
        if (m_stopping || !(watched[0].revents & POLLIN))
            continue;
        const int connection = ::accept(m_listener, nullptr, nullptr);
        if (connection < 0)
            continue;
        if (!DaemonSocket::prepareDescriptor(connection)) {
            ::close(connection);
            continue;
        }
        reapFinishedWorkers();
        auto finished = std::make_shared<std::atomic<bool>>(false);
        std::lock_guard lock(m_mutex);
        m_openConnections.insert(connection);
        m_workers.push_back({std::thread([this, connection, finished] {
                                 serve(connection);
                                 {
                                     std::lock_guard lock(m_mutex);
                                     m_openConnections.erase(connection);
                                 }
                                 ::close(connection);
                                 *finished = true;
                             }),
                             finished});
    }
}

void SimulatorServer::serve(int connection)
{
    // Waits for the client to say something or hang up; false once it hung up or we stop.
    auto awaitInput = [&] {
        pollfd watched{connection, POLLIN, 0};
        while (!m_stopping) {
            const int ready = ::poll(&watched, 1, pollSlice);
            if (ready > 0)
                return true;
            if (ready < 0 && errno != EINTR)
                return false;
        }
        return false;
    };

    {
        std::lock_guard lock(m_mutex);
        if (m_fault == Fault::CloseBeforeRead)
            return;
    }

    QByteArray request;
    char buffer[4096];
    while (!request.contains('\n')) {
        if (!awaitInput())
            return;
        const ssize_t count = ::read(connection, buffer, sizeof buffer);
        if (count <= 0)
            break;
        request.append(buffer, count);
    }
    request.truncate(request.indexOf('\n') < 0 ? request.size() : request.indexOf('\n'));
    const Fault fault = activeFault(request);

    // Faults that never answer leave the daemon's state alone, as a hung or refusing daemon would.
    switch (fault) {
    case Fault::Silent:
        while (awaitInput() && ::read(connection, buffer, sizeof buffer) > 0) {
        }
        return;
    case Fault::Empty:
        return;
    case Fault::Garbage:
        DaemonSocket::sendAll(connection, "ERR daemon busy \x01\x02\xff\n");
        return;
    case Fault::EndlessStream: {
        const QByteArray chunk(64 * 1024, ' ');
        while (!m_stopping && DaemonSocket::sendAll(connection, chunk)) {
        }
        return;
    }
    case Fault::Refuse:
        DaemonSocket::sendAll(connection,
                R"({"success":false,"code":"busy","error":"The daemon is busy; try again."})" "\n");
        return;
    case Fault::RefuseWithoutError:
        DaemonSocket::sendAll(connection, "{\"success\":false}\n");
        return;
    case Fault::Scripted: {
        std::unique_lock lock(m_mutex);
        const QByteArray scripted = m_scriptedReply;
        const qsizetype chunk = m_scriptedChunkBytes > 0 ? m_scriptedChunkBytes : scripted.size();
        lock.unlock();
        for (qsizetype at = 0; at < scripted.size(); at += chunk) {
            if (!DaemonSocket::sendAll(connection, QByteArrayView(scripted).sliced(at, std::min(chunk, scripted.size() - at))))
                break; // the client stopped reading after its line feed
        }
        return;
    }
    default:
        break;
    }

    const QByteArray reply = m_daemon.reply(request);
    switch (fault) {
    case Fault::SlowReply: {
        // Eight pieces with pauses, so the client must gather across many reads.
        const QByteArray line = reply + '\n';
        const qsizetype piece = std::max<qsizetype>(1, line.size() / 8);
        for (qsizetype offset = 0; offset < line.size() && !m_stopping; offset += piece) {
            if (!DaemonSocket::sendAll(connection, line.mid(offset, piece)))
                return;
            std::this_thread::sleep_for(40ms);
        }
        return;
    }
    case Fault::CloseMidLine:
        DaemonSocket::sendAll(connection, reply.left(reply.size() / 2));
        return;
    case Fault::WrongTypes:
        DaemonSocket::sendAll(connection, withWrongType(reply) + '\n');
        return;
    case Fault::TrailingBytes:
        DaemonSocket::sendAll(connection, reply + "\n{\"success\":false,\"error\":\"stale\"}\ntrailing");
        return;
    default:
        DaemonSocket::sendAll(connection, reply + '\n');
        return;
    }
}

} // namespace Veltrane::Simulator
