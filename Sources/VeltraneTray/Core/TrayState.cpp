#include "TrayState.h"

#include <QHash>

using namespace Qt::StringLiterals;

namespace Veltrane {

namespace {

constexpr SrgbColor red{239, 68, 68};
constexpr SrgbColor slate{100, 116, 139};
constexpr SrgbColor grey{148, 163, 184};
constexpr SrgbColor amber{234, 179, 8};
constexpr SrgbColor blue{59, 130, 246};
constexpr SrgbColor green{34, 197, 94};
constexpr SrgbColor orange{249, 115, 22};

struct Presentation {
    SrgbColor dot;
    SrgbColor header;
    const char16_t *headerText;
};

// Indexed by TrayState; the two colour columns are separate tables that happen to share a row.
constexpr std::array<Presentation, allTrayStates.size()> presentations{{
    {red, grey, u"Disconnected"},
    {slate, grey, u"Disconnected"},
    {grey, amber, u"Connected, needs auth"},
    {amber, amber, u"Connecting\u2026"},
    {blue, amber, u"Connected, no network"},
    {green, green, u"Connected"},
    {orange, amber, u"Error"},
}};

const Presentation &presentationOf(TrayState state) { return presentations[size_t(state)]; }

} // namespace

TrayState trayStateFrom(const std::optional<DaemonStatusSnapshot> &snapshot)
{
    if (!snapshot)
        return TrayState::DaemonUnreachable;
    if (snapshot->wantRunning == false)
        return TrayState::Stopped;

    static const QHash<QString, TrayState> byMembership{
        {u"membership_active"_s, TrayState::Connected},
        {u"nodemap_stream_open"_s, TrayState::Connected},
        {u"no_active_memberships"_s, TrayState::NoNetwork},
        {u"awaiting_login"_s, TrayState::LoggedOut},
        {u"session_revoked"_s, TrayState::LoggedOut},
        {u"invalid_snapshot"_s, TrayState::Error},
    };
    return byMembership.value(snapshot->membershipState.value_or(QString()), TrayState::Connecting);
}

SrgbColor dotColor(TrayState state) { return presentationOf(state).dot; }

HeaderPresentation headerPresentation(TrayState state)
{
    const Presentation &row = presentationOf(state);
    return {row.header, QString::fromUtf16(row.headerText)};
}

} // namespace Veltrane
