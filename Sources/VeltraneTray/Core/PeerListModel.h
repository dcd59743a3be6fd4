#pragma once

#include "DaemonProtocol.h"
#include "TrayState.h"

#include <QAbstractTableModel>
#include <QCollator>
#include <QCollatorSortKey>
#include <QHash>

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
/// case as the search does (`searchFolded`); names that compare equal keep the daemon's order. The search text, trimmed of blanks and
/// tabs, is looked for in the display name, then `fqdn`, then `assignedIp`, under the sort's own
/// equivalences (see `searchFolded`).
///
/// Every change rewrites the rows in place, as a table reload does: row *i* stays row *i*, only its
/// contents change, and rows are added or removed at the end; only rows that read differently are
/// announced as changed. So the view keeps its selected row, its current row, its hover and its
/// scroll position; which device they should follow is the view's business.
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

    /// Every device in display order, and the ones shown, in rows; built on each call.
    QList<ConnectableDeviceSnapshot> allDevices() const { return devicesAt(m_order); }
    QList<ConnectableDeviceSnapshot> filteredDevices() const { return devicesAt(m_rows); }

    /// The device shown in `row`, or none when the row is outside the table.
    std::optional<ConnectableDeviceSnapshot> device(int row) const;

    /// The first row whose device has this exact `clientId`, or -1.
    int rowOfClientId(const QString &clientId) const;

    /// The line under the table for a tray state; it tells the control plane's state only.
    static QString footerText(TrayState state);

    /// `text` as the search compares it: letter case folded in full ("Straße" and "STRASSE" agree),
    /// canonically and compatibly equivalent forms made one (a precomposed "é" and "e" with a
    /// combining accent; "ﬁ" and "fi"), accents kept. The sort collates names in this form too, so
    /// names it holds equal find each other.
    static QString searchFolded(const QString &text);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    // The folded fields of one device, as the search reads them.
    struct SearchKeys {
        QString name;
        QString fqdn;
        QString ip;
    };

    void sortByDisplayName();
    // `previous`: the list the rows shown so far are positions in.
    void filter(const QList<ConnectableDeviceSnapshot> &previous);
    void showRows(QList<qsizetype> rows, const QList<ConnectableDeviceSnapshot> &previous);
    const QList<SearchKeys> &searchKeys();
    QList<ConnectableDeviceSnapshot> devicesAt(const QList<qsizetype> &indexes) const;
    const ConnectableDeviceSnapshot &shownAt(int row) const { return m_devices[m_rows[row]]; }

    QCollator m_collator;
    // Sort keys of the names in the current list. A status arrives every few seconds and names
    // rarely change between two, so most keys are reused instead of asking the collator again.
    std::unordered_map<QString, QCollatorSortKey> m_sortKeys;
    QString m_query; // trimmed and folded
    // The daemon's list as it came, shared with the status it came in: records are never copied.
    // The order and the rows are positions in it.
    QList<ConnectableDeviceSnapshot> m_devices;
    QList<qsizetype> m_order; // display order
    QList<qsizetype> m_rows;  // the devices shown, in display order
    // Parallel to m_devices; made at the first search after a snapshot, so that typing and an
    // empty search fold nothing. Folded texts of the previous list are reused, like sort keys.
    QList<SearchKeys> m_searchKeys;
    QHash<QString, QString> m_foldedTexts;
};

} // namespace Veltrane
