#pragma once

#include "DaemonProtocol.h"
#include "PeerListModel.h"
#include "TrayState.h"

#include <QMainWindow>
#include <QObject>

#include <memory>
#include <optional>

class QLineEdit;
class QMenu;
class QWidget;

namespace Veltrane {

class ElidedLabel;
class PeerTableView;

/// The peers window: a search field over a five-column table of the peer devices of the latest
/// status, and a footer line with the state of the control plane. A peer's DNS name or address is
/// copied to the clipboard from the row's context menu, or its DNS name by a double-click.
///
/// The window is 900 × 620 points at first, centred, at least 640 × 360, and always dark, its row
/// menu and tooltips too. Closing it only hides it: the search text, the column widths and the
/// window's place survive until it is shown again. While hidden it only keeps the latest status,
/// and lists it when shown.
///
/// A refresh or a keystroke rewrites the rows in place: the scroll position, the current row and
/// the selected row stay where they are, and a selected device that moved is selected again at
/// its new row, found by its `clientId`, without scrolling to it.
///
/// The search field's caret stops blinking after ten seconds without input (`CaretRest`), so a
/// window left open draws nothing between two statuses that change no row.
///
/// Keyboard: focus starts in the search field; Down goes on into the table, where the arrows,
/// Page Up/Down, Home and End move the selection; Copy copies the selected DNS name; the Menu key
/// and Shift+F10 open the row menu; Escape clears the search, or closes the window when the
/// search is empty.
class PeersWindowController : public QObject
{
    Q_OBJECT

public:
    PeersWindowController();
    ~PeersWindowController() override;

    QWidget *window() const { return m_window.get(); }

    /// Lists the devices of `snapshot` (none when it is absent) under the current search text,
    /// and sets the footer for `state`.
    void applySnapshot(const std::optional<DaemonStatusSnapshot> &snapshot, TrayState state);

    /// Shows the window in front with the focus, restored if it was minimised, on the user's
    /// current workspace, with the keyboard focus in the search field when it was not on screen.
    /// `activationToken` is the desktop's permission to take the focus, where it gave one.
    void showWindow(const QString &activationToken = {});

public Q_SLOTS:
    /// Copies the DNS name (or, without one, the address) of the right-clicked or selected device.
    void onCopyDns();
    /// Copies the address of the right-clicked or selected device.
    void onCopyIp();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // A status that arrived while the window was hidden, listed when it is shown.
    struct PendingStatus {
        std::optional<DaemonStatusSnapshot> snapshot;
        TrayState state;
    };

    void buildContent();
    QMenu *buildRowMenu();
    void listStatus(const std::optional<DaemonStatusSnapshot> &snapshot, TrayState state);
    void applyFilter(const QString &searchText);
    template <class Change>
    void keepingSelection(const Change &change);
    void selectRow(int row);
    std::optional<ConnectableDeviceSnapshot> selectedDevice() const;
    void showRowMenu(int clickedRow, const QPoint &globalPosition);
    void onEscape();
    void copyToClipboard(const QString &text);

    PeerListModel m_model;
    std::optional<PendingStatus> m_pendingStatus;
    // The device under the pointer when the row menu opened or a row was double-clicked; it is
    // what the copy actions act on, even if a refresh reorders the rows while the menu is open.
    std::optional<ConnectableDeviceSnapshot> m_clickedDevice;
    int m_menuOpenings = 0;
    std::unique_ptr<QMainWindow> m_window;
    QLineEdit *m_searchField;
    PeerTableView *m_tableView;
    ElidedLabel *m_footerLabel;
    QMenu *m_rowMenu = nullptr;
};

} // namespace Veltrane
