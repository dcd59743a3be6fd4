#include "ApplicationShell.h"

#include <QWidget>

#import <AppKit/AppKit.h>

namespace Veltrane::ApplicationShell {

void prepare()
{
    // Qt's application delegate brings an app that is not active to the front when launching
    // finishes, unless this variable is set; a menu-bar app started at login must not take the
    // focus from what the user is doing.
    qputenv("QT_MAC_DISABLE_FOREGROUND_APPLICATION_TRANSFORM", "1");
    // The bundle's LSUIElement says the same; set here too, a bare executable obeys it as well.
    [NSApp setActivationPolicy:NSApplicationActivationPolicyAccessory];
}

// An accessory app is not active until it asks: its window would open behind the active app's.
void bringToFront(QWidget *window, const QString & /*activationToken*/)
{
    [NSApp activateIgnoringOtherApps:YES];
    if (window->isMinimized())
        window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    window->show();
    window->raise();
    window->activateWindow();
}

} // namespace Veltrane::ApplicationShell
