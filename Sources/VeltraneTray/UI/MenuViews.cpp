#include "MenuViews.h"

#include "Appearance.h"
#include "ElidedLabel.h"
#include "IconFactory.h"

#include <QAction>
#include <QPainter>
#include <QPainterPath>

#include <optional>

using namespace Qt::StringLiterals;

namespace Veltrane {

/// The logo, scaled to fit its square with its proportions kept, drawn at the screen's density.
class LogoView : public QWidget
{
public:
    using QWidget::QWidget;

protected:
    void paintEvent(QPaintEvent *) override
    {
        const Logo &logo = IconFactory::logo();
        QRectF target(QPointF(), logo.size().scaled(size(), Qt::KeepAspectRatio));
        target.moveCenter(QRectF(rect()).center());
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        logo.paint(painter, target);
    }
};

/// A round dot filling its square; it shows nothing until it is given a colour.
class StateDotView : public QWidget
{
public:
    using QWidget::QWidget;

    void setColor(const QColor &color)
    {
        m_color = color;
        update();
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        if (!m_color)
            return;
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        QPainterPath circle;
        circle.addEllipse(QRectF(rect()));
        painter.fillPath(circle, *m_color);
    }

private:
    std::optional<QColor> m_color;
};

namespace {

// Frames are given from the bottom-left corner of the row; Qt measures from the top left.
QRect fromBottomLeft(int rowHeight, int x, int y, int width, int height)
{
    return {x, rowHeight - y - height, width, height};
}

ElidedLabel *makeLabel(QWidget *row, const char *name, ElidedLabel::Tone tone, const QFont &font, const QRect &frame)
{
    auto *label = new ElidedLabel(tone, row);
    label->setObjectName(QLatin1StringView(name));
    label->setFont(font);
    label->setGeometry(frame);
    return label;
}

// A label's text as its widget draws it, for an action that must show it as typed: Qt reads "&" in
// an action's text as the mark of a keyboard shortcut.
QString actionText(const ElidedLabel *label)
{
    return label->displayedText().replace(u'&', u"&&"_s);
}

// A text row's text: whole up to textRowCharacters, else shortened in the middle, keeping its
// beginning and its end; "&" doubled, as a QAction reads it.
QString textRowOf(const QString &text)
{
    QString row = text;
    if (text.size() > MenuDeviceView::textRowCharacters) {
        const qsizetype kept = MenuDeviceView::textRowCharacters - 1;
        qsizetype head = kept / 2, tail = kept - head;
        // Never half a surrogate pair on either side of the cut.
        if (text[head - 1].isHighSurrogate())
            --head;
        if (text[text.size() - tail].isLowSurrogate())
            --tail;
        row = text.left(head) + u'\u2026' + text.right(tail);
    }
    return row.replace(u'&', u"&&"_s);
}

QAction *makeTextRow(QObject *owner, const QIcon &icon = {})
{
    auto *action = new QAction(icon, QString(), owner);
    action->setEnabled(false);
    return action;
}

} // namespace

MenuDeviceText MenuDeviceText::from(const QString &fqdn, const QString &ip, const QString &owner)
{
    MenuDeviceText text;
    text.name = fqdn.isEmpty() ? u"This device"_s : fqdn;
    text.detail = owner.isEmpty() ? ip : ip + u" \u00b7 "_s + owner;
    text.nameToolTip = fqdn;
    text.detailToolTip = text.detail;
    return text;
}

MenuHeaderView::MenuHeaderView(QWidget *parent)
    : QWidget(parent)
    , m_logoView(new LogoView(this))
    , m_titleLabel(makeLabel(this, "titleLabel", ElidedLabel::Tone::Primary, Appearance::systemFont(13, QFont::DemiBold),
                             fromBottomLeft(52, 52, 27, 210, 17)))
    , m_dotView(new StateDotView(this))
    , m_statusLabel(makeLabel(this, "statusLabel", ElidedLabel::Tone::Secondary, Appearance::systemFont(11, QFont::Normal),
                              fromBottomLeft(52, 68, 9, 200, 15)))
    , m_titleAction(makeTextRow(this, IconFactory::logoIcon()))
    , m_statusAction(makeTextRow(this))
{
    setFixedSize(280, 52);
    m_logoView->setObjectName(u"logoView"_s);
    m_logoView->setGeometry(fromBottomLeft(52, 14, 12, 28, 28));
    m_dotView->setObjectName(u"dotView"_s);
    m_dotView->setGeometry(fromBottomLeft(52, 54, 13, 8, 8));

    m_titleLabel->setText(u"Veltrane"_s);
    m_titleAction->setText(actionText(m_titleLabel));
}

// The text form shows no dot: a menu draws a disabled row's icon greyed or faded, and grey is the
// colour of another state. The state text and the status icon say it.
void MenuHeaderView::setPresentation(const HeaderPresentation &presentation)
{
    m_dotView->setColor(Appearance::color(presentation.color));
    m_statusLabel->setText(presentation.text);
    m_statusAction->setText(actionText(m_statusLabel));
}

MenuDeviceView::MenuDeviceView(QWidget *parent)
    : QWidget(parent)
    , m_nameLabel(makeLabel(this, "nameLabel", ElidedLabel::Tone::Primary, Appearance::systemFont(12, QFont::Medium),
                            fromBottomLeft(38, 14, 19, 252, 16)))
    , m_detailLabel(makeLabel(this, "detailLabel", ElidedLabel::Tone::Secondary, Appearance::systemFont(11, QFont::Normal),
                              fromBottomLeft(38, 14, 3, 252, 15)))
    , m_nameAction(makeTextRow(this))
    , m_detailAction(makeTextRow(this))
{
    setFixedSize(280, 38);
}

void MenuDeviceView::setDevice(const QString &fqdn, const QString &ip, const QString &owner)
{
    const MenuDeviceText text = MenuDeviceText::from(fqdn, ip, owner);
    m_nameLabel->setText(text.name);
    m_detailLabel->setText(text.detail);
    m_nameLabel->setToolTip(text.nameToolTip);
    m_detailLabel->setToolTip(text.detailToolTip);
    // Both lines whole, for a native menu that shows the row's tooltip but not its labels'.
    setToolTip(text.name + u'\n' + text.detail);

    // A menu drawn from the text form sizes itself and has no tooltips: the rows carry the whole
    // texts, shortened only beyond a sensible menu width.
    m_nameAction->setText(textRowOf(text.name));
    m_detailAction->setText(textRowOf(text.detail));
}

} // namespace Veltrane
