// libFuzzer target for the whole control exchange: the input is what the daemon sends, and how.
// A daemon thread accepts each connection, reads the request line, then writes the bytes in
// chunks and closes, possibly before all are sent. The client runs its real exchange (connect,
// time limits, write, the read loop, decode) over a real Unix socket.
//
// Input: byte 0 is the chunk size (1 to 256), byte 1 and 2 how many bytes are sent before the
// daemon closes (all of them when 0); the rest is the stream.
//
// Oracle: however the bytes are cut, the outcome is exactly that of decoding the bytes sent
// before the first line feed: an empty reply, the decoder's failure, or its record.
#include "DaemonClient.h"
#include "DaemonSocket.h"

#include <QTemporaryDir>

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Veltrane;

namespace {

class ScriptedDaemon
{
public:
    ScriptedDaemon()
    {
        m_path = m_directory.filePath(QStringLiteral("daemon.sock")).toUtf8();
        m_listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, m_path.constData(), size_t(m_path.size()));
        if (::bind(m_listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 || ::listen(m_listener, 4) != 0)
            std::abort();
        std::thread([this] { serve(); }).detach();
    }

    const QByteArray &path() const { return m_path; }

    // The next connection gets `stream`, `chunk` bytes at a time.
    void script(QByteArray stream, qsizetype chunk)
    {
        std::lock_guard lock(m_mutex);
        m_stream = std::move(stream);
        m_chunk = chunk;
    }

private:
    void serve()
    {
        for (;;) {
            const int connection = ::accept(m_listener, nullptr, nullptr);
            if (connection < 0)
                continue;
            char byte = 0;
            while (::read(connection, &byte, 1) == 1 && byte != '\n') {
            }
            QByteArray stream;
            qsizetype chunk = 1;
            {
                std::lock_guard lock(m_mutex);
                stream = m_stream;
                chunk = m_chunk;
            }
            for (qsizetype at = 0; at < stream.size(); at += chunk) {
                if (!DaemonSocket::sendAll(connection, QByteArrayView(stream).sliced(at, std::min(chunk, stream.size() - at))))
                    break; // the client stopped reading after its line feed
            }
            ::close(connection);
        }
    }

    QTemporaryDir m_directory;
    QByteArray m_path;
    int m_listener = -1;
    std::mutex m_mutex;
    QByteArray m_stream;
    qsizetype m_chunk = 1;
};

// What the client must make of `sent`, worked out without any socket.
DaemonResult expectedFrom(const QByteArray &sent)
{
    QByteArray line = sent.left(std::min(sent.indexOf('\n') < 0 ? sent.size() : sent.indexOf('\n'),
                                         DaemonSocket::replyCapBytes));
    if (line.isEmpty())
        return ClientError::emptyResponse();
    auto decoded = DaemonProtocol::decodeResponse(line);
    if (const auto *failure = std::get_if<DecodeFailure>(&decoded))
        return ClientError::ioFailed(QStringLiteral("invalid response: ") + failure->description);
    return std::get<DaemonControlResponse>(decoded);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static ScriptedDaemon daemon;
    if (size < 3)
        return 0;
    const qsizetype chunk = qsizetype(data[0]) + 1;
    const qsizetype sentBeforeClose = qsizetype(data[1]) << 8 | data[2];
    QByteArray stream(reinterpret_cast<const char *>(data + 3), qsizetype(size - 3));
    if (sentBeforeClose > 0)
        stream.truncate(sentBeforeClose);
    daemon.script(stream, chunk);

    const DaemonResult result = DaemonClient::exchangeNow(daemon.path(), {QStringLiteral("get_status")}, 5);
    if (result != expectedFrom(stream))
        std::abort();
    return 0;
}
