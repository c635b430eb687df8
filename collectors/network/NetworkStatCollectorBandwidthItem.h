// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/NetworkInterfaces.h"

#include <cstdint>
#include <optional>
#include <string>

namespace meridal {

/// Bytes that went through an interface in both directions.
struct BandwidthAmount {
    double upload = 0;
    double download = 0;
    bool operator==(const BandwidthAmount&) const = default;
};

/// What one interface has carried in the period that is being accumulated. Its counters run on from reading to reading; a
/// counter that goes back ends a counting run, whose bytes are kept, and begins the next.
class NetworkStatCollectorBandwidthItem {
public:
    /// A new counter reading, in bytes.
    void addReading(double sent, double received, double now);
    /// Ends the counting run where it is: the next reading counts from there, whatever lies between.
    void endRun(double sent, double received);
    /// The bytes of the period so far.
    BandwidthAmount amount() const;
    /// The same, and starts to count from zero.
    BandwidthAmount takeAmount();

    std::string key;        ///< the interface's name
    std::int32_t index = 0; ///< the kernel's number for it
    InterfaceKind kind = InterfaceKind::Other;
    std::optional<HardwareAddress> address; ///< permanent, and no other interface's
    std::int64_t interfaceIdentifier = 0; ///< row of "bandwidth_interface_map"; 0 until the map is known, or it has one
    std::int64_t networkIdentifier = -1;  ///< row of "bandwidth_wifi_map"; -1 on no Wi-Fi network
    std::optional<std::string> wifiBSSID;
    std::optional<std::string> wifiName;
    double start = 0;      ///< s since 1970, of the period
    double end = 0;        ///< s since 1970: the next ten-minute boundary
    double lastUpdate = 0; ///< s since 1970, of the last reading
    double uploadStart = 0;
    double downloadStart = 0;
    double uploadLast = 0;
    double downloadLast = 0;
    double uploadRunningTotal = 0; ///< of earlier runs within the period
    double downloadRunningTotal = 0;
    bool started = false; ///< it has had a reading
};

} // namespace meridal
