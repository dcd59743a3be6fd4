#pragma once

#include <QPointer>
#include <QWidget>

class QLabel;
class QMenu;

namespace Veltrane {

/// The status menu as a small window, for a desktop that shows no status items: the menu's rows in
/// its order, each a control that follows its action (title, shown, enabled) and triggers it, and
/// the header and device rows as their views. It holds no row logic of its own: whatever sets the
/// menu's actions sets the window. Fixed in size, titled "Veltrane"; closing it (or Escape) hides it.
class MenuWindow : public QWidget
{
    Q_OBJECT

public:
    /// A row shown by its view in the window and by its text form in the menu.
    struct ViewRow {
        QWidget *view;
        QList<QAction *> textForm;
    };

    /// Mirrors `menu`, which must outlive the window; the views are shown in place of their text
    /// forms, and given back, unparented, when the window goes.
    MenuWindow(QMenu *menu, const QList<ViewRow> &views);
    ~MenuWindow() override;

    /// Shows or hides the line that says this desktop shows no status icons, and how to get them.
    void setNoTrayHintShown(bool shown);

private:
    void addActionRow(QAction *action);

    QList<QPointer<QWidget>> m_views;
    QLabel *m_noTrayHint = nullptr;
};

} // namespace Veltrane
