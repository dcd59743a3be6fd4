#include "PeerGenerator.h"

#include <QSet>

#include <array>
#include <cmath>
#include <random>

using namespace Qt::StringLiterals;

namespace Veltrane::Simulator {

namespace {

constexpr std::array people{
    u"Maria",  u"Alex",  u"Priya", u"Chen",   u"Olga",   u"Tomás", u"Fatima", u"Kenji",  u"Lena",
    u"Noah",   u"Zoë",   u"Łukasz", u"Amara", u"Mateo",  u"Ingrid", u"Yusuf", u"Hana",   u"Diego",
    u"Sofía",  u"Emeka", u"Ava",   u"Björn",  u"Mei",    u"Ravi",  u"Chloé",  u"Ömer",   u"Nadia",
    u"Jonas",  u"Keiko", u"Pablo", u"Sam",    u"Wren",
};

struct DeviceKind {
    const char16_t *friendly; // as a computer name shows it
    const char16_t *host;     // as a host name spells it
};

constexpr std::array personalDevices{
    DeviceKind{u"MacBook Pro", u"macbook-pro"}, DeviceKind{u"MacBook Air", u"macbook-air"},
    DeviceKind{u"ThinkPad X1", u"thinkpad-x1"}, DeviceKind{u"XPS 13", u"xps-13"},
    DeviceKind{u"iPhone", u"iphone"},           DeviceKind{u"Pixel 8", u"pixel-8"},
    DeviceKind{u"iPad", u"ipad"},               DeviceKind{u"Desktop", u"desktop"},
    DeviceKind{u"Framework", u"framework"},     DeviceKind{u"Surface", u"surface"},
};

constexpr std::array serverRoles{
    u"build",  u"ci-runner", u"db",     u"web",     u"api",  u"cache",     u"gpu",
    u"k8s-node", u"backup",  u"nas",    u"vpn-gw",  u"monitoring", u"staging", u"edge",
};

constexpr std::array relays{u"relay-fra1", u"relay-iad2", u"relay-sin1", u"relay-syd1"};

QString hostSpelling(const QString &name)
{
    // Host names are ASCII: fold accents away and drop what a host name cannot hold.
    QString folded = name.normalized(QString::NormalizationForm_KD).toLower();
    QString host;
    for (const QChar c : folded) {
        if ((c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9'))
            host += c;
        else if (c == u'ł')
            host += u'l';
        else if (c == u' ' || c == u'-')
            host += u'-';
    }
    return host;
}

} // namespace

QList<ConnectableDeviceSnapshot> generatePeers(int count, quint32 seed, const QString &networkId,
                                               const QString &networkName)
{
    std::mt19937 random(seed);
    auto chance = [&](double p) { return std::bernoulli_distribution(p)(random); };
    auto pick = [&](const auto &pool) -> const auto & {
        return pool[std::uniform_int_distribution<size_t>(0, pool.size() - 1)(random)];
    };
    const QString domain = hostSpelling(networkName) + u".veltrane.net"_s;

    QList<ConnectableDeviceSnapshot> peers;
    peers.reserve(count);
    QSet<QString> hostsTaken;
    for (int index = 0; index < count; ++index) {
        ConnectableDeviceSnapshot peer;
        QString computerName;
        QString host;
        if (chance(0.7)) {
            const QString person = QString::fromUtf16(pick(people));
            const DeviceKind &kind = pick(personalDevices);
            computerName = u"%1’s %2"_s.arg(person, QString::fromUtf16(kind.friendly));
            host = hostSpelling(person) + u'-' + QString::fromUtf16(kind.host);
        } else {
            host = u"%1-%2"_s.arg(QString::fromUtf16(pick(serverRoles)))
                       .arg(std::uniform_int_distribution<int>(1, 99)(random), 2, 10, QChar(u'0'));
            computerName = host;
        }
        const QString base = host;
        for (int suffix = 2; hostsTaken.contains(host); ++suffix)
            host = base + u'-' + QString::number(suffix);
        hostsTaken.insert(host);

        const double naming = std::uniform_real_distribution<double>(0, 1)(random);
        if (naming < 0.85)
            peer.computerName = computerName;
        else if (naming < 0.95)
            peer.computerName = QString(); // empty: the host name stands in
        peer.hostName = naming < 0.98 ? std::optional(host) : std::nullopt;
        peer.fqdn = host + u'.' + domain;
        peer.networkId = networkId;
        peer.networkName = networkName;
        peer.clientId = u"c%1"_s.arg(quint64(random()) << 32 | random(), 16, 16, QChar(u'0'));
        peer.assignedIp = u"100.%1.%2.%3"_s.arg(64 + (index + 2) / 65536 % 64)
                              .arg((index + 2) / 256 % 256)
                              .arg((index + 2) % 256);
        peer.online = chance(0.85);

        NodeConnectionStatusSnapshot path;
        if (*peer.online) {
            const bool direct = chance(0.7);
            path.state = direct ? u"direct"_s : u"relayed"_s;
            path.endpoint = direct ? u"203.0.113.%1:41641"_s.arg(random() % 254 + 1)
                                   : QString::fromUtf16(pick(relays)) + u".veltrane.net:443"_s;
            // Round-trip times are skewed: most peers are near, a few are far away.
            const double median = direct ? 9.0 : 48.0;
            const double rtt = median * std::exp(std::normal_distribution<double>(0, 0.9)(random));
            path.roundTripTimeMilliseconds = std::round(rtt * 1000) / 1000;
        } else {
            path.state = u"idle"_s;
        }
        peer.connectionStatus = path;
        peers.append(std::move(peer));
    }
    return peers;
}

} // namespace Veltrane::Simulator
