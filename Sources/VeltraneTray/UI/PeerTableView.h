#pragma once

#include <QTableView>

namespace Veltrane {

/// The peers table, which is read and acted on by rows, as a list of devices is:
/// - Home and End go to the first and the last device, not to the ends of the current row;
/// - the platform's Copy key asks for the selected device to be copied (`copyRequested`);
/// - a right click asks for the row menu of the row under the pointer without selecting it, and
///   the Menu key and Shift+F10 ask for the menu of the selection (`rowMenuRequested`).
class PeerTableView : public QTableView
{
    Q_OBJECT

public:
    using QTableView::QTableView;

Q_SIGNALS:
    void copyRequested();
    /// `clickedRow` is the row that was right-clicked, or -1 for the selection; `globalPosition`
    /// is where the menu opens.
    void rowMenuRequested(int clickedRow, const QPoint &globalPosition);

protected:
    QModelIndex moveCursor(CursorAction cursorAction, Qt::KeyboardModifiers modifiers) override;
    void keyPressEvent(QKeyEvent *event) override;
    bool viewportEvent(QEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;

private:
    void requestMenuForSelection();
};

} // namespace Veltrane
