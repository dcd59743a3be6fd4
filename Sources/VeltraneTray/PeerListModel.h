#pragma once

#include "DaemonProtocol.h"
#include "TrayState.h"

#include <QAbstractTableModel>
#include <QCollator>
#include <QCollatorSortKey>

#include <array>
#include <optional>
#include <unordered_map>

namespace Veltrane {

/// One column of the peers table: its identifier, its title and its initial width in points.
struct PeerColumn {
    const char16_t *identifier;
    const char16_t *title;
    int width;
};

/// The peer devices of the latest status as a five-column table: every device in display order
/// (`allDevices`), and the ones that match the search text (`filteredDevices`), which are the rows.
///
/// Display order is stable and ascending by `displayName` under the user's locale, ignoring letter
/// case; names that compare equal keep the daemon's order. The search text, trimmed of blanks and
/// tabs, is looked for without regard to case in the display name, then `fqdn`, then `assignedIp`.
/// Every change replaces the rows whole (a model reset): the selection is the view's business.
class PeerListModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { DeviceColumn, IpColumn, StatusColumn, PathColumn, RttColumn, ColumnCount };

    enum Role {
        /// true when the cell is drawn in the secondary label colour rather than the label colour
        SecondaryTextRole = Qt::UserRole + 1,
    };

    static constexpr std::array<PeerColumn, ColumnCount> columns{{
        {u"device", u"Device", 250},
        {u"ip", u"IP", 130},
        {u"status", u"Status", 110},
        {u"path", u"Path", 240},
        {u"rtt", u"RTT", 70},
    }};

    explicit PeerListModel(QObject *parent = nullptr);

    /// Replaces every device with those of `snapshot` (none when it or its list is absent), sorted,
    /// and filters them again with the current search text.
    void applySnapshot(const std::optional<DaemonStatusSnapshot> &snapshot);

    /// Sets the text typed in the search field and filters again. Only blanks and tabs around it
    /// are ignored; line breaks are kept, and the text is searched for as one string.
    void setSearchText(const QString &text);

    const QList<ConnectableDeviceSnapshot> &allDevices() const { return m_allDevices; }
    const QList<ConnectableDeviceSnapshot> &filteredDevices() const { return m_filteredDevices; }

    /// The device shown in `row`, or none when the row is outside the table.
    std::optional<ConnectableDeviceSnapshot> device(int row) const;

    /// The first row whose device has this exact `clientId`, or -1.
    int rowOfClientId(const QString &clientId) const;

    /// The line under the table for a tray state; it tells the control plane's state only.
    static QString footerText(TrayState state);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    void sortByDisplayName(QList<ConnectableDeviceSnapshot> &devices);
    void filter();

    QCollator m_collator;
    // Sort keys of the names in the current list. A status arrives every few seconds and names
    // rarely change between two, so most keys are reused instead of asking the collator again.
    std::unordered_map<QString, QCollatorSortKey> m_sortKeys;
    QString m_query;
    QList<ConnectableDeviceSnapshot> m_allDevices;
    QList<ConnectableDeviceSnapshot> m_filteredDevices;
};

} // namespace Veltrane
