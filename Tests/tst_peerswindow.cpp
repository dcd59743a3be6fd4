#include "ElidedLabel.h"
#include "PeersWindowController.h"

#include <QApplication>
#include <QClipboard>
#include <QHeaderView>
#include <QHelpEvent>
#include <QLineEdit>
#include <QMenu>
#include <QScreen>
#include <QTableView>
#include <QTest>
#include <QTextDocument>
#include <QToolTip>

using namespace Veltrane;

namespace {

ConnectableDeviceSnapshot device(const QString &name, std::optional<QString> clientId, std::optional<QString> fqdn,
                                 std::optional<QString> ip, bool online = true)
{
    ConnectableDeviceSnapshot device;
    device.computerName = name;
    device.clientId = std::move(clientId);
    device.fqdn = std::move(fqdn);
    device.assignedIp = std::move(ip);
    device.online = online;
    device.connectionStatus = NodeConnectionStatusSnapshot{u"direct"_qs, u"203.0.113.9:41641"_qs, 12};
    return device;
}

std::optional<DaemonStatusSnapshot> snapshotOf(const QList<ConnectableDeviceSnapshot> &devices)
{
    DaemonStatusSnapshot snapshot;
    snapshot.connectableDevices = devices;
    return snapshot;
}

const QList<ConnectableDeviceSnapshot> office{
    device(u"alpha"_qs, u"c-alpha"_qs, u"alpha.corp.ts.net"_qs, u"100.64.0.1"_qs),
    device(u"bravo"_qs, u"c-bravo"_qs, u"bravo.corp.ts.net"_qs, u"100.64.0.2"_qs),
    device(u"charlie"_qs, u"c-charlie"_qs, u""_qs, u"10.7.0.12"_qs, false),
    device(u"delta"_qs, {}, u"<b>delta</b>.corp.ts.net"_qs, u"100.64.0.4"_qs),
    device(u"echo"_qs, u"c-echo"_qs, u""_qs, {}),
};

} // namespace

class TestPeersWindow : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<PeersWindowController> m_controller;
    QTableView *m_table = nullptr;
    QLineEdit *m_search = nullptr;

    int selectedRow() const
    {
        const QModelIndexList rows = m_table->selectionModel()->selectedRows();
        return rows.isEmpty() ? -1 : rows.first().row();
    }

    QString nameAt(int row) const { return m_table->model()->index(row, 0).data().toString(); }

    QPoint cellCentre(int row, int column) const
    {
        return m_table->visualRect(m_table->model()->index(row, column)).center();
    }

    // Right-clicks a row, lets `meanwhile` happen, then chooses an entry with the keyboard.
    void chooseFromRowMenu(int row, int entry, const std::function<void()> &meanwhile = {})
    {
        const QPoint position = cellCentre(row, 1);
        QContextMenuEvent event(QContextMenuEvent::Mouse, position, m_table->viewport()->mapToGlobal(position));
        QCoreApplication::sendEvent(m_table->viewport(), &event);
        QMenu *menu = m_table->findChild<QMenu *>();
        QTRY_VERIFY(menu->isVisible());
        if (meanwhile)
            meanwhile();
        for (int step = 0; step <= entry; ++step)
            QTest::keyClick(menu, Qt::Key_Down);
        QTest::keyClick(menu, Qt::Key_Return);
        QTRY_VERIFY(!menu->isVisible());
    }

