#include "IconFactory.h"

#include "Appearance.h"
#include "ApplicationBundle.h"
#include "DrawnIconEngine.h"

#include <QCoreApplication>
#include <QDir>
#include <QFontMetricsF>
#include <QHash>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

using namespace Qt::StringLiterals;

namespace Veltrane {

namespace {

constexpr qreal glyphSide = 18;

// A thin dark ring keeps a light dot readable on a light panel and a dark one on a dark panel.
void drawDot(QPainter &painter, const QRectF &rect, const SrgbColor &color)
{
    QPainterPath path;
    path.addEllipse(rect);
    painter.fillPath(path, Appearance::color(color));
    painter.strokePath(path, QPen(Appearance::color({20, 20, 20}, 0.7), 0.8));
}

// Drawn in an 18-point square, y downward.
void drawFallbackGlyph(QPainter &painter)
{
    QPainterPath square;
    square.addRoundedRect(QRectF(0, 0, glyphSide, glyphSide).adjusted(1, 1, -1, -1), 4, 4);
    painter.fillPath(square, Appearance::color({30, 41, 59}));

    const QFont font = Appearance::systemFont(11, QFont::Bold);
    const QString letter = u"V"_s;
    const QFontMetricsF metrics(font);
    // The text's line box is centred in the whole square, as its measured width and height say.
    const qreal left = (glyphSide - metrics.horizontalAdvance(letter)) * 0.5;
    const qreal top = (glyphSide - metrics.height()) * 0.5;
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(QPointF(left, top + metrics.ascent()), letter);
}

void drawStatusIcon(QPainter &painter, const SrgbColor &dotColor)
{
    constexpr qreal side = IconFactory::statusIconSide;
    IconFactory::logo().paint(painter, QRectF(0, 0, side, side));
    // The dot sits 0.5 point in from the right and bottom edges.
    constexpr qreal diameter = side * 13 / 32;
    drawDot(painter, QRectF(side - diameter - 0.5, side - diameter - 0.5, diameter, diameter), dotColor);
}

QHash<QString, QIcon> &statusIconCache()
{
    static QHash<QString, QIcon> cache; // main thread only
    return cache;
}

} // namespace

Logo Logo::fromImage(const QImage &image)
{
    Logo logo;
    logo.m_image = image;
    return logo;
}

Logo Logo::fallbackGlyph() { return {}; }

QSizeF Logo::size() const
{
    if (isFallbackGlyph())
        return {glyphSide, glyphSide};
    return m_image.deviceIndependentSize();
}

void Logo::paint(QPainter &painter, const QRectF &target) const
{
    if (isFallbackGlyph()) {
        painter.save();
        painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing);
        painter.translate(target.topLeft());
        painter.scale(target.width() / glyphSide, target.height() / glyphSide);
        drawFallbackGlyph(painter);
        painter.restore();
        return;
    }
    // Scaled to the device pixels it covers with Qt's area-averaging filter: a large artwork
    // shrunk by the painter's bilinear sampling alone would alias at menu-bar sizes.
    const qreal ratio = painter.device() ? painter.device()->devicePixelRatioF() : 1.0;
    const QSizeF covered = painter.transform().mapRect(target).size() * ratio;
    const QSize pixels(int(std::ceil(covered.width())), int(std::ceil(covered.height())));
    if (pixels.isEmpty())
        return;
    painter.drawImage(target, m_image.scaled(pixels, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
}

namespace IconFactory {

QString iconKey(TrayState state)
{
    // Indexed by TrayState.
    static constexpr std::array<const char16_t *, allTrayStates.size()> keys{
        u"Daemon not running", u"Stopped", u"Signed out", u"Connecting\u2026",
        u"No active network",  u"Connected", u"Error",
    };
    return QString::fromUtf16(keys[size_t(state)]);
}

QIcon statusIcon(TrayState state)
{
    const QString key = iconKey(state);
    QHash<QString, QIcon> &cache = statusIconCache();
    if (const auto found = cache.constFind(key); found != cache.cend())
        return *found;
    const SrgbColor color = dotColor(state);
    const QIcon icon(new DrawnIconEngine(statusIconSide, [color](QPainter &painter) { drawStatusIcon(painter, color); }));
    cache.insert(key, icon);
    return icon;
}

const Logo &logo()
{
    static const Logo instance = loadLogo(logoCandidates()); // thread-safe once-only initialisation
    return instance;
}

QIcon logoIcon()
{
    return QIcon(new DrawnIconEngine(glyphSide, [](QPainter &painter) {
        logo().paint(painter, QRectF(0, 0, glyphSide, glyphSide));
    }));
}

QStringList logoCandidates(const std::optional<QString> &resourceDirectory, const QString &bundleDirectory,
                           const QString &sourceRoot)
{
    const QString fileName = u"veltrane-logo.png"_s;
    QStringList candidates;
    if (resourceDirectory)
        candidates.append(QDir(*resourceDirectory).filePath(fileName));
    candidates.append(QDir(bundleDirectory).filePath(fileName));
    candidates.append(QDir(sourceRoot).filePath(u"Resources/"_s + fileName));
    return candidates;
}

QStringList logoCandidates()
{
    const QString executableDirectory = QCoreApplication::applicationDirPath();
    return logoCandidates(ApplicationBundle::resourceDirectory(executableDirectory),
                          ApplicationBundle::bundleDirectory(executableDirectory), sourceRoot());
}

// This file is Sources/VeltraneTray/UI/IconFactory.cpp inside the tree: four components up.
QString sourceRoot() { return QDir::cleanPath(QString::fromUtf8(__FILE__) + u"/../../../.."_s); }

Logo loadLogo(const QStringList &candidates)
{
    for (const QString &candidate : candidates) {
        const QImage image(candidate);
        if (!image.isNull())
            return Logo::fromImage(image);
    }
    return Logo::fallbackGlyph();
}

qsizetype cachedStatusIconCount() { return statusIconCache().size(); }

void clearStatusIconCache() { statusIconCache().clear(); }

} // namespace IconFactory
} // namespace Veltrane
