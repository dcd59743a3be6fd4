#include "PeerTableView.h"

#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QMouseEvent>

namespace Veltrane {

QModelIndex PeerTableView::moveCursor(CursorAction cursorAction, Qt::KeyboardModifiers modifiers)
{
    // A table moves Home and End within a row unless Control is held; here a row is the unit.
    if (cursorAction == MoveHome || cursorAction == MoveEnd)
        modifiers |= Qt::ControlModifier;
    return QTableView::moveCursor(cursorAction, modifiers);
}

void PeerTableView::keyPressEvent(QKeyEvent *event)
{
    // Left alone, a table would copy the text of the current cell, whatever its column.
    if (event->matches(QKeySequence::Copy)) {
        Q_EMIT copyRequested();
        event->accept();
        return;
    }
    if (event->key() == Qt::Key_Menu || (event->key() == Qt::Key_F10 && event->modifiers() == Qt::ShiftModifier)) {
        requestMenuForSelection();
        event->accept();
        return;
    }
    QTableView::keyPressEvent(event);
}

// The right button's presses and releases never reach the table, which would select the row: a
// right click only opens the row's menu (the context-menu event still comes).
bool PeerTableView::viewportEvent(QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseButtonDblClick:
        if (static_cast<QMouseEvent *>(event)->button() == Qt::RightButton) {
            event->accept();
            return true;
        }
        break;
    default:
        break;
    }
    return QTableView::viewportEvent(event);
}

void PeerTableView::contextMenuEvent(QContextMenuEvent *event)
{
    if (event->reason() == QContextMenuEvent::Mouse)
        Q_EMIT rowMenuRequested(indexAt(event->pos()).row(), event->globalPos());
    else
        requestMenuForSelection();
    event->accept();
}

void PeerTableView::requestMenuForSelection()
{
    // Under the selected row's first cell, or at the table's top left without a selection.
    const QModelIndexList selected = selectionModel()->selectedRows();
    const QRect cell = selected.isEmpty() ? QRect() : visualRect(selected.first());
    Q_EMIT rowMenuRequested(-1, viewport()->mapToGlobal(cell.isValid() ? cell.bottomLeft() : QPoint()));
}

} // namespace Veltrane
