#include "ElidedLabel.h"

#include "Appearance.h"

#include <QAccessibleWidget>
#include <QHelpEvent>
#include <QPainter>
#include <QTextDocument>
#include <QToolTip>

namespace Veltrane {

namespace {

// To a screen reader the label is static text, and its name is the whole text, not the shortened
// one it draws.
class AccessibleElidedLabel : public QAccessibleWidget
{
public:
    explicit AccessibleElidedLabel(ElidedLabel *label)
        : QAccessibleWidget(label, QAccessible::StaticText)
    {
    }

    QString text(QAccessible::Text kind) const override
    {
        if (kind == QAccessible::Name)
            return static_cast<const ElidedLabel *>(widget())->text();
        return QAccessibleWidget::text(kind);
    }
};

QAccessibleInterface *accessibleElidedLabel(const QString &className, QObject *object)
{
    if (className == QLatin1StringView(ElidedLabel::staticMetaObject.className()))
        return new AccessibleElidedLabel(static_cast<ElidedLabel *>(object));
    return nullptr;
}

} // namespace

ElidedLabel::ElidedLabel(Tone tone, QWidget *parent)
    : QWidget(parent)
    , m_tone(tone)
{
    static const bool accessible = (QAccessible::installFactory(accessibleElidedLabel), true);
    Q_UNUSED(accessible);
}

void ElidedLabel::setText(const QString &text)
{
    if (text == m_text)
        return;
    m_text = text;
    update();
    QAccessibleEvent changed(this, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&changed);
}

QString ElidedLabel::displayedText() const
{
    return fontMetrics().elidedText(m_text, Qt::ElideMiddle, width());
}

QColor ElidedLabel::textColor() const
{
    return m_tone == Tone::Primary ? Appearance::labelColor(palette()) : Appearance::secondaryLabelColor(palette());
}

bool ElidedLabel::event(QEvent *event)
{
    if (event->type() == QEvent::ToolTip) {
        showPlainToolTip(static_cast<QHelpEvent *>(event)->globalPos(), toolTip(), this);
        return true;
    }
    return QWidget::event(event);
}

void ElidedLabel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setPen(textColor());
    painter.drawText(rect(), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, displayedText());
}

void showPlainToolTip(const QPoint &globalPosition, const QString &text, QWidget *widget)
{
    if (text.isEmpty()) {
        QToolTip::hideText();
        return;
    }
    // The tip wears the colours of what it describes: dark over the peers window, whatever the
    // desktop's theme gives tooltips. Set one by one, as a widget's inherited palette would not
    // override the tip's own.
    QPalette colours = QToolTip::palette();
    for (const QPalette::ColorRole role : {QPalette::ToolTipBase, QPalette::ToolTipText})
        colours.setColor(role, widget->palette().color(role));
    QToolTip::setPalette(colours);
    QToolTip::showText(globalPosition, Qt::convertFromPlainText(text, Qt::WhiteSpaceNoWrap), widget);
}

} // namespace Veltrane
