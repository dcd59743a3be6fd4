#pragma once

#include "DaemonProtocol.h"

#include <QString>

#include <array>
#include <optional>

namespace Veltrane {

/// What the tray shows, condensed from the daemon's latest status. Holds no data of its own.
enum class TrayState {
    DaemonUnreachable, ///< no snapshot: unreachable, refused, or no status in the reply
    Stopped,           ///< the user does not want the connection up
    LoggedOut,         ///< waiting for a sign-in, or the session was revoked
    Connecting,        ///< any other membership state, including none
    NoNetwork,         ///< signed in, but in no active network
    Connected,         ///< membership active, or the node-map stream is open
    Error,             ///< the daemon reports its snapshot invalid
};

inline constexpr std::array allTrayStates = {
    TrayState::DaemonUnreachable, TrayState::Stopped,   TrayState::LoggedOut, TrayState::Connecting,
    TrayState::NoNetwork,         TrayState::Connected, TrayState::Error,
};

/// An opaque sRGB colour: each component is the integer out of 255, alpha is always 1.
struct SrgbColor {
    int red = 0;
    int green = 0;
    int blue = 0;

    double redF() const { return red / 255.0; }
    double greenF() const { return green / 255.0; }
    double blueF() const { return blue / 255.0; }
    static constexpr double alpha = 1.0;

    bool operator==(const SrgbColor &) const = default;
};

/// The state line at the top of the menu.
struct HeaderPresentation {
    SrgbColor color;
    QString text;

    bool operator==(const HeaderPresentation &) const = default;
};

/// Derives the state from a status poll's result. Only `wantRunning` (false outranks everything)
/// and `membershipState` (compared exactly, case-sensitively) are read.
TrayState trayStateFrom(const std::optional<DaemonStatusSnapshot> &snapshot);

/// The colour of the dot on the status icon; every state has its own.
SrgbColor dotColor(TrayState state);

/// The colour and text of the menu's header line. Independent of dotColor().
HeaderPresentation headerPresentation(TrayState state);

} // namespace Veltrane
