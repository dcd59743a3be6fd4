#pragma once

#include <QWidget>

namespace Veltrane {

/// A one-line, plain-text label that shortens its text in the middle when it does not fit, as a
/// host name or an address is best shortened: its beginning and its end both stay readable.
/// Neither its text nor its tooltip is ever read as markup.
class ElidedLabel : public QWidget
{
    Q_OBJECT

public:
    enum class Tone { Primary, Secondary };

    explicit ElidedLabel(Tone tone, QWidget *parent = nullptr);

    QString text() const { return m_text; }
    void setText(const QString &text);

    /// The text as drawn at the current width, with "…" in the middle when it was shortened.
    QString displayedText() const;

    QColor textColor() const;

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    Tone m_tone;
    QString m_text;
};

/// Shows `text` as a tooltip exactly as typed. Qt guesses whether a tooltip is rich text, and a
/// daemon's name such as "<b>lab</b>" must not turn bold.
void showPlainToolTip(const QPoint &globalPosition, const QString &text, QWidget *widget);

} // namespace Veltrane
