#include "Appearance.h"

#include <QFontDatabase>

namespace Veltrane::Appearance {

QFont systemFont(int points, QFont::Weight weight)
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    font.setPixelSize(points);
    font.setWeight(weight);
    return font;
}

// The active group's colour even in a disabled widget: a menu row that only shows information is
// disabled so that it cannot be chosen, not to be greyed out.
QColor color(const SrgbColor &color, qreal alpha)
{
    return QColor::fromRgbF(float(color.redF()), float(color.greenF()), float(color.blueF()), float(alpha));
}

QColor labelColor(const QPalette &palette) { return palette.color(QPalette::Active, QPalette::WindowText); }

QColor secondaryLabelColor(const QPalette &palette)
{
    QColor color = labelColor(palette);
    // Light text on a dark ground needs a little more weight to stay as readable.
    color.setAlphaF(color.lightnessF() > 0.5f ? 0.55f : 0.5f);
    return color;
}

QPalette darkPalette()
{
    const QColor text(0xe5, 0xe5, 0xe7);
    const QColor window(0x23, 0x23, 0x26);
    const QColor base(0x1c, 0x1c, 0x1e);
    const QColor alternateBase(0x2a, 0x2a, 0x2d);
    const QColor button(0x32, 0x32, 0x35);
    const QColor highlight(0x1f, 0x5f, 0xc7);

    QPalette palette(button, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, alternateBase);
    palette.setColor(QPalette::ToolTipBase, QColor(0x3a, 0x3a, 0x3c));
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::Highlight, highlight);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::PlaceholderText, QColor(0x8e, 0x8e, 0x93));
    palette.setColor(QPalette::Link, QColor(0x4c, 0x9a, 0xff));
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, QColor(0x6e, 0x6e, 0x73));
    palette.setColor(QPalette::Disabled, QPalette::Highlight, QColor(0x3a, 0x3a, 0x3c));
    return palette;
}

} // namespace Veltrane::Appearance
