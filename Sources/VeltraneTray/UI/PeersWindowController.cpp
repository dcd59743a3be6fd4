#include "PeersWindowController.h"

#include "Appearance.h"
#include "ApplicationShell.h"
#include "CaretRest.h"
#include "ElidedLabel.h"
#include "PeerTableView.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QHeaderView>
#include <QHelpEvent>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QKeyEvent>
#include <QScreen>
#include <QShortcut>
#include <QStyledItemDelegate>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace Veltrane {

namespace {

constexpr QSize initialSize(900, 620);

// Cells in the label colour or the secondary one, as the model says; tooltips as plain text.
class PeerCellDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    bool helpEvent(QHelpEvent *event, QAbstractItemView *view, const QStyleOptionViewItem &option,
                   const QModelIndex &index) override
    {
        if (event->type() != QEvent::ToolTip)
            return QStyledItemDelegate::helpEvent(event, view, option, index);
        showPlainToolTip(event->globalPos(), index.data(Qt::ToolTipRole).toString(), view);
        return true;
    }

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override
    {
        QStyledItemDelegate::initStyleOption(option, index);
        const bool secondary = index.data(PeerListModel::SecondaryTextRole).toBool();
        option->palette.setColor(QPalette::Text, secondary ? Appearance::secondaryLabelColor(option->palette)
                                                           : Appearance::labelColor(option->palette));
    }
};

QHBoxLayout *insetHorizontally(QWidget *widget, int inset)
{
    auto *row = new QHBoxLayout;
    row->setContentsMargins(inset, 0, inset, 0);
    row->addWidget(widget);
    return row;
}

} // namespace

PeersWindowController::PeersWindowController()
    : m_window(std::make_unique<QMainWindow>())
    , m_searchField(new QLineEdit)
    , m_tableView(new PeerTableView)
    , m_footerLabel(new ElidedLabel(ElidedLabel::Tone::Secondary))
{
    m_window->setWindowTitle(u"Veltrane \u2014 Peers"_s);
    m_window->resize(initialSize);
    m_window->setMinimumSize(640, 360);
    // Dark whatever the desktop's theme; the row menu, a window of its own, follows.
    m_window->setPalette(Appearance::darkPalette());
    m_window->setAttribute(Qt::WA_WindowPropagation);
    m_window->setAutoFillBackground(true);
    if (const QScreen *screen = QGuiApplication::primaryScreen()) {
        QRect frame(QPoint(), initialSize);
        frame.moveCenter(screen->availableGeometry().center());
        m_window->move(frame.topLeft());
    }
    buildContent();
}

PeersWindowController::~PeersWindowController() = default;

// From the top: 16 points of margin, the search field, 8 points, the table across the whole
// width taking every point the window grows by, 8 points, the footer, 8 points.
void PeersWindowController::buildContent()
{
    m_searchField->setObjectName(u"searchField"_s);
    m_searchField->setPlaceholderText(u"Search devices"_s);
    m_searchField->setAccessibleName(u"Search devices"_s);
    m_searchField->installEventFilter(this);
    m_searchField->setClearButtonEnabled(true);
    if (auto *clear = m_searchField->findChild<QToolButton *>())
        clear->setAccessibleName(u"Clear search"_s);
    m_searchField->setFixedHeight(28);
    new CaretRest(m_searchField);
    connect(m_searchField, &QLineEdit::textChanged, this, &PeersWindowController::applyFilter);

    m_tableView->setObjectName(u"tableView"_s);
    m_tableView->setAccessibleName(u"Peers"_s);
    m_tableView->setModel(&m_model);
    m_tableView->setItemDelegate(new PeerCellDelegate(m_tableView));
    m_tableView->setFont(Appearance::systemFont(12));
    m_tableView->setSelectionMode(QAbstractItemView::SingleSelection);
    m_tableView->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_tableView->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_tableView->setAlternatingRowColors(true);
    m_tableView->setTextElideMode(Qt::ElideMiddle);
    m_tableView->setWordWrap(false);
    m_tableView->setShowGrid(false);
    m_tableView->setCornerButtonEnabled(false);
    QHeaderView *rows = m_tableView->verticalHeader();
    rows->hide();
    rows->setMinimumSectionSize(0);
    rows->setSectionResizeMode(QHeaderView::Fixed);
    rows->setDefaultSectionSize(m_tableView->fontMetrics().height() + 8);
    QHeaderView *columns = m_tableView->horizontalHeader();
    columns->setMinimumSectionSize(50);
    columns->setHighlightSections(false);
    columns->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    for (int column = 0; column < PeerListModel::ColumnCount; ++column)
        columns->resizeSection(column, PeerListModel::columns[size_t(column)].width);

    connect(m_tableView, &PeerTableView::rowMenuRequested, this, &PeersWindowController::showRowMenu);
    connect(m_tableView, &PeerTableView::copyRequested, this, &PeersWindowController::onCopyDns);
    m_rowMenu = buildRowMenu();
    connect(new QShortcut(Qt::Key_Escape, m_window.get()), &QShortcut::activated, this, &PeersWindowController::onEscape);
    // The platform's close-window keys (⌘W on a Mac, where an accessory app has no menu bar to
    // offer them, Ctrl+W elsewhere) close it at once, search or not.
    connect(new QShortcut(QKeySequence::Close, m_window.get()), &QShortcut::activated, m_window.get(), &QWidget::close);
    connect(m_tableView, &QAbstractItemView::doubleClicked, this, [this](const QModelIndex &index) {
        m_clickedDevice = m_model.device(index.row());
        onCopyDns();
        m_clickedDevice.reset();
    });

    // A main window, without bars: screen readers announce it as a window, with its title.
    auto *content = new QWidget;
    m_window->setCentralWidget(content);
    auto *layout = new QVBoxLayout(content);
    layout->setContentsMargins(0, 16, 0, 8);
    layout->setSpacing(8);
    layout->addLayout(insetHorizontally(m_searchField, 16));
    layout->addWidget(m_tableView, 1);
    m_footerLabel->setObjectName(u"footerLabel"_s);
    m_footerLabel->setFont(Appearance::systemFont(11));
    m_footerLabel->setFixedHeight(16);
    layout->addLayout(insetHorizontally(m_footerLabel, 16));
}

