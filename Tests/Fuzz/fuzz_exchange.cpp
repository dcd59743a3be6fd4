// libFuzzer target for the whole control exchange: the input is what the daemon sends, and how.
// The simulated daemon reads each request line, then writes the scripted bytes in chunks and
// closes, possibly before all are sent. The client runs its real exchange (connect, time limits,
// write, the read loop, decode) over a real Unix socket.
//
// Input: byte 0 is the chunk size (1 to 256), byte 1 and 2 how many bytes are sent before the
// daemon closes (all of them when 0); the rest is the stream.
//
// Oracle: however the bytes are cut, the outcome is exactly that of decoding the bytes sent
// before the first line feed: an empty reply, the decoder's failure, or its record. A difference
// is printed, both sides, before the abort that makes it a finding. The daemon here sends at once,
// so the exchange's time limit is generous: only a machine too loaded to run it could reach it.
#include "DaemonClient.h"
#include "DaemonSocket.h"
#include "SimulatorServer.h"

#include <QJsonDocument>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

using namespace Veltrane;

namespace {

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

QByteArray described(const DaemonResult &result)
{
    if (const auto *error = std::get_if<ClientError>(&result))
        return "error: " + error->errorDescription().toUtf8();
    return "reply: "
        + QJsonDocument(Simulator::toJson(std::get<DaemonControlResponse>(result))).toJson(QJsonDocument::Compact);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir directory;
    static const QString path = directory.filePath(QStringLiteral("daemon.sock"));
    static Simulator::SimulatedDaemon daemon{{}};
    static Simulator::SimulatorServer server(daemon);
    static const bool listening = [] {
        server.setFault(Simulator::Fault::Scripted);
        return !server.listen(path);
    }();
    if (!listening)
        std::abort();
    if (size < 3)
        return 0;
    const qsizetype chunk = qsizetype(data[0]) + 1;
    const qsizetype sentBeforeClose = qsizetype(data[1]) << 8 | data[2];
    QByteArray stream(reinterpret_cast<const char *>(data + 3), qsizetype(size - 3));
    if (sentBeforeClose > 0)
        stream.truncate(sentBeforeClose);
    server.setScriptedReply(stream, chunk);

    const DaemonResult result = DaemonClient::exchangeNow(path.toUtf8(), {QStringLiteral("get_status")}, 30);
    // Nothing of this input may live on in a serving thread: the leak check comes between inputs.
    server.waitUntilIdle();
    if (const DaemonResult expected = expectedFrom(stream); result != expected) {
        std::fprintf(stderr, "fuzz_exchange: the exchange returned %s\nfuzz_exchange: decoding the bytes gives %s\n",
                     described(result).constData(), described(expected).constData());
        std::abort();
    }
    return 0;
}
