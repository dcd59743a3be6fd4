#include "PeerListModel.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace Veltrane {

namespace {

const QString &orEmpty(const std::optional<QString> &text)
{
    static const QString empty;
    return text ? *text : empty;
}

// Blanks are the Unicode space separators and the tab; a line break is part of the query.
bool isBlank(QChar character)
{
    return character == u'\t' || character.category() == QChar::Separator_Space;
}

QString trimmedOfBlanks(const QString &text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isBlank(text[begin]))
        ++begin;
    while (end > begin && isBlank(text[end - 1]))
        --end;
    return text.sliced(begin, end - begin);
}

// The C locale names no language, and Qt collates it by code point: "Zoë" before "Émile", "Zed"
// before "alice". There the root order of Unicode applies instead, the one English uses untailored.
QLocale collationLocale()
{
    const QLocale locale;
    return locale.language() == QLocale::C ? QLocale(QLocale::English) : locale;
}

QString formatMilliseconds(double milliseconds)
{
    // C's rounding (half to even), as the daemon's own tools print round-trip times.
    char text[64];
    std::snprintf(text, sizeof text, "%.0f ms", milliseconds);
    return QString::fromLatin1(text);
}

bool isOnline(const ConnectableDeviceSnapshot &device) { return device.online == true; }

bool isSecondary(const ConnectableDeviceSnapshot &device, PeerListModel::Column column)
{
    switch (column) {
    case PeerListModel::StatusColumn:
        return !isOnline(device);
    case PeerListModel::PathColumn:
    case PeerListModel::RttColumn:
        return true;
    default:
        return false;
    }
}

// The text of one cell, as the table shows it.
QString cellText(const ConnectableDeviceSnapshot &device, PeerListModel::Column column)
{
    const auto &path = device.connectionStatus;
    switch (column) {
    case PeerListModel::DeviceColumn:
        return device.displayName();
    case PeerListModel::IpColumn:
        return orEmpty(device.assignedIp);
    case PeerListModel::StatusColumn:
        if (!isOnline(device))
            return u"offline"_qs;
        return path && path->state ? *path->state : u"online"_qs;
    case PeerListModel::PathColumn:
        return path ? orEmpty(path->endpoint) : QString();
    case PeerListModel::RttColumn:
        if (path && path->roundTripTimeMilliseconds && *path->roundTripTimeMilliseconds > 0)
            return formatMilliseconds(*path->roundTripTimeMilliseconds);
        return {};
    case PeerListModel::ColumnCount:
        break;
    }
    return {};
}

} // namespace

PeerListModel::PeerListModel(QObject *parent)
    : QAbstractTableModel(parent)
    , m_collator(collationLocale())
{
    m_collator.setCaseSensitivity(Qt::CaseInsensitive);
}

void PeerListModel::applySnapshot(const std::optional<DaemonStatusSnapshot> &snapshot)
{
    QList<ConnectableDeviceSnapshot> devices;
    if (snapshot && snapshot->connectableDevices)
        devices = *snapshot->connectableDevices;
    sortByDisplayName(devices);
    m_allDevices = std::move(devices);
    m_searchKeys.clear();
    filter();
}

void PeerListModel::setSearchText(const QString &text)
{
    m_query = searchFolded(trimmedOfBlanks(text));
    filter();
}

QString PeerListModel::searchFolded(const QString &text)
{
    // Compatibility decomposition first, so that case mapping sees base letters; full case
    // mapping through upper case ("ß" becomes "SS", then "ss"); then one composed form, in which
    // an accent stays part of its letter and "e" does not match inside "é".
    return text.normalized(QString::NormalizationForm_KD).toUpper().toLower().normalized(QString::NormalizationForm_KC);
}

const QList<PeerListModel::SearchKeys> &PeerListModel::searchKeys()
{
    if (m_searchKeys.size() == m_allDevices.size())
        return m_searchKeys;
    QHash<QString, QString> folded;
    const auto fold = [&](const QString &text) {
        auto found = folded.constFind(text);
        if (found == folded.cend())
            found = folded.insert(text, m_foldedTexts.value(text, searchFolded(text)));
        return *found;
    };
    m_searchKeys.clear();
    m_searchKeys.reserve(m_allDevices.size());
    for (const ConnectableDeviceSnapshot &device : std::as_const(m_allDevices))
        m_searchKeys.append({fold(device.displayName()), fold(orEmpty(device.fqdn)), fold(orEmpty(device.assignedIp))});
    m_foldedTexts = std::move(folded); // only the texts now listed
    return m_searchKeys;
}

