#pragma once

#include "NotificationCenter.h"

#include <QString>

#include <memory>
#include <optional>

namespace Veltrane {

/// Tells the user one short notice, at once; fire-and-forget.
///
/// An app without an identity (a bare build-tree executable) writes each notice to the process
/// log instead. An app with one asks the notification service for permission once per run,
/// before its first notice, and logs every notice the service refuses.
namespace Notify {

/// Shows `title` and `body` unchanged. Call on the main thread.
void show(const QString &title, const QString &body);

/// Where notices go from now on: the application's identity (none: to the log) and the service.
/// The once-per-run permission request starts afresh. The app calls this once at start-up.
void install(const std::optional<QString> &applicationId, std::shared_ptr<NotificationCenter> center);

} // namespace Notify
} // namespace Veltrane
