#pragma once

#include "TrayState.h"

#include <QList>
#include <QWidget>

class QAction;

namespace Veltrane {

class ElidedLabel;
class LogoView;
class StateDotView;

/// The texts of the device row, worked out in one place for both of its forms.
struct MenuDeviceText {
    QString name;          ///< the DNS name, or "This device" when it is empty
    QString detail;        ///< the address, then " · " and the owner when there is one
    QString nameToolTip;   ///< the DNS name itself, even when empty
    QString detailToolTip; ///< the detail text

    static MenuDeviceText from(const QString &fqdn, const QString &ip, const QString &owner);
};

/// The first row of the status menu: the logo, the title "Veltrane", and under the title a state
/// dot and the state's text. 280 × 52 points.
///
/// The row exists in two forms kept in step: this widget, and `textForm()`, plain disabled actions
/// with an icon and a text, for menus that the platform or a tray host draws, which cannot show
/// widgets. The text form carries each label's text as the widget draws it, shortened in the
/// middle to the label's width, with "&" escaped so that it shows as typed.
class MenuHeaderView : public QWidget
{
    Q_OBJECT

public:
    explicit MenuHeaderView(QWidget *parent = nullptr);

    /// Shows a state's dot colour and text. Until the first call the dot has no colour and the
    /// text is empty.
    void setPresentation(const HeaderPresentation &presentation);

    /// The title with the logo, then the state text with the dot.
    QList<QAction *> textForm() const { return {m_titleAction, m_statusAction}; }

private:
    LogoView *m_logoView;
    ElidedLabel *m_titleLabel;
    StateDotView *m_dotView;
    ElidedLabel *m_statusLabel;
    QAction *m_titleAction;
    QAction *m_statusAction;
};

/// The status menu's row about this computer while connected: its DNS name, and under it its
/// address and owner. 280 × 38 points. Two forms kept in step, as for `MenuHeaderView`.
class MenuDeviceView : public QWidget
{
    Q_OBJECT

public:
    explicit MenuDeviceView(QWidget *parent = nullptr);

    /// Shows this device; an absent value is passed as the empty text.
    void setDevice(const QString &fqdn, const QString &ip, const QString &owner);

    /// The name line, then the detail line.
    QList<QAction *> textForm() const { return {m_nameAction, m_detailAction}; }

    /// The longest text a text-form row shows whole; a longer one is shortened in the middle.
    /// DNS names of up to 64 characters are common; a row much wider makes an unwieldy menu.
    static constexpr qsizetype textRowCharacters = 64;

private:
    ElidedLabel *m_nameLabel;
    ElidedLabel *m_detailLabel;
    QAction *m_nameAction;
    QAction *m_detailAction;
};

} // namespace Veltrane
