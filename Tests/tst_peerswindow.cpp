#include "CaretRest.h"
#include "ElidedLabel.h"
#include "PeersWindowController.h"

#include <QApplication>
#include <QClipboard>
#include <QHelpEvent>
#include <QLineEdit>
#include <QMenu>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStyleHints>
#include <QTableView>
#include <QTest>
#include <QTextDocument>
#include <QToolTip>
#include <QWindow>

using namespace Qt::StringLiterals;
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
    device.connectionStatus = NodeConnectionStatusSnapshot{u"direct"_s, u"203.0.113.9:41641"_s, 12};
    return device;
}

std::optional<DaemonStatusSnapshot> snapshotOf(const QList<ConnectableDeviceSnapshot> &devices)
{
    DaemonStatusSnapshot snapshot;
    snapshot.connectableDevices = devices;
    return snapshot;
}

const QList<ConnectableDeviceSnapshot> office{
    device(u"alpha"_s, u"c-alpha"_s, u"alpha.corp.ts.net"_s, u"100.64.0.1"_s),
    device(u"bravo"_s, u"c-bravo"_s, u"bravo.corp.ts.net"_s, u"100.64.0.2"_s),
    device(u"charlie"_s, u"c-charlie"_s, u""_s, u"10.7.0.12"_s, false),
    device(u"delta"_s, {}, u"<b>delta</b>.corp.ts.net"_s, u"100.64.0.4"_s),
    device(u"echo"_s, u"c-echo"_s, u""_s, {}),
};

// Counts the paint events of a widget.
class PaintCounter : public QObject
{
public:
    PaintCounter(QWidget *widget, int &count) : m_count(count) { widget->installEventFilter(this); }

    bool eventFilter(QObject *, QEvent *event) override
    {
        m_count += event->type() == QEvent::Paint;
        return false;
    }

private:
    int &m_count;
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

    QMenu *rowMenu() const { return m_table->findChild<QMenu *>(); }

    // Clicks as the window system delivers it, so Qt also makes the context-menu event of a right click.
    void click(Qt::MouseButton button, int row, int column)
    {
        QWidget *window = m_controller->window();
        QTest::mouseClick(window->windowHandle(), button, {}, m_table->viewport()->mapTo(window, cellCentre(row, column)));
    }

    // Right-clicks a row, lets `meanwhile` happen, then chooses an entry with the keyboard.
    void chooseFromRowMenu(int row, int entry, const std::function<void()> &meanwhile = {})
    {
        click(Qt::RightButton, row, 1);
        QMenu *menu = rowMenu();
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
        QGuiApplication::clipboard()->setText(u"before"_s);
        m_controller = std::make_unique<PeersWindowController>();
        m_table = m_controller->window()->findChild<QTableView *>();
        m_search = m_controller->window()->findChild<QLineEdit *>();
        m_controller->applySnapshot(snapshotOf(office), TrayState::Connected);
        m_controller->showWindow();
        QVERIFY(QTest::qWaitForWindowExposed(m_controller->window()));
    }

    void cleanup() { m_controller.reset(); }

    // A refresh or a keystroke leaves the table where it was: scroll position, selected row,
    // current row. A selected device that moved is selected again where it now is, unscrolled.
    void keepsItsPlaceAcrossRefreshes()
    {
        QList<ConnectableDeviceSnapshot> many;
        for (int i = 0; i < 200; ++i)
            many.append(device(u"host-%1"_s.arg(i, 3, 10, QChar(u'0')), u"c-%1"_s.arg(i), u"h%1.corp.ts.net"_s.arg(i), {}));
        m_controller->applySnapshot(snapshotOf(many), TrayState::Connected);
        m_table->selectRow(3);
        QScrollBar *scroll = m_table->verticalScrollBar();
        scroll->setValue(scroll->maximum() / 2);
        const int scrolled = scroll->value();

        many.prepend(device(u"aardvark"_s, u"c-new"_s, u"new.corp.ts.net"_s, {}));
        m_controller->applySnapshot(snapshotOf(many), TrayState::Connected);
        QCOMPARE(selectedRow(), 4);
        QCOMPARE(m_table->currentIndex().row(), 4);
        QCOMPARE(scroll->value(), scrolled);
        QTest::keyClicks(m_search, u"corp"_s);
        QCOMPARE(selectedRow(), 4);
        QCOMPARE(scroll->value(), scrolled);

        // The selected device is gone: the selected row stays, now on its successor.
        many.removeAt(4);
        m_controller->applySnapshot(snapshotOf(many), TrayState::Connected);
        QCOMPARE(nameAt(selectedRow()), u"host-004"_s);
    }

    // A device without a clientId cannot be followed, and stays selected where it is.
    void leavesASelectionWithoutClientIdAlone()
    {
        m_table->selectRow(3);
        QCOMPARE(nameAt(3), u"delta"_s);
        m_controller->applySnapshot(snapshotOf(office), TrayState::Stopped);
        QCOMPARE(selectedRow(), 3);
        QCOMPARE(m_controller->window()->findChild<ElidedLabel *>(u"footerLabel"_s)->text(),
                 u"Control plane: suspended (veltrane stopped)"_s);
    }

