#include "SingleInstance.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace Veltrane::SingleInstance {

namespace {

// RequestName's flag and answers, from the D-Bus specification.
constexpr uint doNotQueue = 4;
constexpr uint primaryOwner = 1;
constexpr uint alreadyOwner = 4;
// A running instance that does not answer a launch within this long is left to itself.
constexpr int activationReplyMilliseconds = 5000;

const QString applicationInterface = u"org.freedesktop.Application"_s;

// The object path of an application id, as the desktop entry specification derives it.
QString objectPathOf(const QString &identity)
{
    return u'/' + QString(identity).replace(u'.', u'/').replace(u'-', u'_');
}

/// `org.freedesktop.Application` of the running instance: every launch after the first reaches it
/// as `Activate`, with the launcher's token among the platform data. The app opens no files and
/// has no actions; Open and ActivateAction bring it forward as Activate does.
class ApplicationActivation : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

public:
    ApplicationActivation(Activated activated, QObject *parent) : QObject(parent), m_activated(std::move(activated)) {}

public Q_SLOTS:
    Q_SCRIPTABLE void Activate(const QVariantMap &platformData) { m_activated(tokenOf(platformData)); }
    Q_SCRIPTABLE void Open(const QStringList &, const QVariantMap &platformData) { Activate(platformData); }
    Q_SCRIPTABLE void ActivateAction(const QString &, const QVariantList &, const QVariantMap &platformData)
    {
        Activate(platformData);
    }

private:
    // Wayland's token lets a window take the focus; X11's startup id needs no passing on, as its
    // window managers let a new window of a running app come to the front.
    static QString tokenOf(const QVariantMap &platformData) { return platformData.value(u"activation-token"_s).toString(); }

    Activated m_activated;
};

// This launch's tokens, as its launcher set them, for the instance that shows the window.
QVariantMap launchPlatformData()
{
    QVariantMap data;
    if (const QByteArray token = qgetenv("XDG_ACTIVATION_TOKEN"); !token.isEmpty())
        data.insert(u"activation-token"_s, QString::fromUtf8(token));
    if (const QByteArray id = qgetenv("DESKTOP_STARTUP_ID"); !id.isEmpty())
        data.insert(u"desktop-startup-id"_s, QString::fromUtf8(id));
    return data;
}

void activateRunningInstance(const QDBusConnection &bus, const QString &identity, QObject *context,
                             std::function<void(bool)> decided)
{
    QDBusMessage activate =
        QDBusMessage::createMethodCall(identity, objectPathOf(identity), applicationInterface, u"Activate"_s);
    activate << launchPlatformData();
    auto *call = new QDBusPendingCallWatcher(bus.asyncCall(activate, activationReplyMilliseconds), context);
    QObject::connect(call, &QDBusPendingCallWatcher::finished, context, [decided](QDBusPendingCallWatcher *finished) {
        finished->deleteLater();
        decided(false);
    });
}

} // namespace

void claim(const QString &identity, QObject *context, std::function<void(bool ours)> decided, Activated activated)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        QTimer::singleShot(0, context, [decided] { decided(true); });
        return;
    }
    // Exported before the name is ours, so that a launch right after cannot find it missing.
    bus.registerObject(objectPathOf(identity), new ApplicationActivation(std::move(activated), context),
                       QDBusConnection::ExportScriptableSlots);
    QDBusMessage request = QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s,
                                                          u"org.freedesktop.DBus"_s, u"RequestName"_s);
    request << identity << doNotQueue;
    auto *call = new QDBusPendingCallWatcher(bus.asyncCall(request), context);
    QObject::connect(call, &QDBusPendingCallWatcher::finished, context,
                     [bus, identity, context, decided](QDBusPendingCallWatcher *finished) {
                         finished->deleteLater();
                         const QDBusPendingReply<uint> reply = *finished;
                         // A bus that cannot answer cannot tell of another instance either.
                         if (reply.isError() || reply.value() == primaryOwner || reply.value() == alreadyOwner)
                             decided(true);
                         else
                             activateRunningInstance(bus, identity, context, decided);
                     });
}

} // namespace Veltrane::SingleInstance

#include "SingleInstance.moc"
