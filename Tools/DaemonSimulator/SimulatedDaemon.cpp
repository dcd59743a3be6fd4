#include "SimulatedDaemon.h"

#include "PeerGenerator.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace Veltrane::Simulator {

namespace {

const QString networkId = u"net-7f3a9c21"_s;
const QString networkName = u"Acme Engineering"_s;
const QString userEmail = u"maria.lopez@acme.example"_s;

QJsonValue toJsonValue(const QString &text) { return text; }
QJsonValue toJsonValue(bool flag) { return flag; }
QJsonValue toJsonValue(double number) { return number; }

template <class Record>
QJsonValue toJsonValue(const QList<Record> &records)
{
    QJsonArray array;
    for (const Record &record : records)
        array.append(toJson(record));
    return array;
}

QJsonValue toJsonValue(const ConnectableDeviceList &devices) { return toJsonValue(devices.devices()); }

template <class Record>
QJsonValue toJsonValue(const Record &record)
{
    return toJson(record);
}

SimulatedDaemon::Clock::duration delayOf(double seconds)
{
    return std::chrono::duration_cast<SimulatedDaemon::Clock::duration>(
        std::chrono::duration<double>(seconds));
}

// A real daemon says more about each peer than the tray reads; clients must skip it.
QJsonArray withFieldsTheTrayIgnores(QJsonArray peers)
{
    static const QStringList systems{u"macOS 15.1"_s, u"Windows 11 24H2"_s, u"Ubuntu 24.04"_s,
                                     u"iOS 18.1"_s, u"Android 15"_s, u"Debian 12"_s};
    for (qsizetype index = 0; index < peers.size(); ++index) {
        QJsonObject peer = peers[index].toObject();
        peer.insert(u"os"_s, systems[index % systems.size()]);
        peer.insert(u"lastSeen"_s, u"2026-11-%1T%2:%3:07Z"_s.arg(1 + index % 28, 2, 10, QChar(u'0'))
                                        .arg(index % 24, 2, 10, QChar(u'0'))
                                        .arg(index % 60, 2, 10, QChar(u'0')));
        peers.replace(index, peer);
    }
    return peers;
}

QJsonObject refusal(const QString &code, const QString &error)
{
    return {{u"success"_s, false}, {u"code"_s, code}, {u"error"_s, error}};
}

QJsonObject success(const QString &code, const QString &message = {})
{
    QJsonObject reply{{u"success"_s, true}, {u"code"_s, code}};
    if (!message.isEmpty())
        reply.insert(u"message"_s, message);
    return reply;
}

} // namespace

template <class Record>
QJsonObject toJson(const Record &record)
{
    QJsonObject object;
    forEachField(record, [&](std::string_view key, const auto &field) {
        if (field)
            object.insert(QLatin1StringView(key.data(), qsizetype(key.size())), toJsonValue(*field));
    });
    return object;
}

template QJsonObject toJson(const DaemonControlResponse &);
template QJsonObject toJson(const DaemonStatusSnapshot &);
template QJsonObject toJson(const ConnectableDeviceSnapshot &);

SimulatedDaemon::SimulatedDaemon(const Options &options)
    : m_options(options)
    , m_session(options.session)
    , m_wantRunning(options.wantRunning)
    , m_connectedAt(Clock::now())
    , m_peers(withFieldsTheTrayIgnores(
          toJsonValue(generatePeers(options.peerCount, options.seed, networkId, networkName)).toArray()))
{
}

QByteArray SimulatedDaemon::reply(const QByteArray &requestLine)
{
    std::lock_guard lock(m_mutex);
    advanceClock();

    QJsonParseError parseError;
    const QJsonDocument request = QJsonDocument::fromJson(requestLine, &parseError);
    QJsonObject answer;
    if (!request.isObject() || !request[u"command"_s].isString())
        answer = refusal(u"bad_request"_s, u"The request is not a command object."_s);
    else
        answer = handle(request[u"command"_s].toString());
    return QJsonDocument(answer).toJson(QJsonDocument::Compact);
}

