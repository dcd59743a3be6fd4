#pragma once

#include <QString>

#include <optional>

namespace Veltrane {

/// Where the running application keeps its files, as the platform lays an application out.
///
/// Linux: an app installed as "<prefix>/bin/veltrane-tray" has its resources in
/// "<prefix>/share/veltrane-tray" (present only when that directory exists), and the directory of
/// the executable is the app's own location. macOS: a bundle "Name.app" has its resources in
/// "Name.app/Contents/Resources", and the bundle directory itself is the app's own location.
namespace ApplicationBundle {

/// The resource directory of an app whose executable lies in `executableDirectory`, if it has one.
std::optional<QString> resourceDirectory(const QString &executableDirectory);

/// The app's own location, for an executable in `executableDirectory`.
QString bundleDirectory(const QString &executableDirectory);

} // namespace ApplicationBundle
} // namespace Veltrane
