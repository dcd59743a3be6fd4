#pragma once

#include <QString>

class QWidget;

namespace Veltrane {

/// How the app presents itself on this platform: a menu-bar or tray app with no window of its
/// own until the user opens one, and how such a window comes to the front.
namespace ApplicationShell {

/// Readies the process before the application object exists, for what Qt reads while it is made:
/// on macOS no activation when launching finishes (a bare executable would flash a Dock icon);
/// on Linux the log without Qt's Wayland text-input noise.
void prepareProcess();

/// Makes the running application a menu-bar-only one: on macOS no Dock icon and no menu bar. Call
/// once the application object exists, before its event loop runs.
void prepare();

/// Shows `window`, restored if minimised, in front and with the keyboard. `activationToken` is
/// what the desktop handed over with the click that asked for it, empty where it gives none.
void bringToFront(QWidget *window, const QString &activationToken);

} // namespace ApplicationShell
} // namespace Veltrane
