#include "StatusItem.h"

#include <QBuffer>
#include <QColorSpace>
#include <QIcon>
#include <QImage>
#include <QMenu>
#include <QPixmap>

#import <AppKit/AppKit.h>

namespace Veltrane {

namespace {

// Menu bar icons are 18 points square; the image carries a drawing for 1× and one for 2× screens,
// and AppKit picks the one the screen needs.
constexpr int iconPoints = 18;

NSImage *menuBarImage(const QIcon &icon)
{
    const NSSize size = NSMakeSize(iconPoints, iconPoints);
    NSImage *image = [[NSImage alloc] initWithSize:size];
    for (const qreal scale : {1.0, 2.0}) {
        // Tagged sRGB, the space the state colours are given in: untagged, AppKit would take them
        // as the screen's own, and the dot would shift on a wide-gamut display.
        QImage drawn = icon.pixmap(QSize(iconPoints, iconPoints), scale).toImage();
        drawn.setColorSpace(QColorSpace::SRgb);
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        drawn.save(&buffer, "PNG");
        NSBitmapImageRep *drawing = [NSBitmapImageRep imageRepWithData:png.toNSData()];
        [drawing setSize:size];
        [image addRepresentation:drawing];
    }
    // The dot's colour is the state: a template image would be drawn in the menu bar's one colour.
    [image setTemplate:NO];
    return image;
}

/// The app's own item in the menu bar: a square `NSStatusItem` whose click opens the app's menu as
/// a native menu, which can show the header and device rows as their widgets. Qt's tray icon is
/// not used: on current macOS it reads the click count of an event that is not a mouse event when
/// its menu opens, and AppKit throws.
class NativeStatusItem final : public StatusItem
{
public:
    NativeStatusItem() : m_item([NSStatusBar.systemStatusBar statusItemWithLength:NSSquareStatusItemLength]) {}
    ~NativeStatusItem() override { [NSStatusBar.systemStatusBar removeStatusItem:m_item]; }

    void setMenu(QMenu *menu) override { m_item.menu = menu->toNSMenu(); }

    // The icon cache hands out one icon per state: an unchanged one is not drawn again.
    void setIcon(const QIcon &icon) override
    {
        if (icon.cacheKey() == m_iconKey)
            return;
        m_iconKey = icon.cacheKey();
        m_item.button.image = menuBarImage(icon);
    }

    // VoiceOver reads the button by its label, as a pointer reads the tooltip: the app and its state.
    void setToolTip(const QString &toolTip) override
    {
        m_item.button.toolTip = toolTip.toNSString();
        m_item.button.accessibilityLabel = toolTip.toNSString();
    }

    bool showsWidgetRows() const override { return true; }

private:
    NSStatusItem *m_item; // held strongly (ARC); a button that is absent takes no image or tooltip
    qint64 m_iconKey = 0;
};

} // namespace

std::unique_ptr<StatusItem> createStatusItem(const QString & /*id*/)
{
    return std::make_unique<NativeStatusItem>();
}

} // namespace Veltrane
