#pragma once

#include <QDBusConnection>
#include <QString>

namespace Veltrane {

/// One running instance per application identity. On a Linux desktop the instance that runs is
/// the one that owns the identity as a name on the session bus; the name goes with the process.
namespace SingleInstance {

/// Claims `identity` on `bus` for this process. False when another process already owns it. A
/// process without a session bus cannot know of others, and runs.
bool claim(const QDBusConnection &bus, const QString &identity);

} // namespace SingleInstance
} // namespace Veltrane
