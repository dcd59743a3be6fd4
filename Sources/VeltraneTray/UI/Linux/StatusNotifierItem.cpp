#include "StatusNotifierItem.h"

#include "DBusMenuExporter.h"

#include <QDBusMessage>
#include <QtEndian>

using namespace Qt::StringLiterals;

namespace Veltrane {

namespace {
constexpr QDBusConnection::RegisterOptions exportedContents =
    QDBusConnection::ExportScriptableSlots | QDBusConnection::ExportScriptableSignals | QDBusConnection::ExportAllProperties;
} // namespace

StatusNotifierItem::StatusNotifierItem(const QDBusConnection &bus, const QString &id, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
    , m_id(id)
    , m_watch(bus)
{
    registerDBusTypes();
    m_bus.registerObject(itemPath, this, exportedContents);
    connect(&m_watch, &StatusNotifierWatch::watcherAppeared, this, &StatusNotifierItem::registerWith);
}

StatusNotifierItem::~StatusNotifierItem()
{
    m_bus.unregisterObject(menuObjectPath);
    m_bus.unregisterObject(itemPath);
}

void StatusNotifierItem::setMenu(QMenu *menu)
{
    m_bus.unregisterObject(menuObjectPath);
    m_menuExporter = std::make_unique<DBusMenuExporter>(menu);
    m_bus.registerObject(menuObjectPath, m_menuExporter.get(), exportedContents);
}

void StatusNotifierItem::setIcon(const QIcon &icon)
{
    if (icon.cacheKey() == m_icon.cacheKey())
        return;
    m_icon = icon;
    m_iconImages.clear();
    Q_EMIT NewIcon();
}

void StatusNotifierItem::setToolTip(const QString &toolTip)
{
    if (toolTip == m_toolTip)
        return;
    m_toolTip = toolTip;
    Q_EMIT NewTitle();
    Q_EMIT NewToolTip();
}

DBusImageList StatusNotifierItem::iconPixmap() const
{
    if (m_iconImages.isEmpty() && !m_icon.isNull())
        m_iconImages = imagesOf(m_icon);
    return m_iconImages;
}

DBusImageList StatusNotifierItem::imagesOf(const QIcon &icon)
{
    DBusImageList images;
    for (const int side : iconSizes) {
        const QImage image = icon.pixmap(QSize(side, side), 1.0).toImage().convertToFormat(QImage::Format_ARGB32);
        // Qt keeps ARGB32 as native-endian words; the host reads the bytes A, R, G, B.
        QByteArray argb(qsizetype(image.width()) * image.height() * 4, Qt::Uninitialized);
        for (int y = 0; y < image.height(); ++y) {
            qToBigEndian<quint32>(image.constScanLine(y), image.width(),
                                  argb.data() + qsizetype(y) * image.width() * 4);
        }
        images.append({image.width(), image.height(), argb});
    }
    return images;
}

void StatusNotifierItem::registerWith(const QString &watcher)
{
    QDBusMessage call = QDBusMessage::createMethodCall(watcher, StatusNotifierWatch::watcherPath,
                                                       StatusNotifierWatch::watcherService,
                                                       u"RegisterStatusNotifierItem"_s);
    call << m_bus.baseService();
    // Sent without waiting for the answer: a watcher that refuses us leaves nothing to do until
    // the next one appears.
    m_bus.send(call);
}

void StatusNotifierItem::SecondaryActivate(int, int) {}

void StatusNotifierItem::Scroll(int, const QString &) {}

void StatusNotifierItem::onShownChanged(std::function<void(bool)> changed)
{
    connect(&m_watch, &StatusNotifierWatch::presenceChanged, this, std::move(changed));
}

void StatusNotifierItem::ProvideXdgActivationToken(const QString &token) { m_activationToken = token; }

} // namespace Veltrane
