#pragma once

#include <QString>

#include <functional>

class QObject;

namespace Veltrane {

/// One running instance per application identity. On a Linux desktop the instance that runs is
/// the one that owns the identity as a name on the session bus, which goes with the process; on
/// macOS, the first running application with the bundle identifier.
namespace SingleInstance {

/// Claims `identity` for this process, without waiting. `decided` then runs once on `context`'s
/// thread, unless `context` is gone: with true when this process is the one instance, false when
/// another process is. A Linux process without a session bus cannot know of others; it is told
/// true.
void claim(const QString &identity, QObject *context, std::function<void(bool ours)> decided);

} // namespace SingleInstance
} // namespace Veltrane
