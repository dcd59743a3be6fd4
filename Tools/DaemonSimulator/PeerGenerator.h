#pragma once

#include "DaemonProtocol.h"

#include <QList>

namespace Veltrane::Simulator {

/// Makes a network's worth of believable peer devices: people's laptops and phones with friendly
/// computer names (some with apostrophes, accents or only a host name), numbered servers, unique
/// host names and addresses in 100.64.0.0/10, direct and relayed paths with skewed round-trip
/// times, and some devices offline. The same seed gives the same devices.
QList<ConnectableDeviceSnapshot> generatePeers(int count, quint32 seed, const QString &networkId,
                                               const QString &networkName);

} // namespace Veltrane::Simulator
