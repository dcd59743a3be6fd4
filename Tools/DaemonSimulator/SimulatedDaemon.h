#pragma once

#include "DaemonProtocol.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>

#include <chrono>
#include <mutex>

namespace Veltrane::Simulator {

/// The daemon's behaviour without its network: a state machine for "start", "stop",
/// "login_via_link" and "logout", a generated set of peers, and the reply to each request line.
/// Thread-safe: the server answers connections on threads of their own.
class SimulatedDaemon
{
public:
    using Clock = std::chrono::steady_clock;

    enum class Session {
        SignedOut, ///< "awaiting_login", no link issued
        LinkIssued, ///< "awaiting_login"; becomes Active after the sign-in delay or approveLogin()
        Active,
    };

    struct Options {
        int peerCount = 24;
        quint32 seed = 1;
        bool wantRunning = true;
        Session session = Session::Active;
        /// Seconds from issuing a sign-in link until the browser "completes" it; negative waits
        /// for approveLogin().
        double loginDelaySeconds = 4;
        /// Seconds between "start" (or a sign-in) and the network being up; meanwhile the
        /// membership state reads "nodemap_stream_opening".
        double connectDelaySeconds = 1.5;
        bool noNetwork = false;
        bool isTagged = false;
        /// Each status reply moves every round-trip time, as a live network's do.
        bool driftingRoundTrips = false;
    };

    explicit SimulatedDaemon(const Options &options);

    /// The reply line, without its line feed, to one request line.
    QByteArray reply(const QByteArray &requestLine);

    /// Completes an issued sign-in link now, as if the user had finished in the browser.
    void approveLogin();

private:
    QJsonObject handle(const QString &command);
    QJsonObject statusObject();
    QString membershipState();
    void advanceClock();
    void driftRoundTrips();

    mutable std::mutex m_mutex;
    Options m_options;
    Session m_session;
    bool m_wantRunning;
    Clock::time_point m_loginCompletesAt;
    Clock::time_point m_connectedAt;
    int m_loginCount = 0;
    int m_statusCount = 0;
    QJsonArray m_peers; // encoded once: the status of a large network is mostly its peers
};

/// A reply record as the daemon writes it: present fields only, keys as the protocol names them.
template <class Record>
QJsonObject toJson(const Record &record);

} // namespace Veltrane::Simulator
