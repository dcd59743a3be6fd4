#pragma once

#include "TrayState.h"

#include <QIcon>
#include <QImage>
#include <QStringList>

#include <optional>

class QPainter;

namespace Veltrane {

/// The product logo: the artwork from "veltrane-logo.png", or the built-in glyph (a dark rounded
/// square with a white "V") when no such file decodes. Immutable once made.
class Logo
{
public:
    static Logo fromImage(const QImage &image);
    static Logo fallbackGlyph();

    bool isFallbackGlyph() const { return m_image.isNull(); }

    /// The artwork's own size in points; the glyph is 18 × 18.
    QSizeF size() const;

    /// Draws the logo stretched to fill `target` (aspect ratio not kept), as sharp as the
    /// painter's device allows.
    void paint(QPainter &painter, const QRectF &target) const;

private:
    QImage m_image; // null for the glyph
};

/// The images of the tray: one status icon per tray state (the logo with a coloured dot in its
/// lower-right corner), the logo itself, and the plain state dot for text-only menu rows.
/// Main thread only, but for `logo()`, which any thread may be first to use.
namespace IconFactory {

/// The status icon's side in points.
inline constexpr qreal statusIconSide = 18;

/// The key under which a state's icon is cached; it names the state as a person would.
QString iconKey(TrayState state);

/// The state's status icon: 18 × 18 points, drawn at every size asked for. Repeated calls for one
/// state return the same icon (equal `cacheKey()`); it is made on the first call and kept.
QIcon statusIcon(TrayState state);

/// The logo, loaded from the first candidate location that decodes, once per process.
const Logo &logo();

/// The logo as an icon, drawn at any size: the menu's title row and the app's windows.
QIcon logoIcon();

/// Where "veltrane-logo.png" is looked for, in order: the resource directory when the app has
/// one, the app's own location, then "Resources/" in the source tree the program was built from.
QStringList logoCandidates(const std::optional<QString> &resourceDirectory, const QString &bundleDirectory,
                           const QString &sourceRoot);

/// The candidates for the running application.
QStringList logoCandidates();

/// The root of the source tree this file was compiled from.
QString sourceRoot();

/// The first candidate that decodes as an image, unchanged; else the glyph. Misses are silent.
Logo loadLogo(const QStringList &candidates);

/// How many status icons have been made; and forgetting them, so a test starts from none.
qsizetype cachedStatusIconCount();
void clearStatusIconCache();

} // namespace IconFactory
} // namespace Veltrane
