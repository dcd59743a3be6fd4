#pragma once

#include "NotificationCenter.h"

#include <QDBusConnection>
#include <QObject>
#include <QTimer>

#include <vector>

namespace Veltrane {

/// Notices through org.freedesktop.Notifications on a D-Bus connection, called asynchronously.
///
/// The service has no permission step; what stands for it is the capability query, the one
/// handshake in which the server says what it will show. Its answer decides whether the server
/// parses body markup, in which case bodies are escaped so that daemon text shows as typed.
/// Notices added before the answer wait for it (without blocking) and then go out in order, but
/// never longer than `answerWaitMilliseconds`: a server that stalls gets them then, escaped, since
/// without its answer escaping is the only way daemon text cannot turn into markup.
class FreedesktopNotificationCenter : public QObject, public NotificationCenter
{
    Q_OBJECT

public:
    FreedesktopNotificationCenter(const QDBusConnection &bus, const QString &desktopEntry,
                                  QObject *parent = nullptr);

    static constexpr int answerWaitMilliseconds = 500;

    void requestAuthorization() override;
    void add(const NotificationRequest &request, DeliveryHandler delivered) override;

private:
    struct Waiting {
        NotificationRequest request;
        DeliveryHandler delivered;
    };

    void queryCapabilities();
    void deliverWaiting();
    void deliver(const NotificationRequest &request, DeliveryHandler delivered);

    QDBusConnection m_bus;
    QString m_desktopEntry;
    std::optional<bool> m_bodyMarkup; // known once a capability query succeeded
    bool m_queryInFlight = false;
    std::vector<Waiting> m_waiting;
    QTimer m_answerDeadline;
};

} // namespace Veltrane
