#pragma once

#include <QString>

#include <functional>
#include <memory>
#include <optional>

namespace Veltrane {

/// One notice, shown at once.
struct NotificationRequest {
    QString identifier; ///< a fresh upper-case UUID per notice
    QString title;
    QString body;
};

/// The platform's notification service, as Notify uses it.
class NotificationCenter
{
public:
    /// Called with the failure's description when the service refused a notice, or with nothing
    /// once it took it. May run on any thread.
    using DeliveryHandler = std::function<void(const std::optional<QString> &error)>;

    virtual ~NotificationCenter() = default;

    /// Asks the service, once per run, for leave to show alerts. Nobody waits for the answer.
    virtual void requestAuthorization() = 0;
    /// Hands a notice to the service; returns at once.
    virtual void add(const NotificationRequest &request, DeliveryHandler delivered) = 0;
};

/// This platform's service for the app with identity `identity`: the desktop's notification
/// server on the session bus (Linux), or the user notification centre (macOS).
std::shared_ptr<NotificationCenter> createNotificationCenter(const QString &identity);

} // namespace Veltrane
