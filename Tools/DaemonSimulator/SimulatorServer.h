#pragma once

#include <QHash>

#include "SimulatedDaemon.h"

#include <QString>

#include <atomic>
#include <list>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

namespace Veltrane::Simulator {

/// Ways the simulated daemon can misbehave, for tests of every failure path.
enum class Fault {
    None,
    Silent,             ///< reads the request, never answers, waits for the client to give up
    SlowReply,          ///< answers in small pieces with pauses between them
    CloseBeforeRead,    ///< closes each connection as soon as it is accepted
    CloseMidLine,       ///< sends the first half of the reply line, then closes
    Empty,              ///< reads the request, then closes without a byte
    Garbage,            ///< answers a line that is not JSON
    WrongTypes,         ///< answers valid JSON with one value of the wrong type
    EndlessStream,      ///< answers bytes without a line feed until the client closes
    TrailingBytes,      ///< answers the line followed by more bytes in the same write
    Refuse,             ///< answers success false with an error text
    RefuseWithoutError, ///< answers success false and nothing else
    Scripted,           ///< answers exactly the bytes given to setScriptedReply(), then closes
};

std::optional<Fault> faultFromName(const QString &name);
QStringList faultNames();

/// Serves a SimulatedDaemon on a Unix-domain socket, one thread per connection.
class SimulatorServer
{
public:
    explicit SimulatorServer(SimulatedDaemon &daemon);
    ~SimulatorServer();
    SimulatorServer(const SimulatorServer &) = delete;
    SimulatorServer &operator=(const SimulatorServer &) = delete;

    /// Listens at `path`, replacing a stale socket file. Returns the reason on failure.
    std::optional<QString> listen(const QString &path);
    /// Stops accepting, ends every open connection and waits for their threads.
    void stop();
    /// Waits until every connection accepted so far has been served and its thread has ended.
    void waitUntilIdle();

    /// Misbehaves in the given way from now on, for requests of `command` only, or for every
    /// request when `command` is empty. CloseBeforeRead acts before a command is known, so it
    /// always applies to every connection.
    void setFault(Fault fault, const QString &command = {});
    /// The bytes that Fault::Scripted sends, line feed included or not: in writes of `chunkBytes`
    /// when given, else in one.
    void setScriptedReply(const QByteArray &bytes, qsizetype chunkBytes = 0);
    /// Writes every request line to standard error as it arrives ("request: …").
    void setLogRequests(bool log);
    static constexpr qsizetype requestHistory = 1000;
    /// The request lines received, oldest first, as they arrived without their line feed; the
    /// most recent requestHistory of them, so a simulator left running stays small.
    QList<QByteArray> requestsReceived() const;
    /// How many request lines equal to `request` arrived since the start, however many.
    qint64 requestCount(const QByteArray &request) const;

private:
    void acceptLoop();
    void serve(int connection);
    /// Records the request and returns the fault that applies to it.
    Fault activeFault(const QByteArray &request);
    void reapFinishedWorkers();

    struct Worker {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> finished;
    };

    SimulatedDaemon &m_daemon;
    QByteArray m_path;
    int m_listener = -1;
    int m_wakePipe[2] = {-1, -1};
    std::thread m_acceptThread;
    std::atomic<bool> m_stopping = false;

    mutable std::mutex m_mutex; // guards everything below
    Fault m_fault = Fault::None;
    QString m_faultCommand;
    QByteArray m_scriptedReply;
    qsizetype m_scriptedChunkBytes = 0;
    bool m_logRequests = false;
    std::list<Worker> m_workers;
    std::set<int> m_openConnections;
    QList<QByteArray> m_requests;
    QHash<QByteArray, qint64> m_requestCounts;
};

} // namespace Veltrane::Simulator
