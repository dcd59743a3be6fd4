#pragma once

#include "TrayState.h"

#include <QColor>
#include <QFont>
#include <QPalette>

namespace Veltrane {

/// The few colours the tray's views use, derived from the palette they are drawn with, so menu
/// rows follow the desktop's theme while the peers window stays dark.
namespace Appearance {

/// The system font at a size in points, which Qt calls device-independent pixels.
QFont systemFont(int points, QFont::Weight weight = QFont::Normal);

/// An sRGB colour of the presentation tables, as Qt paints it.
QColor color(const SrgbColor &color, qreal alpha = SrgbColor::alpha);

/// The colour of primary text, whether or not the widget is enabled.
QColor labelColor(const QPalette &palette);

/// The colour of secondary text: the primary text colour, faded.
QColor secondaryLabelColor(const QPalette &palette);

/// A complete dark palette, for a window that is dark whatever the desktop's theme.
QPalette darkPalette();

} // namespace Appearance
} // namespace Veltrane
