#pragma once

#include "DaemonProtocol.h"
#include "PeerListModel.h"
#include "TrayState.h"

#include <QObject>

#include <memory>
#include <optional>

class QLineEdit;
class QMenu;
class QTableView;
class QWidget;

namespace Veltrane {

class ElidedLabel;

/// The peers window: a search field over a five-column table of the peer devices of the latest
/// status, and a footer line with the state of the control plane. A peer's DNS name or address is
/// copied to the clipboard from the row's context menu, or its DNS name by a double-click.
///
/// The window is 900 × 620 points at first, centred, at least 640 × 360, and always dark. Closing
/// it only hides it: the search text, the column widths and the window's place survive until it
/// is shown again. The device selected in the table stays selected across refreshes and searches
/// while a device with its `clientId` is listed; when it is gone, nothing is selected.
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

    /// Shows the window in front, with the keyboard focus.
    void showWindow();

public Q_SLOTS:
    /// Copies the DNS name (or, without one, the address) of the right-clicked or selected device.
    void onCopyDns();
    /// Copies the address of the right-clicked or selected device.
    void onCopyIp();

private:
    void buildContent();
    QMenu *buildRowMenu();
    void applyFilter(const QString &searchText);
    template <class Change>
    void keepingSelection(const Change &change);
    std::optional<ConnectableDeviceSnapshot> selectedDevice() const;
    void showRowMenu(const QPoint &position);
    void copyToClipboard(const QString &text);

    PeerListModel m_model;
    // The device under the pointer when the row menu opened or a row was double-clicked; it is
    // what the copy actions act on, even if a refresh reorders the rows while the menu is open.
    std::optional<ConnectableDeviceSnapshot> m_clickedDevice;
    std::unique_ptr<QWidget> m_window;
    QLineEdit *m_searchField;
    QTableView *m_tableView;
    ElidedLabel *m_footerLabel;
    QMenu *m_rowMenu = nullptr;
};

} // namespace Veltrane
