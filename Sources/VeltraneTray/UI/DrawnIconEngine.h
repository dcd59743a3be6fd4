#pragma once

#include <QHash>
#include <QIconEngine>
#include <QPixmap>

#include <functional>

namespace Veltrane {

/// An icon whose pixels come from a drawing routine, run at whatever size the platform asks for:
/// crisp at every screen density and at every size a tray host requests.
///
/// The routine draws into a square of `side` points with the origin at the top left; the engine
/// scales it to fill the target, so a non-square target stretches the drawing.
class DrawnIconEngine : public QIconEngine
{
public:
    using Drawing = std::function<void(QPainter &painter)>;

    DrawnIconEngine(qreal side, Drawing drawing);

    void paint(QPainter *painter, const QRect &rect, QIcon::Mode mode, QIcon::State state) override;
    QPixmap pixmap(const QSize &size, QIcon::Mode mode, QIcon::State state) override;
    QSize actualSize(const QSize &size, QIcon::Mode mode, QIcon::State state) override;
    QList<QSize> availableSizes(QIcon::Mode mode, QIcon::State state) override;
    QString key() const override;
    QIconEngine *clone() const override;

private:
    qreal m_side;
    Drawing m_drawing;
    QHash<quint64, QPixmap> m_pixmaps; // rendered sizes, so repeated requests do not draw again
};

} // namespace Veltrane
