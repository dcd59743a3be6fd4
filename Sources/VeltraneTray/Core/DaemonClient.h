#pragma once

#include "ClientError.h"
#include "DaemonProtocol.h"

#include <QObject>

#include <functional>
#include <optional>
#include <variant>

namespace Veltrane {

/// The outcome of one exchange: the decoded reply, or why there is none.
using DaemonResult = std::variant<DaemonControlResponse, ClientError>;

/// Carries one request to the daemon and brings its reply back to the UI thread.
///
/// Every exchange opens its own connection, writes one request line, reads one reply line and
/// closes. The blocking work runs on one process-wide worker thread, strictly in submission order,
/// so nothing here ever blocks the caller. A client holds only its socket path and is cheap to
/// copy; all clients share the worker, and so its ordering.
class DaemonClient
{
public:
    static constexpr auto defaultSocketPath = "/var/run/veltrane/daemon.sock";
    /// Whatever a caller asks for, each read and write may wait at least this long.
    static constexpr double minimumTimeoutSeconds = 2;
    static constexpr double statusTimeoutSeconds = 5;

    using Completion = std::function<void(const DaemonResult &)>;
    using StatusCompletion = std::function<void(const std::optional<DaemonStatusSnapshot> &)>;
    /// One whole exchange, blocking, as the worker runs it for each request (see exchangeNow).
    using Exchange = std::function<DaemonResult(const QByteArray &socketPath, const DaemonControlRequest &request,
                                                double timeoutSeconds, DaemonProtocol::DeviceRecords devices)>;

    /// The app always talks to defaultSocketPath through exchangeNow; tests hand in a socket of
    /// their own, and may hand in an exchange that watches what is asked before it runs exchangeNow.
    explicit DaemonClient(const QString &socketPath = QString::fromLatin1(defaultSocketPath),
                          Exchange exchange = exchangeNow);

    /// Sends `request`, limiting each blocking read and write to `timeoutSeconds` (never below
    /// minimumTimeoutSeconds). Returns at once. `completion` then runs exactly once, later, on the
    /// application's main thread, unless `context` has been destroyed by then: the context is
    /// held weakly, as the owner of the completion.
    /// `devices`: when the records of a status's peer devices are made (see DeviceRecords).
    void send(const DaemonControlRequest &request, double timeoutSeconds, const QObject *context,
              Completion completion, DaemonProtocol::DeviceRecords devices = DaemonProtocol::DeviceRecords::Now) const;

    /// Sends "get_status" with the status time limit. The completion receives the reply's status
    /// when the daemon answered with success, and nothing on any failure or refusal.
    void tryGetStatus(const QObject *context, StatusCompletion completion,
                      DaemonProtocol::DeviceRecords devices = DaemonProtocol::DeviceRecords::Now) const;

    /// The whole exchange, blocking, on the calling thread, from connecting to the decoded reply:
    /// what the worker runs for each request unless the client was given another Exchange.
    static DaemonResult exchangeNow(const QByteArray &socketPath, const DaemonControlRequest &request,
                                    double timeoutSeconds,
                                    DaemonProtocol::DeviceRecords devices = DaemonProtocol::DeviceRecords::Now);

private:
    QByteArray m_socketPath;
    Exchange m_exchange;
};

} // namespace Veltrane
