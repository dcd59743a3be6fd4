#include "ApplicationShell.h"

#include <QLoggingCategory>
#include <QWidget>

using namespace Qt::StringLiterals;

namespace Veltrane::ApplicationShell {

// Qt's Wayland text input (6.8) warns whenever a window closes with the keyboard in it, of a leave
// event for a surface already gone: noise in the user's log, and nothing the app can act on.
// QT_LOGGING_RULES still turns it on.
void prepareProcess() { QLoggingCategory::setFilterRules(u"qt.qpa.wayland.textinput.warning=false"_s); }

// A Linux desktop shows an app in its task bar only by its windows: nothing to change.
void prepare() {}

void bringToFront(QWidget *window, const QString &givenToken)
{
    // KWin hands over this string, in place of a token, when it refused to make one: used as a
    // token, it would leave the window behind the others, or minimised.
    const QString activationToken = givenToken == u"not-granted-666"_s ? QString() : givenToken;
    if (window->isVisible() && activationToken.isEmpty() && !window->isActiveWindow()) {
        // Without a token a compositor may refuse the activation, or only mark the window urgent
        // on a workspace the user is not looking at; a window mapped anew opens on the current
        // workspace, in front and focused.
        window->hide();
    }
    if (window->isMinimized())
        window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    window->show();
    window->raise();
    // Qt's Wayland shell hands this variable's token to the compositor when the window asks to be
    // activated; it must not outlive that request, nor reach a process the app starts.
    if (!activationToken.isEmpty())
        qputenv("XDG_ACTIVATION_TOKEN", activationToken.toUtf8());
    window->activateWindow();
    qunsetenv("XDG_ACTIVATION_TOKEN");
}

} // namespace Veltrane::ApplicationShell
