#include "ApplicationShell.h"

#include <QWidget>

#import <AppKit/AppKit.h>

namespace Veltrane::ApplicationShell {

// Qt brings an app that is not active to the front when launching finishes, and a bare executable
// to the Dock as Qt's integration is made, unless this variable is set by then: a menu-bar app
// started at login must not take the focus from what the user is doing.
void prepareProcess() { qputenv("QT_MAC_DISABLE_FOREGROUND_APPLICATION_TRANSFORM", "1"); }

// The bundle's LSUIElement says the same; set here too, so a bare executable obeys it as well.
void prepare() { [NSApp setActivationPolicy:NSApplicationActivationPolicyAccessory]; }

// An accessory app is not active until it asks: its window would open behind the active app's.
// macOS 14 asks politely (`activate`); the older call is deprecated there.
void bringToFront(QWidget *window, const QString & /*activationToken*/)
{
    if (@available(macOS 14, *))
        [NSApp activate];
    else
        [NSApp activateIgnoringOtherApps:YES];
    if (window->isMinimized())
        window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    window->show();
    window->raise();
    window->activateWindow();
}

} // namespace Veltrane::ApplicationShell
