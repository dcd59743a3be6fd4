#pragma once

#include "ClientError.h"

#include <QByteArray>

#include <optional>
#include <sys/time.h>
#include <variant>

namespace Veltrane {

/// One connection to the daemon's Unix-domain control socket, open from a successful connect()
/// until it is closed or destroyed; the descriptor is closed exactly once on every path.
/// Every call blocks: use it only on the daemon client's worker.
class DaemonSocket
{
public:
    /// The longest socket path accepted, counting its terminating NUL.
    static constexpr qsizetype maximumPathBytes = 104;
    /// A reply is read until its first line feed, the daemon's close, or this many bytes.
    static constexpr qsizetype replyCapBytes = 4 * 1024 * 1024;
    /// The first read's size. Later reads take as much as has come so far, so a large reply
    /// comes in a few reads; the cap is never passed by readChunkBytes or more.
    static constexpr qsizetype readChunkBytes = 8192;

    static std::variant<DaemonSocket, ClientError> connect(const QByteArray &path);

    DaemonSocket(DaemonSocket &&other) noexcept;
    DaemonSocket &operator=(DaemonSocket &&other) noexcept;
    DaemonSocket(const DaemonSocket &) = delete;
    DaemonSocket &operator=(const DaemonSocket &) = delete;
    ~DaemonSocket();

    /// Limits each wait for reply bytes and each blocking write to `seconds`. A failure leaves
    /// both limits as they were.
    std::optional<ClientError> applyTimeout(double seconds);
    /// Writes every byte, continuing short writes. A closed peer is an error, never a signal.
    std::optional<ClientError> writeAll(const QByteArray &bytes);
    /// The bytes before the first line feed; everything received if the daemon closes first
    /// (possibly nothing). Stops reading once replyCapBytes have been gathered. The bytes are
    /// read into `buffer`, emptied first, whose capacity is used before it grows; the array keeps
    /// `spareCapacity` bytes of capacity behind the line, for a reader that looks past its end.
    std::variant<QByteArray, ClientError> readLine(QByteArray buffer = {}, qsizetype spareCapacity = 0);
    void close();

    int descriptor() const { return m_descriptor; }

    /// Sends every byte on a connected socket, continuing short writes, without raising SIGPIPE
    /// (on Darwin, only on a socket made ready by prepareDescriptor). False on failure, with errno
    /// telling why.
    static bool sendAll(int descriptor, QByteArrayView bytes);

    /// Readies a new descriptor: closed in programs this process starts, and, where a write cannot
    /// ask for it, a socket that never raises SIGPIPE. True unless the system refused.
    static bool prepareDescriptor(int descriptor);

    /// The time limit as the socket options take it: whole seconds and the truncated remainder.
    static timeval timevalFor(double seconds);

private:
    explicit DaemonSocket(int descriptor) : m_descriptor(descriptor) {}

    int m_descriptor = -1;
    int m_receiveLimitMilliseconds = -1; // none until applyTimeout()
};

} // namespace Veltrane
