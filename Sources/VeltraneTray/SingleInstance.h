#pragma once

#include <QDBusConnection>
#include <QString>

#include <functional>

class QObject;

namespace Veltrane {

/// One running instance per application identity. On a Linux desktop the instance that runs is
/// the one that owns the identity as a name on the session bus; the name goes with the process.
namespace SingleInstance {

/// Asks `bus` for `identity` on behalf of this process, without waiting. `decided` then runs
/// once on `context`'s thread, unless `context` is gone: with true when this process owns the
/// name, false when another process does. A process without a session bus cannot know of others;
/// it is told true at once.
void claim(const QDBusConnection &bus, const QString &identity, QObject *context,
           std::function<void(bool ours)> decided);

} // namespace SingleInstance
} // namespace Veltrane
