#include "AppDelegate.h"

#include "ApplicationIdentity.h"
#include "SingleInstance.h"
#include "StatusItemController.h"

#include <QDesktopServices>

namespace Veltrane {

namespace {

// Started by hand, the user is looking for the app: on a desktop without status items its window
// shows after a second, by when the bus has long said whether a panel is there. Started at login,
// the panel may come later than the app (Plasma and GNOME Shell can take many seconds on a loaded
// laptop), so the window waits for it this long.
constexpr std::chrono::milliseconds userLaunchBound{1000};
constexpr std::chrono::milliseconds loginLaunchBound{30000};

} // namespace

AppDelegate::AppDelegate(const std::optional<QString> &identity, Launch launch)
    : m_identity(identity)
    , m_launch(launch)
{
}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching()
{
    if (!m_identity) {
        startTray();
        return;
    }
    SingleInstance::claim(
        *m_identity, this,
        [this](bool ours) {
            // The instance that runs has been asked to come forward; this one just leaves.
            if (ours)
                startTray();
            else
                Q_EMIT terminateRequested();
        },
        [this](const QString &activationToken) {
            if (m_statusItemController)
                m_statusItemController->showMenuWindow(activationToken);
        });
}

void AppDelegate::startTray()
{
    m_statusItemController = std::make_unique<StatusItemController>(
        // A bare executable shows under the product's id too: panels keep their settings by it.
        createStatusItem(m_identity.value_or(QString::fromLatin1(ApplicationIdentity::id))), DaemonClient(),
        [](const QUrl &url) { QDesktopServices::openUrl(url); });
    connect(m_statusItemController.get(), &StatusItemController::quitRequested, this, &AppDelegate::terminateRequested);
    m_statusItemController->showMenuWindowUnlessItemShownWithin(m_launch == Launch::AtLogin ? loginLaunchBound
                                                                                             : userLaunchBound);
}

} // namespace Veltrane
