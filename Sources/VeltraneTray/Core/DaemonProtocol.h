#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <concepts>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

namespace Veltrane {

// The records of the daemon's control protocol. Every reply field is optional: a missing key and a
// JSON null both leave the field absent, and each user of a field decides what absence means.

/// The one request record: a command such as "get_status".
struct DaemonControlRequest {
    QString command;
};

/// The path to one peer, as the daemon reports it.
struct NodeConnectionStatusSnapshot {
    std::optional<QString> state;
    std::optional<QString> endpoint;
    std::optional<double> roundTripTimeMilliseconds;

    bool operator==(const NodeConnectionStatusSnapshot &) const = default;
};

/// One peer device this device can reach.
struct ConnectableDeviceSnapshot {
    std::optional<QString> networkId;
    std::optional<QString> networkName;
    std::optional<QString> clientId;
    std::optional<QString> computerName;
    std::optional<QString> hostName;
    std::optional<QString> fqdn;
    std::optional<QString> assignedIp;
    std::optional<bool> online;
    std::optional<NodeConnectionStatusSnapshot> connectionStatus;

    /// The name to show for the device: a non-empty computerName, else a non-empty hostName, else
    /// fqdn as it stands (even when empty), else the empty string. Never trimmed or case-folded.
    const QString &displayName() const;

    bool operator==(const ConnectableDeviceSnapshot &) const = default;
};

/// The peer devices of one status, in the daemon's order.
///
/// Making ten thousand records is most of the work of a large reply, and nothing shows them while
/// the peers window is hidden. So a list may instead keep the reply it came in, checked in full
/// when it arrived, and make the records only when they are asked for.
class ConnectableDeviceList
{
public:
    ConnectableDeviceList() = default;
    ConnectableDeviceList(QList<ConnectableDeviceSnapshot> devices) : m_devices(std::move(devices)) {}

    /// The devices of `reply`, a reply line that DaemonProtocol::decodeResponse() accepted.
    static ConnectableDeviceList ofCheckedReply(const QByteArray &reply);

    /// The records, made from the reply on every call when the list keeps a reply.
    QList<ConnectableDeviceSnapshot> devices() const;
    bool keepsReply() const { return !m_reply.isNull(); }

    bool operator==(const ConnectableDeviceList &other) const { return devices() == other.devices(); }

private:
    QList<ConnectableDeviceSnapshot> m_devices;
    QByteArray m_reply;
};

/// The daemon's state at the time of a reply.
struct DaemonStatusSnapshot {
    std::optional<QString> clientId;
    std::optional<QString> networkId;
    std::optional<QString> membershipState;
    std::optional<QString> assignedIp;
    std::optional<bool> isDataPlaneActive;
    std::optional<ConnectableDeviceList> connectableDevices;
    std::optional<bool> wantRunning;
    std::optional<QString> userEmail;
    std::optional<QString> selfFqdn;
    std::optional<bool> isTagged;
    std::optional<QString> ownerTag;

    bool operator==(const DaemonStatusSnapshot &) const = default;
};

/// Sign-in details, present in a reply to "login_via_link".
struct DaemonLoginSnapshot {
    std::optional<QString> loginUrl;
    std::optional<QString> loginCode;
    std::optional<QString> userEmail;

    bool operator==(const DaemonLoginSnapshot &) const = default;
};

/// The top-level reply. Only `success == true` counts as success; absent counts as failure.
struct DaemonControlResponse {
    std::optional<bool> success;
    std::optional<QString> code;
    std::optional<QString> error;
    std::optional<QString> message;
    std::optional<DaemonStatusSnapshot> status;
    std::optional<DaemonLoginSnapshot> login;

    bool succeeded() const { return success.value_or(false); }

    bool operator==(const DaemonControlResponse &) const = default;
};

/// Why a reply did not decode, in words a person can read.
struct DecodeFailure {
    QString description;
};

/// The JSON keys of each reply record, in one place: calls `visit(key, member)` for every field.
/// The decoder reads through these tables, and so does anything that writes replies.
template <class R, class V>
    requires std::same_as<std::remove_const_t<R>, NodeConnectionStatusSnapshot>
void forEachField(R &r, V &&visit)
{
    visit("state", r.state);
    visit("endpoint", r.endpoint);
    visit("roundTripTimeMilliseconds", r.roundTripTimeMilliseconds);
}

template <class R, class V>
    requires std::same_as<std::remove_const_t<R>, ConnectableDeviceSnapshot>
void forEachField(R &r, V &&visit)
{
    visit("networkId", r.networkId);
    visit("networkName", r.networkName);
    visit("clientId", r.clientId);
    visit("computerName", r.computerName);
    visit("hostName", r.hostName);
    visit("fqdn", r.fqdn);
    visit("assignedIp", r.assignedIp);
    visit("online", r.online);
    visit("connectionStatus", r.connectionStatus);
}

template <class R, class V>
    requires std::same_as<std::remove_const_t<R>, DaemonStatusSnapshot>
void forEachField(R &r, V &&visit)
{
    visit("clientId", r.clientId);
    visit("networkId", r.networkId);
    visit("membershipState", r.membershipState);
    visit("assignedIp", r.assignedIp);
    visit("isDataPlaneActive", r.isDataPlaneActive);
    visit("connectableDevices", r.connectableDevices);
    visit("wantRunning", r.wantRunning);
    visit("userEmail", r.userEmail);
    visit("selfFqdn", r.selfFqdn);
    visit("isTagged", r.isTagged);
    visit("ownerTag", r.ownerTag);
}

template <class R, class V>
    requires std::same_as<std::remove_const_t<R>, DaemonLoginSnapshot>
void forEachField(R &r, V &&visit)
{
    visit("loginUrl", r.loginUrl);
    visit("loginCode", r.loginCode);
    visit("userEmail", r.userEmail);
}

template <class R, class V>
    requires std::same_as<std::remove_const_t<R>, DaemonControlResponse>
void forEachField(R &r, V &&visit)
{
    visit("success", r.success);
    visit("code", r.code);
    visit("error", r.error);
    visit("message", r.message);
    visit("status", r.status);
    visit("login", r.login);
}

namespace DaemonProtocol {

/// The bytes of a request on the wire: the compact JSON object {"command":…} and one line feed.
QByteArray encodeRequest(const DaemonControlRequest &request);

/// When the records of the peer devices are made: at once, or when the list is asked for them
/// (the list then keeps `line`). Either way the reply is checked in full, and decodes alike.
enum class DeviceRecords { Now, WhenAsked };

/// Decodes one reply line strictly: it must be a JSON object; a value of the wrong JSON type under
/// any known key, at any depth, rejects the whole reply, and so does a known key that stands twice
/// in one object; unknown keys are ignored. Never returns a partly filled record.
///
/// The decoder reads `line.size()` bytes but may look at up to `paddingBytes` beyond them when the
/// array's capacity allows, which saves a copy of large replies.
std::variant<DaemonControlResponse, DecodeFailure> decodeResponse(const QByteArray &line,
                                                                  DeviceRecords devices = DeviceRecords::Now);

/// Spare capacity a caller may reserve behind a reply so that decodeResponse() needs no copy.
extern const qsizetype paddingBytes;

} // namespace DaemonProtocol
} // namespace Veltrane
