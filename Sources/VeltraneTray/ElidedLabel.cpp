#include "ElidedLabel.h"

#include "Appearance.h"

#include <QHelpEvent>
#include <QPainter>
#include <QTextDocument>
#include <QToolTip>

namespace Veltrane {

ElidedLabel::ElidedLabel(Tone tone, QWidget *parent)
    : QWidget(parent)
    , m_tone(tone)
{
}

void ElidedLabel::setText(const QString &text)
{
    if (text == m_text)
        return;
    m_text = text;
    update();
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
    QToolTip::showText(globalPosition, Qt::convertFromPlainText(text, Qt::WhiteSpaceNoWrap), widget);
}

} // namespace Veltrane
