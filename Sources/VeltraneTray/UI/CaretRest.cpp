#include "CaretRest.h"

#include <QEvent>
#include <QGuiApplication>
#include <QStyleHints>
#include <QWidget>

namespace Veltrane {

CaretRest::CaretRest(QWidget *field, std::chrono::milliseconds after)
    : QObject(field)
{
    m_rest.setSingleShot(true);
    m_rest.setInterval(after);
    // A flash time of zero shows the caret steadily.
    connect(&m_rest, &QTimer::timeout, this, [] { QGuiApplication::styleHints()->setCursorFlashTime(0); });
    field->installEventFilter(this);
    if (field->hasFocus())
        wake();
}

bool CaretRest::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::FocusIn:
    case QEvent::KeyPress:
    case QEvent::InputMethod:
    case QEvent::MouseButtonPress:
        wake();
        break;
    case QEvent::FocusOut:
        m_rest.stop(); // an unfocused field shows no caret
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

void CaretRest::wake()
{
    // A negative flash time is the desktop's own again.
    QGuiApplication::styleHints()->setCursorFlashTime(-1);
    m_rest.start();
}

} // namespace Veltrane
