#pragma once

#include <QString>

#include <optional>

namespace Veltrane {

/// The application's identity: on macOS the bundle identifier. On Linux, standing for it, the app
/// has one when it runs as the installed desktop app, i.e. its desktop entry was installed beside
/// it, and none as a bare executable in a build tree.
namespace ApplicationIdentity {

inline constexpr auto id = "net.veltrane.tray";

/// Linux: `id` when "<prefix>/share/applications/<id>.desktop" exists for an executable installed
/// in "<prefix>/bin" (`executableDirectory`), else nothing. macOS: the main bundle's identifier.
std::optional<QString> detect(const QString &executableDirectory);

} // namespace ApplicationIdentity
} // namespace Veltrane
