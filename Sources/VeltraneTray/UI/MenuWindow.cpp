#include "MenuWindow.h"

#include "Appearance.h"

#include <QAction>
#include <QFrame>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QShortcut>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace Veltrane {

namespace {

constexpr int windowWidth = 280; // the header row's width

// A row follows its action's visibility; a view row follows its text form's first line.
void followVisibility(QWidget *row, QAction *action)
{
    row->setVisible(action->isVisible());
    QObject::connect(action, &QAction::changed, row, [row, action] { row->setVisible(action->isVisible()); });
}

} // namespace

MenuWindow::MenuWindow(QMenu *menu, const QList<ViewRow> &views)
{
    setWindowTitle(u"Veltrane"_s);
    setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowMinimizeButtonHint
                   | Qt::WindowCloseButtonHint);
    // Escape closes it, as it closes a menu.
    connect(new QShortcut(QKeySequence::Cancel, this), &QShortcut::activated, this, &QWidget::close);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 6, 0, 10);
    layout->setSpacing(0);
    layout->setSizeConstraint(QLayout::SetFixedSize); // sized by the rows shown, never by the user

    QList<QAction *> shownByView;
    for (QAction *action : menu->actions()) {
        if (shownByView.contains(action))
            continue;
        const auto view = std::find_if(views.cbegin(), views.cend(),
                                       [action](const ViewRow &row) { return row.textForm.contains(action); });
        if (view != views.cend()) {
            shownByView += view->textForm;
            m_views.append(view->view);
            layout->addWidget(view->view);
            followVisibility(view->view, action);
        } else if (action->isSeparator()) {
            auto *rule = new QFrame;
            rule->setFrameShape(QFrame::HLine);
            rule->setFrameShadow(QFrame::Sunken);
            layout->addSpacing(4);
            layout->addWidget(rule);
            layout->addSpacing(4);
        } else {
            addActionRow(action);
        }
    }
    // Ctrl+Q and the like work in the window as in the menu.
    addActions(menu->actions());

    // Made last, so a screen reader reads it after the rows.
    m_noTrayHint = new QLabel(this);
    m_noTrayHint->setObjectName(u"noTrayHint"_s);
    m_noTrayHint->setTextFormat(Qt::PlainText);
    m_noTrayHint->setWordWrap(true);
    m_noTrayHint->setFixedWidth(windowWidth - 28);
    m_noTrayHint->setFont(Appearance::systemFont(11));
    m_noTrayHint->setText(u"This desktop shows no status icons. On GNOME, turn on the AppIndicator extension "
                          "to see Veltrane in the top bar."_s);
    m_noTrayHint->setForegroundRole(QPalette::PlaceholderText);
    layout->addSpacing(6);
    layout->addWidget(m_noTrayHint, 0, Qt::AlignHCenter);
    m_noTrayHint->hide();
}

// The views belong to their owner, not to the window.
MenuWindow::~MenuWindow()
{
    for (const QPointer<QWidget> &view : std::as_const(m_views)) {
        if (view)
            view->setParent(nullptr);
    }
}

void MenuWindow::setNoTrayHintShown(bool shown) { m_noTrayHint->setVisible(shown); }

// A flat button, as wide as the window, that reads and acts as the row does in the menu.
void MenuWindow::addActionRow(QAction *action)
{
    auto *row = new QPushButton(this);
    row->setFlat(true);
    row->setMinimumWidth(windowWidth);
    row->setStyleSheet(u"QPushButton { text-align: left; padding: 5px 14px; }"_s);
    const auto update = [row, action] {
        row->setText(action->text());
        row->setEnabled(action->isEnabled());
        row->setToolTip(action->shortcut().toString(QKeySequence::NativeText));
    };
    update();
    connect(action, &QAction::changed, row, update);
    connect(row, &QPushButton::clicked, action, &QAction::trigger);
    followVisibility(row, action);
    layout()->addWidget(row);
}

} // namespace Veltrane