QMenu *PeersWindowController::buildRowMenu()
{
    auto *menu = new QMenu(m_tableView);
    menu->setObjectName(u"rowMenu"_s);
    // A menu takes the desktop theme's menu colours over its parent's; this one stays dark.
    menu->setPalette(Appearance::darkPalette());
    menu->addAction(u"Copy DNS Name"_s, this, &PeersWindowController::onCopyDns);
    menu->addAction(u"Copy IP"_s, this, &PeersWindowController::onCopyIp);
    // The chosen action runs after the menu hides; forget the clicked row only once it has, and
    // only if no other menu opened meanwhile.
    connect(menu, &QMenu::aboutToHide, this, [this] {
        QMetaObject::invokeMethod(this, [this, opening = m_menuOpenings] {
            if (opening == m_menuOpenings)
                m_clickedDevice.reset();
        }, Qt::QueuedConnection);
    });
    return menu;
}

void PeersWindowController::applySnapshot(const std::optional<DaemonStatusSnapshot> &snapshot, TrayState state)
{
    // A hidden window sorts nothing: it keeps the status (a shared copy) until it is shown.
    if (!m_window->isVisible()) {
        m_pendingStatus = PendingStatus{snapshot, state};
        return;
    }
    listStatus(snapshot, state);
}

void PeersWindowController::listStatus(const std::optional<DaemonStatusSnapshot> &snapshot, TrayState state)
{
    m_footerLabel->setText(PeerListModel::footerText(state));
    keepingSelection([&] { m_model.applySnapshot(snapshot); });
}

void PeersWindowController::showWindow(const QString &activationToken)
{
    if (m_pendingStatus) {
        listStatus(m_pendingStatus->snapshot, m_pendingStatus->state);
        m_pendingStatus.reset();
    }
    if (!m_window->isVisible())
        m_searchField->setFocus();
    ApplicationShell::bringToFront(m_window.get(), activationToken);
}

// Down in the search field goes on into the table, selecting its current row when none is.
bool PeersWindowController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_searchField && event->type() == QEvent::KeyPress
        && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Down && m_model.rowCount() > 0) {
        m_tableView->setFocus(Qt::TabFocusReason);
        if (!m_tableView->selectionModel()->hasSelection())
            selectRow(std::max(m_tableView->currentIndex().row(), 0));
        return true;
    }
    return QObject::eventFilter(watched, event);
}

void PeersWindowController::onEscape()
{
    if (!m_searchField->text().isEmpty())
        m_searchField->clear();
    else
        m_window->close();
}

void PeersWindowController::applyFilter(const QString &searchText)
{
    keepingSelection([&] { m_model.setSearchText(searchText); });
}

// The model rewrites its rows in place, so the table's selected row stays where it was; the device
// that was selected is selected again where it now stands, found by its clientId. Otherwise the
// selection is left alone.
template <class Change>
void PeersWindowController::keepingSelection(const Change &change)
{
    const std::optional<ConnectableDeviceSnapshot> selected = selectedDevice();
    change();
    if (!selected || !selected->clientId)
        return;
    const int row = m_model.rowOfClientId(*selected->clientId);
    if (row < 0)
        return;
    // The current row follows the selection, for the keyboard; moving it would scroll the table to
    // it, and a refresh must leave the table where the user left it.
    m_tableView->setAutoScroll(false);
    selectRow(row);
    m_tableView->setAutoScroll(true);
}

// The row alone is selected, and the keyboard goes on from it.
void PeersWindowController::selectRow(int row)
{
    m_tableView->selectionModel()->setCurrentIndex(m_model.index(row, 0),
                                                   QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

std::optional<ConnectableDeviceSnapshot> PeersWindowController::selectedDevice() const
{
    if (m_clickedDevice)
        return m_clickedDevice;
    const QModelIndexList selected = m_tableView->selectionModel()->selectedRows();
    if (selected.isEmpty())
        return std::nullopt;
    return m_model.device(selected.first().row());
}

void PeersWindowController::showRowMenu(int clickedRow, const QPoint &globalPosition)
{
    ++m_menuOpenings;
    m_clickedDevice = m_model.device(clickedRow);
    m_rowMenu->popup(globalPosition);
}

void PeersWindowController::onCopyDns()
{
    const std::optional<ConnectableDeviceSnapshot> device = selectedDevice();
    if (!device)
        return;
    const bool hasName = device->fqdn && !device->fqdn->isEmpty();
    copyToClipboard(hasName ? *device->fqdn : device->assignedIp.value_or(QString()));
}

void PeersWindowController::onCopyIp()
{
    if (const std::optional<ConnectableDeviceSnapshot> device = selectedDevice())
        copyToClipboard(device->assignedIp.value_or(QString()));
}

void PeersWindowController::copyToClipboard(const QString &text)
{
    if (text.isEmpty())
        return; // the clipboard keeps what it held
    QGuiApplication::clipboard()->setText(text);
}

} // namespace Veltrane