private Q_SLOTS:
    void init()
    {
        QGuiApplication::clipboard()->setText(u"before"_qs);
        m_controller = std::make_unique<PeersWindowController>();
        m_table = m_controller->window()->findChild<QTableView *>();
        m_search = m_controller->window()->findChild<QLineEdit *>();
        m_controller->applySnapshot(snapshotOf(office), TrayState::Connected);
        m_controller->showWindow();
        QVERIFY(QTest::qWaitForWindowExposed(m_controller->window()));
    }

    void cleanup() { m_controller.reset(); }

    // Title, size, place, columns; only the table grows; dark under a light desktop theme.
    void laysOutTheWindow()
    {
        QWidget *window = m_controller->window();
        QCOMPARE(window->windowTitle(), u"Veltrane \u2014 Peers"_qs);
        QCOMPARE(window->minimumSize(), QSize(640, 360));
        // Placed before its frame is known: centred to within the frame's border.
        const QPoint offset = window->frameGeometry().center() - window->screen()->availableGeometry().center();
        QVERIFY(qAbs(offset.x()) <= 3 && qAbs(offset.y()) <= 3);
        QList<int> widths;
        for (int column = 0; column < m_table->model()->columnCount(); ++column)
            widths.append(m_table->columnWidth(column));
        QCOMPARE(widths, (QList<int>{250, 130, 110, 240, 70}));
        QCOMPARE(m_table->horizontalHeader()->minimumSectionSize(), 50);
        QCOMPARE(m_table->selectionMode(), QAbstractItemView::SingleSelection);

        const QWidget *footer = window->findChild<ElidedLabel *>(u"footerLabel"_qs);
        for (const QSize size : {QSize(900, 620), QSize(1300, 1000)}) {
            window->resize(size);
            QTRY_COMPARE(m_search->geometry(), QRect(16, 16, size.width() - 32, 28));
            QCOMPARE(m_table->geometry(), QRect(0, 52, size.width(), size.height() - 84));
            QCOMPARE(footer->geometry(), QRect(16, size.height() - 24, size.width() - 32, 16));
        }

        QApplication::setPalette(QPalette(Qt::white));
        const QImage image = window->grab().toImage();
        QApplication::setPalette(QPalette());
        QVERIFY(image.pixelColor(4, 4).lightness() < 60);
    }

    // Secondary cells, the offline status among them, are drawn fainter than primary ones.
    void drawsSecondaryCellsFainter()
    {
        const QImage image = m_table->viewport()->grab().toImage();
        const auto brightest = [&](int row, int column) {
            const QRect cell = m_table->visualRect(m_table->model()->index(row, column));
            int lightness = 0;
            for (int y = cell.top(); y <= cell.bottom(); ++y)
                for (int x = cell.left(); x <= cell.right(); ++x)
                    lightness = qMax(lightness, image.pixelColor(x, y).lightness());
            return lightness;
        };
        QVERIFY(brightest(0, 0) > 200); // a name
        QVERIFY(brightest(0, 2) > 200); // "direct", online
        QVERIFY(brightest(2, 2) < 170); // "offline"
        QVERIFY(brightest(0, 3) < 170); // the path
    }

    void keepsTheSelectedDeviceAcrossRefreshes()
    {
        m_table->selectRow(1);
        QList devices = office;
        devices.prepend(device(u"aardvark"_qs, u"c-new"_qs, u"new.corp.ts.net"_qs, u"100.64.0.9"_qs));
        m_controller->applySnapshot(snapshotOf(devices), TrayState::Connected);
        QCOMPARE(nameAt(selectedRow()), u"bravo"_qs);
        QCOMPARE(selectedRow(), 2);

        QTest::keyClicks(m_search, u"  BRA"_qs);
        QCOMPARE(selectedRow(), 0);
        m_search->clear();
        QCOMPARE(nameAt(selectedRow()), u"bravo"_qs);

        // Searched away, gone from the status, or without a clientId: nothing is selected.
        m_search->setText(u"alpha"_qs);
        QCOMPARE(selectedRow(), -1);
        m_search->clear();
        m_table->selectRow(4); // delta
        m_controller->applySnapshot(snapshotOf(office), TrayState::Stopped);
        QCOMPARE(selectedRow(), -1);
        QCOMPARE(m_controller->window()->findChild<ElidedLabel *>(u"footerLabel"_qs)->text(),
                 u"Control plane: suspended (veltrane stopped)"_qs);
    }

    void copiesToTheClipboard()
    {
        QClipboard *clipboard = QGuiApplication::clipboard();
        m_controller->onCopyDns();
        QCOMPARE(clipboard->text(), u"before"_qs); // nothing selected

        m_table->selectRow(0);
        chooseFromRowMenu(1, 1); // the row under the pointer, not the selected one
        QCOMPARE(clipboard->text(), u"100.64.0.2"_qs);
        chooseFromRowMenu(2, 0); // no DNS name: its address stands in
        QCOMPARE(clipboard->text(), u"10.7.0.12"_qs);

        // A refresh that reorders the rows while the menu is open changes nothing.
        chooseFromRowMenu(1, 0, [&] {
            QList devices = office;
            devices.prepend(device(u"aardvark"_qs, u"c-new"_qs, u"new.corp.ts.net"_qs, u"100.64.0.9"_qs));
            m_controller->applySnapshot(snapshotOf(devices), TrayState::Connected);
        });
        QCOMPARE(clipboard->text(), u"bravo.corp.ts.net"_qs);

        QTest::mouseClick(m_table->viewport(), Qt::LeftButton, {}, cellCentre(4, 2));
        QTest::mouseDClick(m_table->viewport(), Qt::LeftButton, {}, cellCentre(4, 2));
        QCOMPARE(clipboard->text(), u"<b>delta</b>.corp.ts.net"_qs);

        // Neither a DNS name nor an address: the clipboard keeps what it had.
        m_table->selectRow(5);
        QCOMPARE(nameAt(5), u"echo"_qs);
        m_controller->onCopyDns();
        m_controller->onCopyIp();
        QCOMPARE(clipboard->text(), u"<b>delta</b>.corp.ts.net"_qs);
    }

    void showsTooltipsAsPlainText()
    {
        const QPoint position = cellCentre(3, 0);
        QHelpEvent help(QEvent::ToolTip, position, m_table->viewport()->mapToGlobal(position));
        QCoreApplication::sendEvent(m_table->viewport(), &help);
        QTRY_VERIFY(QToolTip::isVisible());
        QCOMPARE(QToolTip::text(), Qt::convertFromPlainText(u"<b>delta</b>.corp.ts.net"_qs, Qt::WhiteSpaceNoWrap));
        QToolTip::hideText();
    }
};

QTEST_MAIN(TestPeersWindow)
#include "tst_peerswindow.moc"
