#include "DaemonClient.h"

#include "DaemonSocket.h"

#include <QCoreApplication>
#include <QPointer>
#include <QThread>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Veltrane {

namespace {

// The worker: one thread with an event loop, so exchanges run one after another in submission
// order. Work reaches it as posted events, and posting wakes the thread after letting go of the
// queue's lock; a thread pool wakes its thread while still holding its lock, and the woken thread
// then sleeps once more, on that lock. Never stopped nor destroyed: quitting must neither wait for
// nor cancel outstanding requests, and an exchange may block for over a minute.
QObject &workQueue()
{
    static QObject *const queue = [] {
        auto *thread = new QThread;
        thread->setObjectName(u"net.veltrane.tray.daemon-client"_s);
        auto *receiver = new QObject;
        receiver->moveToThread(thread);
        thread->start();
        return receiver;
    }();
    return *queue;
}

// The array the next reply is read into, with room for `expected` bytes and a little more. While
// the UI keeps the latest status reply (its devices may yet be asked for), two arrays take turns:
// the one nobody else holds any more is read into again, its memory already in place, so a large
// reply is read without growing it. (An array still held would be copied before it is written:
// taking turns saves work, never guards data.) An array nobody needs is let go, and so is one far
// larger than the last reply, so a network that shrank keeps no big buffer.
QByteArray &replyBuffer(qsizetype expected)
{
    thread_local QByteArray turns[2];
    const qsizetype wanted = expected + expected / 16 + DaemonProtocol::paddingBytes;
    const auto reusable = [&](const QByteArray &array) {
        return array.isDetached() && array.capacity() <= 2 * wanted + DaemonSocket::readChunkBytes;
    };
    const auto held = [](const QByteArray &array) { return !array.isNull() && !array.isDetached(); };
    QByteArray *taken = reusable(turns[0]) ? &turns[0] : reusable(turns[1]) ? &turns[1]
        : held(turns[0]) ? &turns[1] : &turns[0];
    QByteArray &other = taken == &turns[0] ? turns[1] : turns[0];
    if (!held(other))
        other = QByteArray();
    if (!reusable(*taken))
        *taken = QByteArray();
    taken->resize(0); // the old reply's bytes need no copy if the array grows
    taken->reserve(wanted);
    return *taken;
}

} // namespace

DaemonResult DaemonClient::exchangeNow(const QByteArray &socketPath, const DaemonControlRequest &request,
                                       double timeoutSeconds, DaemonProtocol::DeviceRecords devices)
{
    auto connected = DaemonSocket::connect(socketPath);
    if (auto *error = std::get_if<ClientError>(&connected))
        return *error;
    auto &socket = std::get<DaemonSocket>(connected);

    if (auto error = socket.applyTimeout(std::max(timeoutSeconds, DaemonClient::minimumTimeoutSeconds)))
        return *error;
    if (auto error = socket.writeAll(DaemonProtocol::encodeRequest(request)))
        return *error;
    thread_local qsizetype lastReplyBytes = 0;
    QByteArray &buffer = replyBuffer(lastReplyBytes);
    auto read = socket.readLine(std::exchange(buffer, {}), DaemonProtocol::paddingBytes);
    socket.close();
    if (auto *error = std::get_if<ClientError>(&read))
        return *error;

    auto &line = std::get<QByteArray>(read);
    buffer = line; // shared with the reply, until the reply lets go of it
    lastReplyBytes = line.size();
    if (line.isEmpty())
        return ClientError::emptyResponse();
    auto decoded = DaemonProtocol::decodeResponse(line, devices);
    if (auto *failure = std::get_if<DecodeFailure>(&decoded))
        return ClientError::ioFailed(u"invalid response: "_s + failure->description);
    return std::get<DaemonControlResponse>(std::move(decoded));
}

DaemonClient::DaemonClient(const QString &socketPath, Exchange exchange)
    : m_socketPath(socketPath.toUtf8())
    , m_exchange(std::move(exchange))
{
}

void DaemonClient::send(const DaemonControlRequest &request, double timeoutSeconds, const QObject *context,
                        Completion completion, DaemonProtocol::DeviceRecords devices) const
{
    Q_ASSERT(QCoreApplication::instance());
    QMetaObject::invokeMethod(&workQueue(), [socketPath = m_socketPath, exchange = m_exchange, request, timeoutSeconds, devices,
                                             context = QPointer<const QObject>(context),
                                             completion = std::move(completion)]() mutable {
        // The UI lets go of a status when the next one comes. The worker keeps each result (a
        // shared copy) until the exchange after next begins, so the last reference to a reply's
        // ten thousand records, and the work of freeing them, is the worker's, not the UI
        // thread's; and the reply's array is free again for the next read.
        thread_local DaemonResult kept[2];
        thread_local int oldest = 0;
        kept[oldest] = DaemonResult();
        DaemonResult result = exchange(socketPath, request, timeoutSeconds, devices);
        kept[oldest] = result;
        oldest = 1 - oldest;
        // Posted even for a result computed at once, so the completion never runs on the stack
        // of send(). The context is checked on the main thread, where it lives.
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [context, completion = std::move(completion), result = std::move(result)] {
                if (context)
                    completion(result);
            },
            Qt::QueuedConnection);
    }, Qt::QueuedConnection);
}

void DaemonClient::tryGetStatus(const QObject *context, StatusCompletion completion,
                                DaemonProtocol::DeviceRecords devices) const
{
    send({u"get_status"_s}, statusTimeoutSeconds, context,
         [completion = std::move(completion)](const DaemonResult &result) {
             const auto *response = std::get_if<DaemonControlResponse>(&result);
             completion(response && response->succeeded() ? response->status : std::nullopt);
         },
         devices);
}

} // namespace Veltrane