    // The footer names the control plane's state, with or without a status behind it.
    void footerTellsEveryState()
    {
        const std::pair<TrayState, QString> footers[] = {
            {TrayState::DaemonUnreachable, u"Control plane: unreachable (daemon not running)"_s},
            {TrayState::Stopped, u"Control plane: suspended (veltrane stopped)"_s},
            {TrayState::LoggedOut, u"Control plane: awaiting sign-in"_s},
            {TrayState::Connecting, u"Control plane: connecting\u2026"_s},
            {TrayState::NoNetwork, u"Control plane: connected (no active network)"_s},
            {TrayState::Connected, u"Control plane: connected"_s},
            {TrayState::Error, u"Control plane: error"_s},
        };
        const auto *footer = m_controller->window()->findChild<ElidedLabel *>(u"footerLabel"_s);
        for (const auto &[state, text] : footers) {
            m_controller->applySnapshot(snapshotOf(office), state);
            QCOMPARE(footer->text(), text);
            m_controller->applySnapshot(std::nullopt, state);
            QCOMPARE(footer->text(), text);
        }
    }

    // Closed, the window lists nothing; shown again, it lists the latest status at once.
    void listsOnlyWhenShown()
    {
        m_controller->window()->close();
        QList devices = office;
        devices.removeFirst();
        m_controller->applySnapshot(snapshotOf(devices), TrayState::Error);
        QCOMPARE(nameAt(0), u"alpha"_s);
        m_controller->showWindow();
        QCOMPARE(nameAt(0), u"bravo"_s);
        QCOMPARE(m_table->model()->rowCount(), 4);
        QCOMPARE(m_controller->window()->findChild<ElidedLabel *>(u"footerLabel"_s)->text(), u"Control plane: error"_s);
    }

    // "Peers…" brings the window forward with the keyboard: a minimised one restored; one behind
    // another window activated where it is with a desktop's token, and without one, or with the
    // one KWin hands over when it refused, mapped anew.
    void comesForward_data()
    {
        QTest::addColumn<bool>("minimised");
        QTest::addColumn<QString>("token");
        QTest::addColumn<int>("visibilityChanges");
        QTest::newRow("minimised") << true << QString() << 0;
        QTest::newRow("behind, granted") << false << u"token-1"_s << 0;
        QTest::newRow("behind, no token") << false << QString() << 2;
        QTest::newRow("behind, refused by KWin") << false << u"not-granted-666"_s << 2;
    }

    void comesForward()
    {
        QFETCH(bool, minimised);
        QFETCH(QString, token);
        QFETCH(int, visibilityChanges);
        QWidget *window = m_controller->window();
        QWidget other;
        if (minimised) {
            window->showMinimized();
        } else {
            other.show();
            other.activateWindow();
        }
        QTRY_VERIFY(minimised ? window->isMinimized() : QGuiApplication::focusWindow() == other.windowHandle());
        QSignalSpy visibility(window->windowHandle(), &QWindow::visibleChanged);
        m_controller->showWindow(token);
        QCOMPARE(visibility.count(), visibilityChanges);
        QTRY_VERIFY(!window->isMinimized());
        QTRY_COMPARE(QGuiApplication::focusWindow(), window->windowHandle());
    }

    void copiesToTheClipboard()
    {
        QClipboard *clipboard = QGuiApplication::clipboard();
        m_controller->onCopyDns();
        QCOMPARE(clipboard->text(), u"before"_s); // nothing selected

        m_table->selectRow(0);
        chooseFromRowMenu(1, 1); // the row under the pointer, not the selected one
        QCOMPARE(clipboard->text(), u"100.64.0.2"_s);
        QCOMPARE(selectedRow(), 0); // which stays selected
        chooseFromRowMenu(2, 0); // no DNS name: its address stands in
        QCOMPARE(clipboard->text(), u"10.7.0.12"_s);

        // A refresh that reorders the rows while the menu is open changes nothing.
        chooseFromRowMenu(1, 0, [&] {
            QList devices = office;
            devices.prepend(device(u"aardvark"_s, u"c-new"_s, u"new.corp.ts.net"_s, u"100.64.0.9"_s));
            m_controller->applySnapshot(snapshotOf(devices), TrayState::Connected);
        });
        QCOMPARE(clipboard->text(), u"bravo.corp.ts.net"_s);

        QTest::mouseClick(m_table->viewport(), Qt::LeftButton, {}, cellCentre(4, 2));
        QTest::mouseDClick(m_table->viewport(), Qt::LeftButton, {}, cellCentre(4, 2));
        QCOMPARE(clipboard->text(), u"<b>delta</b>.corp.ts.net"_s);

        // Neither a DNS name nor an address: the clipboard keeps what it had.
        m_table->selectRow(5);
        QCOMPARE(nameAt(5), u"echo"_s);
        m_controller->onCopyDns();
        m_controller->onCopyIp();
        QCOMPARE(clipboard->text(), u"<b>delta</b>.corp.ts.net"_s);
    }

