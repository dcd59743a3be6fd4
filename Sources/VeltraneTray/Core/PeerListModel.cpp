#include "PeerListModel.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <vector>

using namespace Qt::StringLiterals;

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

// Whether two devices fill a row with the same texts in the same tones. Round-trip times change from
// one status to the next while names and addresses stay: a double compared first settles most rows
// that changed before any string is read.
bool readAlike(const ConnectableDeviceSnapshot &a, const ConnectableDeviceSnapshot &b)
{
    const auto &pathA = a.connectionStatus;
    const auto &pathB = b.connectionStatus;
    if (pathA && pathB && pathA->roundTripTimeMilliseconds != pathB->roundTripTimeMilliseconds)
        return false;
    return isOnline(a) == isOnline(b) && pathA == pathB && a.displayName() == b.displayName()
        && a.assignedIp == b.assignedIp;
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
            return u"offline"_s;
        return path && path->state ? *path->state : u"online"_s;
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
    const QList<ConnectableDeviceSnapshot> previous = std::exchange(
        m_devices, snapshot && snapshot->connectableDevices ? snapshot->connectableDevices->devices()
                                                            : QList<ConnectableDeviceSnapshot>());
    m_searchKeys.clear();
    // The order depends on the names alone: the same names in the same places keep it.
    const auto sameName = [](const ConnectableDeviceSnapshot &a, const ConnectableDeviceSnapshot &b) {
        return a.displayName() == b.displayName();
    };
    if (m_order.size() != m_devices.size()
        || !std::equal(previous.cbegin(), previous.cend(), m_devices.cbegin(), m_devices.cend(), sameName))
        sortByDisplayName();
    filter(previous);
}

void PeerListModel::setSearchText(const QString &text)
{
    m_query = searchFolded(trimmedOfBlanks(text));
    filter(m_devices);
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
    if (m_searchKeys.size() == m_devices.size())
        return m_searchKeys;
    QHash<QString, QString> folded;
    const auto fold = [&](const QString &text) {
        auto found = folded.constFind(text);
        if (found == folded.cend())
            found = folded.insert(text, m_foldedTexts.value(text, searchFolded(text)));
        return *found;
    };
    m_searchKeys.clear();
    m_searchKeys.reserve(m_devices.size());
    for (const ConnectableDeviceSnapshot &device : std::as_const(m_devices))
        m_searchKeys.append({fold(device.displayName()), fold(orEmpty(device.fqdn)), fold(orEmpty(device.assignedIp))});
    m_foldedTexts = std::move(folded); // only the texts now listed
    return m_searchKeys;
}

void PeerListModel::sortByDisplayName()
{
    std::unordered_map<QString, QCollatorSortKey> keys;
    keys.reserve(size_t(m_devices.size()));
    std::vector<const QCollatorSortKey *> keyOf; // by position in m_devices
    keyOf.reserve(size_t(m_devices.size()));
    for (const ConnectableDeviceSnapshot &device : std::as_const(m_devices)) {
        const QString name = device.displayName();
        auto found = keys.find(name);
        if (found == keys.end()) {
            const auto previous = m_sortKeys.find(name);
            // Collated folded, so that the order holds equal what the search does ("Straße",
            // "STRASSE"), which the collator alone does not.
            found = previous != m_sortKeys.end() ? keys.emplace(name, previous->second).first
                                                 : keys.emplace(name, m_collator.sortKey(searchFolded(name))).first;
        }
        keyOf.push_back(&found->second); // map nodes never move, so the pointer stays valid
    }
    m_order.resize(m_devices.size());
    std::iota(m_order.begin(), m_order.end(), 0);
    std::stable_sort(m_order.begin(), m_order.end(),
                     [&](qsizetype a, qsizetype b) { return keyOf[size_t(a)]->compare(*keyOf[size_t(b)]) < 0; });
    m_sortKeys = std::move(keys); // only the names now listed: the cache never outgrows the list
}

void PeerListModel::filter(const QList<ConnectableDeviceSnapshot> &previous)
{
    if (m_query.isEmpty()) {
        showRows(m_order, previous);
        return;
    }
    const QList<SearchKeys> &keys = searchKeys();
    QList<qsizetype> rows;
    for (const qsizetype at : std::as_const(m_order)) {
        const SearchKeys &key = keys[at];
        if (key.name.contains(m_query) || key.fqdn.contains(m_query) || key.ip.contains(m_query))
            rows.append(at);
    }
    showRows(std::move(rows), previous);
}

// Rows beyond the new count go, or new ones come, at the end; then every remaining row whose device
// reads differently from the one shown there before is told it changed, so a status that changed
// nothing repaints nothing. No view reads a row between the two.
void PeerListModel::showRows(QList<qsizetype> rows, const QList<ConnectableDeviceSnapshot> &previous)
{
    const QList<qsizetype> shownBefore = m_rows; // positions in `previous`
    const qsizetype before = m_rows.size();
    const qsizetype after = rows.size();
    if (after < before) {
        beginRemoveRows({}, int(after), int(before - 1));
        m_rows.resize(after);
        endRemoveRows();
    } else if (after > before) {
        beginInsertRows({}, int(before), int(after - 1));
        m_rows.append(rows.sliced(before));
        endInsertRows();
    }
    m_rows = std::move(rows);
    const auto changed = [&](qsizetype row) {
        const ConnectableDeviceSnapshot &was = previous[shownBefore[row]];
        const ConnectableDeviceSnapshot &is = std::as_const(m_devices)[m_rows[row]];
        return &was != &is && !readAlike(was, is);
    };
    const qsizetype kept = std::min(before, after);
    for (qsizetype first = 0; first < kept; ++first) {
        if (!changed(first))
            continue;
        qsizetype last = first;
        while (last + 1 < kept && changed(last + 1))
            ++last;
        Q_EMIT dataChanged(index(int(first), 0), index(int(last), ColumnCount - 1));
        first = last;
    }
}

QList<ConnectableDeviceSnapshot> PeerListModel::devicesAt(const QList<qsizetype> &indexes) const
{
    QList<ConnectableDeviceSnapshot> devices;
    devices.reserve(indexes.size());
    for (const qsizetype at : indexes)
        devices.append(m_devices[at]);
    return devices;
}

std::optional<ConnectableDeviceSnapshot> PeerListModel::device(int row) const
{
    if (row < 0 || row >= m_rows.size())
        return std::nullopt;
    return shownAt(row);
}

int PeerListModel::rowOfClientId(const QString &clientId) const
{
    for (int row = 0; row < m_rows.size(); ++row) {
        if (shownAt(row).clientId == clientId)
            return row;
    }
    return -1;
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
    return parent.isValid() ? 0 : int(m_rows.size());
}

int PeerListModel::columnCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : ColumnCount; }

QVariant PeerListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const ConnectableDeviceSnapshot &device = shownAt(index.row());
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
        return shownAt(section).displayName();
    return {};
}

} // namespace Veltrane
