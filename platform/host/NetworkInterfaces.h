// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// What an interface is made of, as far as figures depend on it.
enum class InterfaceKind : std::uint8_t {
    Other,
    Loopback,
    Ethernet, ///< a wire of this machine
    WiFi,
    Cellular,
    Bluetooth,
    Bridge,  ///< joins others; its frames are theirs too
    Bond,    ///< several interfaces as one
    Vlan,    ///< part of the frames of another interface
    Tunnel,  ///< its frames travel inside those of another interface
    Virtual, ///< one end of a pair, a tap of a virtual machine, a dummy
};

enum class LinkState : std::uint8_t {
    Unknown,
    Down,
    Up, ///< a cable is in, a network is joined
};

/// An Ethernet-like hardware address.
using HardwareAddress = std::array<std::uint8_t, 6>;

struct InterfaceAddress {
    enum class Family : std::uint8_t { IPv4, IPv6 };

    Family family = Family::IPv4;
    std::array<std::uint8_t, 16> bytes = {}; ///< network order; the first four of them for IPv4
    std::uint8_t prefixLength = 0;           ///< bits
    bool operator==(const InterfaceAddress&) const = default;

    std::size_t size() const { return family == Family::IPv4 ? 4 : 16; }
};

/// One interface as the kernel reports it. Counters are cumulative since it came into being, bytes with link headers.
struct InterfaceRecord {
    std::int32_t index =
        0;            ///< the kernel's number: it survives a change of the name, and a replugged device has another
    std::string name; ///< raw bytes: "en0", "wlan0"
    InterfaceKind kind = InterfaceKind::Other;
    LinkState link = LinkState::Unknown;
    bool enabled = false;                            ///< switched on by the administrator
    std::uint32_t mtu = 0;                           ///< bytes; 0 when the kernel does not tell
    std::optional<HardwareAddress> hardwareAddress;  ///< the one in use now
    std::optional<HardwareAddress> permanentAddress; ///< the one that the hardware was made with
    bool hasCounters = false;                        ///< false: the eight below are to be ignored
    std::uint64_t bytesReceived = 0;
    std::uint64_t bytesSent = 0;
    std::uint64_t packetsReceived = 0;
    std::uint64_t packetsSent = 0;
    std::uint64_t errorsReceived = 0;
    std::uint64_t errorsSent = 0;
    std::uint64_t dropsReceived = 0; ///< for lack of room
    std::uint64_t dropsSent = 0;     ///< 0 where the kernel does not count them
    std::vector<InterfaceAddress> addresses;
    std::string displayName; ///< for people, raw bytes; empty where the system has none
};

/// The interface by which this machine reaches the rest of the world.
struct PrimaryService {
    std::int32_t interfaceIndex = 0;
    std::string interfaceName;
    std::optional<InterfaceAddress> router; ///< prefix length 0
    bool operator==(const PrimaryService&) const = default;
};

/// All of it at one moment.
struct NetworkReading {
    std::vector<InterfaceRecord> interfaces; ///< by index
    /// Those that went since the reading before, with the counters that they ended with. Empty where the system does
    /// not tell (macOS).
    std::vector<InterfaceRecord> gone;
    std::optional<PrimaryService> primary;
};

/// The network interfaces of this host. Main queue only.
/// macOS: the interface MIB (sysctl), getifaddrs, the dynamic store. Linux: rtnetlink.
class NetworkInterfaces {
public:
    virtual ~NetworkInterfaces() = default;
    /// One reading, valid until the next call. Null when the table could not be read: a host always has an interface.
    virtual const NetworkReading* read() = 0;
    /// What read() answered last, null before the first call: for those who need no fresh counters.
    virtual const NetworkReading* latest() const = 0;
};

} // namespace meridal
