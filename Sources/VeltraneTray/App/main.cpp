// veltrane-tray: the tray companion of the Veltrane daemon. A menu-bar-only app: no window until
// the user opens one, and quitting is the menu's "Quit Veltrane".
#include "AppDelegate.h"
#include "ApplicationIdentity.h"
#include "ApplicationShell.h"
#include "IconFactory.h"
#include "NotificationCenter.h"
#include "Notify.h"
#include "TerminationSignals.h"

#include <QApplication>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace Veltrane;

int main(int argc, char *argv[])
{
    ApplicationShell::prepareProcess();
    QApplication application(argc, argv);
    QApplication::setApplicationName(u"veltrane-tray"_s);
    QApplication::setQuitOnLastWindowClosed(false); // closing the peers window must not quit
    QApplication::setWindowIcon(IconFactory::logoIcon());
    ApplicationShell::prepare();
    const std::optional<QString> identity = ApplicationIdentity::detect(QApplication::applicationDirPath());
    if (identity)
        QGuiApplication::setDesktopFileName(*identity);

    // Without an identity notices go to the log, and no notification service is needed.
    Notify::install(identity, identity ? createNotificationCenter(*identity) : nullptr);
    // The autostart entry says so in its Exec line; nothing else is read from the command line.
    const bool atLogin = QApplication::arguments().contains(u"--autostart"_s);
    AppDelegate delegate(identity, atLogin ? AppDelegate::Launch::AtLogin : AppDelegate::Launch::ByUser);
    QObject::connect(&delegate, &AppDelegate::terminateRequested, &application, &QCoreApplication::quit,
                     Qt::QueuedConnection);
    // Asked to terminate (the session ends, `kill`), the app ends as through its menu.
    TerminationSignals termination;
    QObject::connect(&termination, &TerminationSignals::received, &application, &QCoreApplication::quit);
    QTimer::singleShot(0, &delegate, &AppDelegate::applicationDidFinishLaunching);
    const int status = QApplication::exec();
    Notify::install(std::nullopt, nullptr); // the service's bus goes with the application
    return status;
}
