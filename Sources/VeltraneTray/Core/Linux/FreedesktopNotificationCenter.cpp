#include "FreedesktopNotificationCenter.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

using namespace Qt::StringLiterals;

namespace Veltrane {

namespace {

const QString service = u"org.freedesktop.Notifications"_s;
const QString path = u"/org/freedesktop/Notifications"_s;

QDBusPendingCallWatcher *callAsync(const QDBusConnection &bus, const QString &method,
                                   const QVariantList &arguments, QObject *parent)
{
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, service, method);
    call.setArguments(arguments);
    return new QDBusPendingCallWatcher(bus.asyncCall(call), parent);
}

} // namespace

FreedesktopNotificationCenter::FreedesktopNotificationCenter(const QDBusConnection &bus,
                                                             const QString &desktopEntry,
                                                             QObject *parent)
    : QObject(parent)
    , m_bus(bus)
    , m_desktopEntry(desktopEntry)
{
    m_answerDeadline.setSingleShot(true);
    m_answerDeadline.setInterval(answerWaitMilliseconds);
    connect(&m_answerDeadline, &QTimer::timeout, this, &FreedesktopNotificationCenter::deliverWaiting);
}

void FreedesktopNotificationCenter::requestAuthorization() { queryCapabilities(); }

void FreedesktopNotificationCenter::add(const NotificationRequest &request, DeliveryHandler delivered)
{
    if (m_bodyMarkup.has_value()) {
        deliver(request, std::move(delivered));
        return;
    }
    m_waiting.push_back({request, std::move(delivered)});
    queryCapabilities();
    if (!m_answerDeadline.isActive())
        m_answerDeadline.start();
}

void FreedesktopNotificationCenter::queryCapabilities()
{
    if (m_bodyMarkup.has_value() || m_queryInFlight)
        return;
    m_queryInFlight = true;
    auto *watcher = callAsync(m_bus, u"GetCapabilities"_s, {}, this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *call) {
        call->deleteLater();
        m_queryInFlight = false;
        const QDBusPendingReply<QStringList> reply = *call;
        // A failed query leaves the answer unknown, so the next notice asks again; notices that
        // waited go out escaped and report the server's own error if it is still away.
        if (!reply.isError())
            m_bodyMarkup = reply.value().contains(u"body-markup"_s);
        deliverWaiting();
    });
}

void FreedesktopNotificationCenter::deliverWaiting()
{
    m_answerDeadline.stop();
    for (Waiting &waiting : std::exchange(m_waiting, {}))
        deliver(waiting.request, std::move(waiting.delivered));
}

void FreedesktopNotificationCenter::deliver(const NotificationRequest &request, DeliveryHandler delivered)
{
    // Unknown is treated as markup: escaped text at worst shows its entities, while unescaped text
    // at a server that parses markup could show what the daemon never wrote.
    const QString body = m_bodyMarkup.value_or(true) ? request.body.toHtmlEscaped() : request.body;
    QVariantMap hints{{u"x-veltrane-id"_s, request.identifier}};
    if (!m_desktopEntry.isEmpty())
        hints.insert(u"desktop-entry"_s, m_desktopEntry);
    const QVariantList arguments{
        u"Veltrane"_s,  // app_name
        0u,              // replaces_id: always a new notice
        QString(),       // app_icon: servers take it from the desktop entry
        request.title,   // summary, never markup
        body,            //
        QStringList(),   // actions
        hints,           //
        -1,              // expire_timeout: the server's default
    };
    auto *watcher = callAsync(m_bus, u"Notify"_s, arguments, this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [delivered = std::move(delivered)](QDBusPendingCallWatcher *call) {
                call->deleteLater();
                if (call->isError())
                    delivered(call->error().message());
                else
                    delivered(std::nullopt);
            });
}

std::shared_ptr<NotificationCenter> createNotificationCenter(const QString &identity)
{
    return std::make_shared<FreedesktopNotificationCenter>(QDBusConnection::sessionBus(), identity);
}

} // namespace Veltrane
