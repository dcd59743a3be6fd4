#include "Notify.h"

#include <QDebug>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace Veltrane::Notify {

namespace {

struct Target {
    std::optional<QString> applicationId;
    std::shared_ptr<NotificationCenter> center;
    bool authorizationRequested = false;
};

Target &target()
{
    static Target installed;
    return installed;
}

} // namespace

void install(const std::optional<QString> &applicationId, std::shared_ptr<NotificationCenter> center)
{
    Q_ASSERT(!applicationId || center);
    target() = {applicationId, std::move(center), false};
}

void show(const QString &title, const QString &body)
{
    Target &to = target();
    if (!to.applicationId) {
        qInfo().noquote() << u"[notification] %1 \u2014 %2"_s.arg(title, body);
        return;
    }
    if (!to.authorizationRequested) {
        to.authorizationRequested = true;
        to.center->requestAuthorization();
    }
    const NotificationRequest request{QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(),
                                      title, body};
    to.center->add(request, [title, body](const std::optional<QString> &error) {
        if (error)
            qWarning().noquote()
                << u"[notification] delivery failed: %1 (%2 \u2014 %3)"_s.arg(*error, title, body);
    });
}

} // namespace Veltrane::Notify
