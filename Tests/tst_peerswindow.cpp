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
                                 std::optional<QString> ip)
{
    ConnectableDeviceSnapshot device;
    device.computerName = name;
    device.clientId = std::move(clientId);
    device.fqdn = std::move(fqdn);
    device.assignedIp = std::move(ip);
    device.online = true;
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
    device(u"charlie"_qs, u"c-charlie"_qs, u""_qs, u"10.7.0.12"_qs),
    device(u"delta"_qs, {}, u"delta.corp.ts.net"_qs, u"100.64.0.4"_qs),
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

    QPoint cellCentre(int row, int column) const { return m_table->visualRect(m_table->model()->index(row, column)).center(); }

    // Right-clicks a row and chooses an entry of the menu with the keyboard, as a person would.
    void chooseFromRowMenu(int row, int entry)
    {
        const QPoint position = cellCentre(row, 1);
        QContextMenuEvent event(QContextMenuEvent::Mouse, position, m_table->viewport()->mapToGlobal(position));
        QCoreApplication::sendEvent(m_table->viewport(), &event);
        QMenu *menu = m_table->findChild<QMenu *>();
        QVERIFY(menu);
        QTRY_VERIFY(menu->isVisible());
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
        QVERIFY(m_table && m_search);
        m_controller->applySnapshot(snapshotOf(office), TrayState::Connected);
        m_controller->showWindow();
        QVERIFY(QTest::qWaitForWindowExposed(m_controller->window()));
    }

    void cleanup() { m_controller.reset(); }

    void opensCentredAtItsSize()
    {
        QWidget *window = m_controller->window();
        QCOMPARE(window->windowTitle(), u"Veltrane \u2014 Peers"_qs);
        QCOMPARE(window->size(), QSize(900, 620));
        QCOMPARE(window->minimumSize(), QSize(640, 360));
        const QPoint screenCentre = window->screen()->availableGeometry().center();
        // Placed before its frame is known: centred to within the frame's border.
        const QPoint offset = window->frameGeometry().center() - screenCentre;
        QVERIFY2(qAbs(offset.x()) <= 3 && qAbs(offset.y()) <= 3, qPrintable(u"%1, %2"_qs.arg(offset.x()).arg(offset.y())));
    }

    void hasFiveColumnsAndOneSelection()
    {
        QStringList titles;
        QList<int> widths;
        for (int column = 0; column < m_table->model()->columnCount(); ++column) {
            titles.append(m_table->model()->headerData(column, Qt::Horizontal).toString());
            widths.append(m_table->columnWidth(column));
        }
        QCOMPARE(titles, (QStringList{u"Device"_qs, u"IP"_qs, u"Status"_qs, u"Path"_qs, u"RTT"_qs}));
        QCOMPARE(widths, (QList<int>{250, 130, 110, 240, 70}));
        QCOMPARE(m_table->horizontalHeader()->minimumSectionSize(), 50);
        QCOMPARE(m_table->selectionMode(), QAbstractItemView::SingleSelection);
        QCOMPARE(m_table->selectionBehavior(), QAbstractItemView::SelectRows);
        QVERIFY(m_table->alternatingRowColors());
        QCOMPARE(m_table->textElideMode(), Qt::ElideMiddle);
        QCOMPARE(m_search->placeholderText(), u"Search devices"_qs);
    }

    // Only the table takes what the window grows by; the search field and footer keep their margins.
    void growsOnlyTheTable()
    {
        QWidget *window = m_controller->window();
        const QWidget *footer = window->findChild<ElidedLabel *>(u"footerLabel"_qs);
        for (const QSize size : {QSize(900, 620), QSize(1300, 1000), QSize(640, 360)}) {
            window->resize(size);
            QTRY_COMPARE(m_search->geometry(), QRect(16, 16, size.width() - 32, 28));
            QCOMPARE(m_table->geometry(), QRect(0, 52, size.width(), size.height() - 84));
            QCOMPARE(footer->geometry(), QRect(16, size.height() - 24, size.width() - 32, 16));
        }
    }

    // Dark whatever the desktop says: a light application palette does not reach the window.
    void staysDarkUnderALightTheme()
    {
        QApplication::setPalette(QPalette(Qt::white));
        const QImage image = m_controller->window()->grab().toImage();
        QApplication::setPalette(QPalette());
        QVERIFY(image.pixelColor(4, 4).lightness() < 60);
        QVERIFY(image.pixelColor(450, 600).lightness() < 60);
        QVERIFY(m_controller->window()->palette().color(QPalette::Base).lightness() < 60);
    }

    void showsTheFooterForTheState()
    {
        const auto *footer = m_controller->window()->findChild<ElidedLabel *>(u"footerLabel"_qs);
        QCOMPARE(footer->text(), u"Control plane: connected"_qs);
        m_controller->applySnapshot(std::nullopt, TrayState::Stopped);
        QCOMPARE(footer->text(), u"Control plane: suspended (veltrane stopped)"_qs);
        QCOMPARE(m_table->model()->rowCount(), 0);
    }

    void filtersAsTheUserTypes()
    {
        m_search->setFocus();
        QTest::keyClicks(m_search, u"  CORP"_qs);
        QCOMPARE(m_table->model()->rowCount(), 3);
        QTest::keyClick(m_search, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClicks(m_search, u"10.7"_qs);
        QCOMPARE(m_table->model()->rowCount(), 1);
        QCOMPARE(nameAt(0), u"charlie"_qs);
        // The search text stays across a refresh.
        m_controller->applySnapshot(snapshotOf(office), TrayState::Connected);
        QCOMPARE(m_table->model()->rowCount(), 1);
    }

    void keepsTheSelectedDeviceAcrossRefreshes()
    {
        m_table->selectRow(1);
        QCOMPARE(nameAt(selectedRow()), u"bravo"_qs);

        QList devices = office;
        devices.prepend(device(u"aardvark"_qs, u"c-new"_qs, u"new.corp.ts.net"_qs, u"100.64.0.9"_qs));
        m_controller->applySnapshot(snapshotOf(devices), TrayState::Connected);
        QCOMPARE(selectedRow(), 2);
        QCOMPARE(nameAt(2), u"bravo"_qs);

        m_search->setText(u"bra"_qs);
        QCOMPARE(selectedRow(), 0);
        m_search->clear();
        QCOMPARE(nameAt(selectedRow()), u"bravo"_qs);

        // Searched away, or gone from the status: nothing is selected.
        m_search->setText(u"alpha"_qs);
        QCOMPARE(selectedRow(), -1);
        m_search->clear();
        m_table->selectRow(1);
        m_controller->applySnapshot(snapshotOf(office.mid(2)), TrayState::Connected);
        QCOMPARE(selectedRow(), -1);
    }

    void neverReselectsADeviceWithoutClientId()
    {
        m_table->selectRow(3);
        QCOMPARE(nameAt(3), u"delta"_qs);
        m_controller->applySnapshot(snapshotOf(office), TrayState::Connected);
        QCOMPARE(selectedRow(), -1);
    }

    void copiesFromTheSelectedRow()
    {
        QClipboard *clipboard = QGuiApplication::clipboard();
        m_controller->onCopyDns();
        QCOMPARE(clipboard->text(), u"before"_qs); // nothing selected

        m_table->selectRow(0);
        m_controller->onCopyDns();
        QCOMPARE(clipboard->text(), u"alpha.corp.ts.net"_qs);
        m_controller->onCopyIp();
        QCOMPARE(clipboard->text(), u"100.64.0.1"_qs);

        m_table->selectRow(2); // no DNS name: its address stands in
        m_controller->onCopyDns();
        QCOMPARE(clipboard->text(), u"10.7.0.12"_qs);

        m_table->selectRow(4); // neither: nothing is copied
        clipboard->setText(u"kept"_qs);
        m_controller->onCopyDns();
        m_controller->onCopyIp();
        QCOMPARE(clipboard->text(), u"kept"_qs);
    }

    // The row menu acts on the row under the pointer, even while another is selected.
    void rowMenuCopiesTheClickedRow()
    {
        QClipboard *clipboard = QGuiApplication::clipboard();
        m_table->selectRow(0);
        m_table->selectionModel()->clearSelection();
        chooseFromRowMenu(1, 1);
        QCOMPARE(clipboard->text(), u"100.64.0.2"_qs);
        chooseFromRowMenu(3, 0);
        QCOMPARE(clipboard->text(), u"delta.corp.ts.net"_qs);

        QMenu *menu = m_table->findChild<QMenu *>();
        QStringList entries;
        for (const QAction *action : menu->actions())
            entries.append(action->text());
        QCOMPARE(entries, (QStringList{u"Copy DNS Name"_qs, u"Copy IP"_qs}));

        // Once the menu has closed, the copy actions act on the selection again.
        m_table->selectRow(0);
        QTRY_COMPARE((m_controller->onCopyIp(), clipboard->text()), u"100.64.0.1"_qs);
    }

    // A refresh that reorders rows while the menu is open does not change what is copied.
    void rowMenuSurvivesARefresh()
    {
        const QPoint position = cellCentre(1, 0);
        QContextMenuEvent event(QContextMenuEvent::Mouse, position, m_table->viewport()->mapToGlobal(position));
        QCoreApplication::sendEvent(m_table->viewport(), &event);
        QMenu *menu = m_table->findChild<QMenu *>();
        QTRY_VERIFY(menu->isVisible());
        QList devices = office;
        devices.prepend(device(u"aardvark"_qs, u"c-new"_qs, u"new.corp.ts.net"_qs, u"100.64.0.9"_qs));
        m_controller->applySnapshot(snapshotOf(devices), TrayState::Connected);
        QTest::keyClick(menu, Qt::Key_Down);
        QTest::keyClick(menu, Qt::Key_Down);
        QTest::keyClick(menu, Qt::Key_Return);
        QCOMPARE(QGuiApplication::clipboard()->text(), u"100.64.0.2"_qs);
    }

    void doubleClickCopiesTheDnsName()
    {
        const QPoint position = cellCentre(1, 2);
        QTest::mouseClick(m_table->viewport(), Qt::LeftButton, {}, position);
        QTest::mouseDClick(m_table->viewport(), Qt::LeftButton, {}, position);
        QCOMPARE(QGuiApplication::clipboard()->text(), u"bravo.corp.ts.net"_qs);
    }

    // Secondary cells are drawn fainter than primary ones; the offline status among them.
    void drawsSecondaryCellsFainter()
    {
        QList devices = office.mid(0, 2);
        devices[1].online = false;
        m_controller->applySnapshot(snapshotOf(devices), TrayState::Connected);
        const QImage image = m_table->viewport()->grab().toImage();
        auto brightest = [&](int row, int column) {
            const QRect cell = m_table->visualRect(m_table->model()->index(row, column));
            int lightness = 0;
            for (int y = cell.top(); y <= cell.bottom(); ++y)
                for (int x = cell.left(); x <= cell.right(); ++x)
                    lightness = qMax(lightness, image.pixelColor(x, y).lightness());
            return lightness;
        };
        QVERIFY(brightest(0, 2) > 200);           // "direct", online
        QVERIFY(brightest(1, 2) < 170);           // "offline"
        QVERIFY(brightest(0, 3) < 170);           // the path
        QVERIFY(brightest(0, 0) > 200);           // the name
    }

    void showsTooltipsAsPlainText()
    {
        QList devices{device(u"lab"_qs, u"c"_qs, u"<b>lab</b>.ts.net"_qs, u"100.64.0.1"_qs)};
        m_controller->applySnapshot(snapshotOf(devices), TrayState::Connected);
        const QPoint position = cellCentre(0, 0);
        QHelpEvent help(QEvent::ToolTip, position, m_table->viewport()->mapToGlobal(position));
        QCoreApplication::sendEvent(m_table->viewport(), &help);
        QTRY_VERIFY(QToolTip::isVisible());
        QCOMPARE(QToolTip::text(), Qt::convertFromPlainText(u"<b>lab</b>.ts.net"_qs, Qt::WhiteSpaceNoWrap));
        QToolTip::hideText();
    }
};

QTEST_MAIN(TestPeersWindow)
#include "tst_peerswindow.moc"