void PeerListModel::sortByDisplayName(QList<ConnectableDeviceSnapshot> &devices)
{
    struct Entry {
        const QCollatorSortKey *key;
        qsizetype index;
    };
    std::unordered_map<QString, QCollatorSortKey> keys;
    keys.reserve(size_t(devices.size()));
    std::vector<Entry> entries;
    entries.reserve(size_t(devices.size()));

    for (qsizetype i = 0; i < devices.size(); ++i) {
        const QString name = devices[i].displayName();
        auto found = keys.find(name);
        if (found == keys.end()) {
            const auto previous = m_sortKeys.find(name);
            // Collated folded, so that the order holds equal what the search does ("Straße",
            // "STRASSE"), which the collator alone does not.
            found = previous != m_sortKeys.end() ? keys.emplace(name, previous->second).first
                                                 : keys.emplace(name, m_collator.sortKey(searchFolded(name))).first;
        }
        entries.push_back({&found->second, i}); // map nodes never move, so the pointer stays valid
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry &a, const Entry &b) { return a.key->compare(*b.key) < 0; });

    QList<ConnectableDeviceSnapshot> sorted;
    sorted.reserve(devices.size());
    for (const Entry &entry : entries)
        sorted.append(std::move(devices[entry.index]));
    devices = std::move(sorted);
    m_sortKeys = std::move(keys); // only the names now listed: the cache never outgrows the list
}

void PeerListModel::filter()
{
    if (m_query.isEmpty()) {
        showRows(m_allDevices);
        return;
    }
    const QList<SearchKeys> &keys = searchKeys();
    QList<ConnectableDeviceSnapshot> filtered;
    for (qsizetype i = 0; i < m_allDevices.size(); ++i) {
        const SearchKeys &key = keys[i];
        if (key.name.contains(m_query) || key.fqdn.contains(m_query) || key.ip.contains(m_query))
            filtered.append(m_allDevices[i]);
    }
    showRows(std::move(filtered));
}

// Rows beyond the new count go, or new ones come, at the end, while the rows before still hold
// their old contents; then every remaining row is told it changed.
void PeerListModel::showRows(QList<ConnectableDeviceSnapshot> rows)
{
    const qsizetype before = m_filteredDevices.size();
    const qsizetype after = rows.size();
    if (after < before) {
        beginRemoveRows({}, int(after), int(before - 1));
        m_filteredDevices.resize(after);
        endRemoveRows();
    } else if (after > before) {
        beginInsertRows({}, int(before), int(after - 1));
        m_filteredDevices.append(rows.sliced(before));
        endInsertRows();
    }
    m_filteredDevices = std::move(rows);
    if (const qsizetype kept = std::min(before, after); kept > 0)
        Q_EMIT dataChanged(index(0, 0), index(int(kept - 1), ColumnCount - 1));
}

std::optional<ConnectableDeviceSnapshot> PeerListModel::device(int row) const
{
    if (row < 0 || row >= m_filteredDevices.size())
        return std::nullopt;
    return m_filteredDevices[row];
}

int PeerListModel::rowOfClientId(const QString &clientId) const
{
    const auto found = std::find_if(m_filteredDevices.cbegin(), m_filteredDevices.cend(),
                                    [&](const ConnectableDeviceSnapshot &device) { return device.clientId == clientId; });
    return found == m_filteredDevices.cend() ? -1 : int(found - m_filteredDevices.cbegin());
}

QString PeerListModel::footerText(TrayState state)
{
    // Indexed by TrayState.
    static constexpr std::array<const char16_t *, allTrayStates.size()> texts{
        u"Control plane: unreachable (daemon not running)",
        u"Control plane: suspended (veltrane stopped)",
        u"Control plane: awaiting sign-in",
        u"Control plane: connecting\u2026",
        u"Control plane: connected (no active network)",
        u"Control plane: connected",
        u"Control plane: error",
    };
    return QString::fromUtf16(texts[size_t(state)]);
}

int PeerListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_filteredDevices.size());
}

int PeerListModel::columnCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : ColumnCount; }

QVariant PeerListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const ConnectableDeviceSnapshot &device = m_filteredDevices[index.row()];
    const auto column = Column(index.column());
    switch (role) {
    case Qt::DisplayRole:
        return cellText(device, column);
    case Qt::ToolTipRole:
        // The device cell's tip is the full DNS name; every other cell repeats its own text.
        return column == DeviceColumn ? orEmpty(device.fqdn) : cellText(device, column);
    case SecondaryTextRole:
        return isSecondary(device, column);
    default:
        return {};
    }
}

QVariant PeerListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole && section >= 0 && section < ColumnCount)
        return QString::fromUtf16(columns[size_t(section)].title);
    // The rows' header is never shown; to a screen reader it names each row by its device.
    if (orientation == Qt::Vertical && (role == Qt::DisplayRole || role == Qt::AccessibleTextRole) && section >= 0
        && section < rowCount())
        return m_filteredDevices[section].displayName();
    return {};
}

} // namespace Veltrane
