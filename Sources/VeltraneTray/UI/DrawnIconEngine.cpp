#include "DrawnIconEngine.h"

#include <QImage>
#include <QPainter>

using namespace Qt::StringLiterals;

namespace Veltrane {

DrawnIconEngine::DrawnIconEngine(qreal side, Drawing drawing)
    : m_side(side)
    , m_drawing(std::move(drawing))
{
}

// The mode is ignored on purpose: a state dot keeps its colour in a disabled menu row.
void DrawnIconEngine::paint(QPainter *painter, const QRect &rect, QIcon::Mode, QIcon::State)
{
    painter->save();
    painter->setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform | QPainter::TextAntialiasing);
    painter->translate(rect.topLeft());
    painter->scale(rect.width() / m_side, rect.height() / m_side);
    m_drawing(*painter);
    painter->restore();
}

QPixmap DrawnIconEngine::pixmap(const QSize &size, QIcon::Mode mode, QIcon::State state)
{
    if (size.isEmpty())
        return {};
    const quint64 cacheKey = quint64(size.width()) << 32 | quint32(size.height());
    if (const auto found = m_pixmaps.constFind(cacheKey); found != m_pixmaps.cend())
        return *found;

    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        paint(&painter, image.rect(), mode, state);
    }
    const QPixmap pixmap = QPixmap::fromImage(std::move(image));
    m_pixmaps.insert(cacheKey, pixmap);
    return pixmap;
}

QSize DrawnIconEngine::actualSize(const QSize &size, QIcon::Mode, QIcon::State) { return size; }

// The sizes a tray host picks from: small panel sizes up to 64 pixels, beyond which Qt's D-Bus
// tray does not send pixmaps.
QList<QSize> DrawnIconEngine::availableSizes(QIcon::Mode, QIcon::State)
{
    return {{16, 16}, {22, 22}, {24, 24}, {32, 32}, {44, 44}, {48, 48}, {64, 64}};
}

QString DrawnIconEngine::key() const { return u"VeltraneDrawnIconEngine"_s; }

QIconEngine *DrawnIconEngine::clone() const { return new DrawnIconEngine(m_side, m_drawing); }

} // namespace Veltrane
