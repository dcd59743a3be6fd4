#include "DaemonSocket.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace Veltrane {

namespace {

// A daemon that closes before reading the request must not kill the app with SIGPIPE. Linux
// suppresses it per write; Darwin has no such flag and takes a socket option instead.
#ifdef MSG_NOSIGNAL
constexpr int noSignalFlag = MSG_NOSIGNAL;
#else
constexpr int noSignalFlag = 0;
#endif

QString lastReason() { return ClientError::systemReason(errno); }

} // namespace

// Close-on-exec is set after the descriptor is made, as POSIX and Darwin offer no flag to make it
// so at once. The app starts a program only when it opens a sign-in link, from the UI thread; a
// socket made at that very moment may pass to the browser opener, which does not use it.
bool DaemonSocket::prepareDescriptor(int descriptor)
{
    if (::fcntl(descriptor, F_SETFD, FD_CLOEXEC) != 0)
        return false;
#ifdef SO_NOSIGPIPE
    const int on = 1;
    if (::setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on) != 0 && errno != ENOTSOCK)
        return false;
#endif
    return true;
}

std::variant<DaemonSocket, ClientError> DaemonSocket::connect(const QByteArray &path)
{
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (descriptor < 0)
        return ClientError::connectFailed(lastReason());
    DaemonSocket socket(descriptor);
    if (!prepareDescriptor(descriptor))
        return ClientError::connectFailed(lastReason());

    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    static_assert(sizeof address.sun_path >= maximumPathBytes);
    if (path.size() + 1 > maximumPathBytes)
        return ClientError::connectFailed(u"socket path too long"_s);
    std::memcpy(address.sun_path, path.constData(), size_t(path.size()) + 1);

    if (::connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return ClientError::connectFailed(lastReason());
    return socket;
}

DaemonSocket::DaemonSocket(DaemonSocket &&other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1))
    , m_receiveLimitMilliseconds(other.m_receiveLimitMilliseconds)
{
}

DaemonSocket &DaemonSocket::operator=(DaemonSocket &&other) noexcept
{
    if (this != &other) {
        close();
        m_descriptor = std::exchange(other.m_descriptor, -1);
        m_receiveLimitMilliseconds = other.m_receiveLimitMilliseconds;
    }
    return *this;
}

DaemonSocket::~DaemonSocket() { close(); }

void DaemonSocket::close()
{
    if (m_descriptor >= 0)
        ::close(std::exchange(m_descriptor, -1));
}

timeval DaemonSocket::timevalFor(double seconds)
{
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(std::trunc(seconds));
    limit.tv_usec = static_cast<suseconds_t>((seconds - std::floor(seconds)) * 1'000'000);
    return limit;
}

std::optional<ClientError> DaemonSocket::applyTimeout(double seconds)
{
    // Reads wait in poll() with the limit; writes block in the kernel, which keeps it.
    const timeval limit = timevalFor(seconds);
    if (::setsockopt(m_descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0)
        return ClientError::ioFailed(u"setsockopt: "_s + lastReason());
    m_receiveLimitMilliseconds = int(limit.tv_sec * 1000 + (limit.tv_usec + 999) / 1000);
    return std::nullopt;
}

bool DaemonSocket::sendAll(int descriptor, QByteArrayView bytes)
{
    qsizetype offset = 0;
    while (offset < bytes.size()) {
        const ssize_t written =
            ::send(descriptor, bytes.data() + offset, size_t(bytes.size() - offset), noSignalFlag);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        offset += written;
    }
    return true;
}

std::optional<ClientError> DaemonSocket::writeAll(const QByteArray &bytes)
{
    if (!sendAll(m_descriptor, bytes))
        return ClientError::ioFailed(u"write: "_s + lastReason());
    return std::nullopt;
}

std::variant<QByteArray, ClientError> DaemonSocket::readLine(QByteArray buffer, qsizetype spareCapacity)
{
    // Read straight into the array: its capacity grows with the reply, so a reply of megabytes
    // is neither copied piece by piece nor copied again to make room for the spare bytes.
    QByteArray gathered = std::move(buffer);
    gathered.resize(0); // keeps the capacity
    qsizetype lineEnd = -1;
    while (lineEnd < 0 && gathered.size() < replyCapBytes) {
        // Waits in poll() rather than in read(): a thread blocked in read() also wakes, and sleeps
        // again, when the daemon takes the request off the socket. Past the limit, the read that
        // finds nothing fails as a timed-out read does.
        pollfd readable{m_descriptor, POLLIN, 0};
        if (::poll(&readable, 1, m_receiveLimitMilliseconds) < 0 && errno == EINTR)
            continue;
        const qsizetype start = gathered.size();
        // The room made already, and once that is full as much again as has come.
        const qsizetype room = gathered.capacity() - spareCapacity - start;
        const qsizetype wanted = std::min(room >= readChunkBytes ? room : std::max(start, readChunkBytes),
                                          replyCapBytes + readChunkBytes - 1 - start);
        gathered.resize(start + wanted + spareCapacity);
        const ssize_t count = ::recv(m_descriptor, gathered.data() + start, size_t(wanted), MSG_DONTWAIT);
        gathered.resize(start + std::max<ssize_t>(count, 0));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return ClientError::ioFailed(u"read: "_s + lastReason());
        if (count == 0)
            break;
        if (const void *feed = std::memchr(gathered.constData() + start, '\n', size_t(count)))
            lineEnd = static_cast<const char *>(feed) - gathered.constData();
    }
    if (lineEnd >= 0)
        gathered.truncate(lineEnd);
    return gathered;
}

} // namespace Veltrane
