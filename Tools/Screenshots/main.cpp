// veltrane-screenshots: draws the tray's images as a person sees them, into PNG files for the
// README and for review: the seven status icons, the two custom menu rows inside a menu, and the
// peers window with a few dozen simulated peers and a search applied.
#include "IconFactory.h"
#include "MenuViews.h"
#include "PeerGenerator.h"
#include "PeersWindowController.h"

#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QTableView>
#include <QWidgetAction>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace Veltrane;

namespace {

bool save(const QImage &image, const QDir &directory, const QString &name)
{
    const QString path = directory.filePath(name);
    if (!image.save(path)) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
        return false;
    }
    std::printf("%s\n", qPrintable(path));
    return true;
}

QString slug(TrayState state) { return IconFactory::iconKey(state).toLower().remove(u'\u2026').replace(u' ', u'-'); }

// Each icon at 1x, 2x and 4x, on a light and on a dark panel, with its key under it.
QImage iconSheet()
{
    constexpr int cell = 150;
    QImage sheet(cell * int(allTrayStates.size()), 2 * 130, QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&sheet);
    painter.setRenderHint(QPainter::Antialiasing);
    const std::array<QColor, 2> panels{QColor(0xec, 0xec, 0xec), QColor(0x1f, 0x1f, 0x22)};
    for (size_t band = 0; band < panels.size(); ++band) {
        const int top = int(band) * 130;
        painter.fillRect(0, top, sheet.width(), 130, panels[band]);
        for (size_t i = 0; i < allTrayStates.size(); ++i) {
            const QIcon icon = IconFactory::statusIcon(allTrayStates[i]);
            const int left = int(i) * cell + 10;
            int x = left;
            for (const qreal scale : {1.0, 2.0, 4.0}) {
                const QPixmap pixmap = icon.pixmap(QSize(18, 18), scale);
                painter.drawPixmap(QPoint(x, top + 12 + (72 - pixmap.height()) / 2), pixmap);
                x += pixmap.width() + 8;
            }
            painter.setPen(band == 0 ? Qt::black : Qt::white);
            painter.drawText(QRect(left, top + 96, cell - 20, 24), Qt::AlignLeft, IconFactory::iconKey(allTrayStates[i]));
        }
    }
    return sheet;
}

QImage menuWithRows()
{
    auto *menu = new QMenu;
    auto *header = new MenuHeaderView;
    header->setPresentation(headerPresentation(TrayState::Connected));
    auto *device = new MenuDeviceView;
    device->setDevice(u"maria-macbook-pro.tail-net.example.ts.net"_s, u"100.101.12.7"_s, u"maria@example.com"_s);
    auto addRow = [menu](QWidget *widget) {
        auto *action = new QWidgetAction(menu);
        action->setDefaultWidget(widget);
        action->setEnabled(false);
        menu->addAction(action);
    };
    addRow(header);
    menu->addSeparator();
    menu->addAction(u"Disconnect"_s);
    addRow(device);
    menu->addAction(u"Peers\u2026"_s);
    menu->addAction(u"Log out"_s);
    menu->addSeparator();
    menu->addAction(u"Quit Veltrane"_s);
    menu->adjustSize();
    const QImage image = menu->grab().toImage();
    delete menu;
    return image;
}

QImage peersWindow()
{
    PeersWindowController controller;
    DaemonStatusSnapshot status;
    status.connectableDevices = Simulator::generatePeers(48, 7, u"net-1"_s, u"Example Network"_s);
    controller.applySnapshot(status, TrayState::Connected);
    controller.window()->findChild<QLineEdit *>(u"searchField"_s)->setText(u"  mac"_s);
    controller.window()->findChild<QTableView *>(u"tableView"_s)->selectRow(2);
    controller.showWindow();
    return controller.window()->grab().toImage();
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    QDir directory(arguments.size() > 1 ? arguments[1] : u"."_s);
    if (!directory.mkpath(u"."_s)) {
        std::fprintf(stderr, "cannot create %s\n", qPrintable(directory.path()));
        return 1;
    }
    bool saved = true;
    for (const TrayState state : allTrayStates)
        saved &= save(IconFactory::statusIcon(state).pixmap(QSize(18, 18), 4.0).toImage(), directory,
                      u"icon-%1.png"_s.arg(slug(state)));
    saved &= save(iconSheet(), directory, u"status-icons.png"_s);
    saved &= save(menuWithRows(), directory, u"menu-rows.png"_s);
    saved &= save(peersWindow(), directory, u"peers-window.png"_s);
    return saved ? 0 : 1;
}