    // Daemon texts with markup, control characters, right-to-left text or 10,000 characters: the
    // cells, their tooltips and the clipboard carry them as written.
    void showsDaemonTextsAsWritten_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("markup") << u"<b>bold</b> &amp; <i>it</i>_x.corp"_s;
        QString longText;
        for (int i = 0; i < 10000; ++i)
            longText += QChar(u'a' + i % 26);
        QTest::newRow("10,000 characters") << longText + u"<b>&"_s;
    }

    void showsDaemonTextsAsWritten()
    {
        QFETCH(QString, text);
        m_controller->applySnapshot(snapshotOf({device(text, u"c-odd"_s, text, text)}), TrayState::Connected);
        QCOMPARE(nameAt(0), text);
        QCOMPARE(m_table->model()->index(0, 1).data().toString(), text);

        const QPoint position = cellCentre(0, 0);
        QHelpEvent help(QEvent::ToolTip, position, m_table->viewport()->mapToGlobal(position));
        QCoreApplication::sendEvent(m_table->viewport(), &help);
        QTRY_VERIFY(QToolTip::isVisible());
        QCOMPARE(QToolTip::text(), Qt::convertFromPlainText(text, Qt::WhiteSpaceNoWrap));
        QToolTip::hideText();

        chooseFromRowMenu(0, 0);
        QCOMPARE(QGuiApplication::clipboard()->text(), text);
    }

    // Focus starts in the search field; Down goes into the table; the keys move by rows.
    void worksFromTheKeyboard()
    {
        QClipboard *clipboard = QGuiApplication::clipboard();
        QTRY_COMPARE(QApplication::focusWidget(), m_search);
        QTest::keyClick(m_search, Qt::Key_Down);
        QCOMPARE(QApplication::focusWidget(), m_table);
        QCOMPARE(selectedRow(), 0);
        QTest::keyClick(m_table, Qt::Key_Down);
        QCOMPARE(selectedRow(), 1);
        QTest::keyClick(m_table, Qt::Key_End);
        QCOMPARE(selectedRow(), 4);
        QTest::keyClick(m_table, Qt::Key_Home);
        QCOMPARE(selectedRow(), 0);

        QTest::keyClick(m_table, Qt::Key_End);
        QTest::keyClick(m_table, Qt::Key_Up);
        QCOMPARE(nameAt(selectedRow()), u"delta"_s);
        QTest::keySequence(m_table, QKeySequence::Copy);
        QCOMPARE(clipboard->text(), u"<b>delta</b>.corp.ts.net"_s); // the DNS name, not the current cell

        QTest::keyClick(m_table, Qt::Key_F10, Qt::ShiftModifier);
        QTRY_VERIFY(rowMenu()->isVisible());
        QTest::keyClick(rowMenu(), Qt::Key_Down);
        QTest::keyClick(rowMenu(), Qt::Key_Down);
        QTest::keyClick(rowMenu(), Qt::Key_Return);
        QTRY_COMPARE(clipboard->text(), u"100.64.0.4"_s); // "Copy IP" of the selected row

        // Escape clears the search first, then closes the window.
        m_search->setText(u"alp"_s);
        QTest::keyClick(m_search, Qt::Key_Escape);
        QCOMPARE(m_search->text(), QString());
        QVERIFY(m_controller->window()->isVisible());
        QTest::keyClick(m_search, Qt::Key_Escape);
        QVERIFY(!m_controller->window()->isVisible());
        // The platform's close-window keys close it whatever the search holds.
        m_controller->showWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_controller->window()));
        m_search->setText(u"alp"_s);
        QTest::keySequence(m_search, QKeySequence::Close);
        QVERIFY(!m_controller->window()->isVisible());
    }

    // A field left alone stops drawing its caret's blink; a key or a click starts it again.
    void caretRestsWhenLeftAlone()
    {
        QStyleHints *hints = QGuiApplication::styleHints();
        const int blinking = hints->cursorFlashTime();
        QVERIFY(blinking > 0);
        QLineEdit field;
        new CaretRest(&field, std::chrono::milliseconds(100));
        int paints = 0;
        PaintCounter counter(&field, paints);
        field.show();
        field.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&field));
        field.setFocus();
        QTRY_COMPARE(hints->cursorFlashTime(), 0);
        QTest::qWait(50);
        paints = 0;
        QTest::qWait(blinking);
        QCOMPARE(paints, 0);
        QTest::keyClick(&field, Qt::Key_A);
        QCOMPARE(hints->cursorFlashTime(), blinking);
        QTRY_COMPARE(hints->cursorFlashTime(), 0);
        QTest::mouseClick(&field, Qt::LeftButton);
        QCOMPARE(hints->cursorFlashTime(), blinking);
    }
};

QTEST_MAIN(TestPeersWindow)
#include "tst_peerswindow.moc"
