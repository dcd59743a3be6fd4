#include "AppDelegate.h"

#include "ApplicationIdentity.h"
#include "SingleInstance.h"
#include "StatusItemController.h"

#include <QDesktopServices>

namespace Veltrane {

AppDelegate::AppDelegate(const std::optional<QString> &identity) : m_identity(identity) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching()
{
    if (!m_identity) {
        startTray();
        return;
    }
    SingleInstance::claim(*m_identity, this, [this](bool ours) {
        // Another instance is neither activated nor told; this one just leaves.
        if (ours)
            startTray();
        else
            Q_EMIT terminateRequested();
    });
}

void AppDelegate::startTray()
{
    m_statusItemController = std::make_unique<StatusItemController>(
        // A bare executable shows under the product's id too: panels keep their settings by it.
        createStatusItem(m_identity.value_or(QString::fromLatin1(ApplicationIdentity::id))), DaemonClient(),
        [](const QUrl &url) { QDesktopServices::openUrl(url); });
    connect(m_statusItemController.get(), &StatusItemController::quitRequested, this, &AppDelegate::terminateRequested);
}

} // namespace Veltrane
