#pragma once

#include <QObject>
#include <QTimer>

#include <chrono>

class QWidget;

namespace Veltrane {

/// Lets the caret of a text field stop blinking once the field has gone `after` without a key, a
/// click or the focus coming back, and blink again at the next one, as GNOME's own fields do. A
/// window left open all day then draws nothing between two statuses.
///
/// The blink rate is the application's, so the rest holds for every field; the peers window's
/// search field is the only one there is.
class CaretRest : public QObject
{
    Q_OBJECT

public:
    explicit CaretRest(QWidget *field, std::chrono::milliseconds after = std::chrono::seconds(10));

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void wake();

    QTimer m_rest;
};

} // namespace Veltrane
