#pragma once

#include <QString>

#include <functional>

class QObject;

namespace Veltrane {

/// One running instance per application identity. On a Linux desktop the instance that runs is
/// the one that owns the identity as a name on the session bus, which goes with the process; a
/// later launch asks it to come forward, the freedesktop way (`org.freedesktop.Application`). On
/// macOS the first running application with the bundle identifier runs, and is not told.
namespace SingleInstance {

/// Called on the running instance each time the app is launched again, with the launcher's
/// activation token for the window it should bring forward (empty where it gave none).
using Activated = std::function<void(const QString &activationToken)>;

/// Claims `identity` for this process, without waiting. `decided` then runs once on `context`'s
/// thread, unless `context` is gone: with true when this process is the one instance, false when
/// another process is (which has been asked to come forward by then). While this process is the
/// instance, `activated` runs for every later launch. A Linux process without a session bus
/// cannot know of others; it is told true.
void claim(const QString &identity, QObject *context, std::function<void(bool ours)> decided, Activated activated);

} // namespace SingleInstance
} // namespace Veltrane