QJsonObject SimulatedDaemon::handle(const QString &command)
{
    const auto now = Clock::now();
    if (command == u"get_status")
        return QJsonObject{{u"success"_s, true}, {u"code"_s, u"ok"_s}, {u"status"_s, statusObject()}};
    if (command == u"start") {
        if (!m_wantRunning)
            m_connectedAt = now + delayOf(m_options.connectDelaySeconds);
        m_wantRunning = true;
        return success(u"started"_s);
    }
    if (command == u"stop") {
        m_wantRunning = false;
        return success(u"stopped"_s);
    }
    if (command == u"login_via_link") {
        if (m_session == Session::Active)
            return refusal(u"already_logged_in"_s, u"Already signed in as %1."_s.arg(userEmail));
        m_session = Session::LinkIssued;
        m_loginCompletesAt = m_options.loginDelaySeconds < 0
            ? Clock::time_point::max()
            : now + delayOf(m_options.loginDelaySeconds);
        const QString code = u"VLT-%1"_s.arg(4096 + ++m_loginCount * 7919, 4, 16).toUpper();
        QJsonObject reply = success(u"login_started"_s, u"Open the link to sign in."_s);
        reply.insert(u"login"_s, QJsonObject{
            {u"loginUrl"_s, u"https://login.veltrane.example/a/%1"_s.arg(code)},
            {u"loginCode"_s, code},
        });
        return reply;
    }
    if (command == u"logout") {
        if (m_session != Session::Active)
            return refusal(u"not_logged_in"_s, u"Not signed in."_s);
        m_session = Session::SignedOut;
        return success(u"logged_out"_s, u"Signed out of %1."_s.arg(userEmail));
    }
    return refusal(u"unknown_command"_s, u"Unknown command \u201c%1\u201d."_s.arg(command));
}

void SimulatedDaemon::advanceClock()
{
    const auto now = Clock::now();
    if (m_session == Session::LinkIssued && now >= m_loginCompletesAt) {
        m_session = Session::Active;
        m_connectedAt = now + delayOf(m_options.connectDelaySeconds);
    }
}

void SimulatedDaemon::approveLogin()
{
    std::lock_guard lock(m_mutex);
    if (m_session == Session::LinkIssued)
        m_loginCompletesAt = Clock::now();
    advanceClock();
}

QString SimulatedDaemon::membershipState()
{
    if (m_session != Session::Active)
        return u"awaiting_login"_s;
    if (Clock::now() < m_connectedAt)
        return u"nodemap_stream_opening"_s;
    return m_options.noNetwork ? u"no_active_memberships"_s : u"membership_active"_s;
}

QJsonObject SimulatedDaemon::statusObject()
{
    DaemonStatusSnapshot status;
    status.clientId = u"c5e1d2f3a4b5c6d7"_s;
    status.wantRunning = m_wantRunning;
    status.membershipState = membershipState();
    if (m_session != Session::Active)
        return toJson(status);

    const bool up = m_wantRunning && status.membershipState == u"membership_active";
    status.networkId = networkId;
    status.userEmail = userEmail;
    status.isTagged = m_options.isTagged;
    if (m_options.isTagged)
        status.ownerTag = u"tag:build-fleet"_s;
    status.isDataPlaneActive = up;
    if (!up)
        return toJson(status);
    status.assignedIp = u"100.64.0.1"_s;
    status.selfFqdn = u"maria-workstation.acme-engineering.veltrane.net"_s;
    if (m_options.driftingRoundTrips)
        driftRoundTrips();
    QJsonObject object = toJson(status);
    object.insert(u"connectableDevices"_s, m_peers);
    return object;
}

// Half a millisecond up, again, then back down: no reply is like the one before or the one
// before that, and the times stay where the generator put them.
void SimulatedDaemon::driftRoundTrips()
{
    const double step = ++m_statusCount % 3 ? 0.5 : -1.0;
    const QString pathKey = u"connectionStatus"_s, timeKey = u"roundTripTimeMilliseconds"_s;
    for (qsizetype index = 0; index < m_peers.size(); ++index) {
        QJsonObject peer = m_peers[index].toObject();
        QJsonObject path = peer[pathKey].toObject();
        if (!path[timeKey].isDouble())
            continue;
        path.insert(timeKey, path[timeKey].toDouble() + step);
        peer.insert(pathKey, path);
        m_peers.replace(index, peer);
    }
}

} // namespace Veltrane::Simulator
