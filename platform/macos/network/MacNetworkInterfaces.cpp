// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/network/MacAdapters.h"

#include "platform/macos/network/NetworkHardware.h"
#include "platform/macos/network/PrimaryServiceKey.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_dl.h>
#include <net/if_media.h>
#include <net/if_mib.h>
#include <net/if_types.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

namespace {

/// Addresses lie at any alignment behind a sockaddr: copied out, whatever the length that the kernel gave them.
template <typename Address>
Address copyOf(const sockaddr* from)
{
    Address address{};
    std::memcpy(&address, from, std::min<std::size_t>(sizeof address, from->sa_len));
    return address;
}

/// Bits set in a netmask. The kernel cuts the zeros at its end off.
std::uint8_t prefixLengthOf(const sockaddr* mask, std::size_t offset, std::size_t size)
{
    if (!mask || mask->sa_len <= offset) {
        return 0;
    }
    const std::string_view bytes(
        reinterpret_cast<const char*>(mask) + offset, std::min<std::size_t>(size, mask->sa_len - offset));
    int bits = 0;
    for (const char byte : bytes) {
        bits += std::popcount(static_cast<unsigned char>(byte));
    }
    return static_cast<std::uint8_t>(bits);
}

void takeAddress(InterfaceRecord& record, const ifaddrs& entry)
{
    InterfaceAddress address;
    if (entry.ifa_addr->sa_family == AF_INET) {
        const auto internet = copyOf<sockaddr_in>(entry.ifa_addr);
        std::memcpy(address.bytes.data(), &internet.sin_addr, 4);
        address.prefixLength = prefixLengthOf(entry.ifa_netmask, offsetof(sockaddr_in, sin_addr), 4);
    } else {
        const auto internet = copyOf<sockaddr_in6>(entry.ifa_addr);
        address.family = InterfaceAddress::Family::IPv6;
        std::memcpy(address.bytes.data(), &internet.sin6_addr, 16);
        address.prefixLength = prefixLengthOf(entry.ifa_netmask, offsetof(sockaddr_in6, sin6_addr), 16);
        if (address.bytes[0] == 0xfe && (address.bytes[1] & 0xc0) == 0x80) {
            address.bytes[2] = address.bytes[3] = 0; // where the kernel keeps the scope of a link-local one
        }
    }
    record.addresses.push_back(address);
}

void takeLink(InterfaceRecord& record, const ifaddrs& entry)
{
    const auto* link = reinterpret_cast<const sockaddr_dl*>(entry.ifa_addr);
    record.index = link->sdl_index;
    record.enabled = (entry.ifa_flags & IFF_UP) != 0;
    if (link->sdl_type == IFT_LOOP) {
        record.kind = InterfaceKind::Loopback;
    }
    HardwareAddress address{};
    if (link->sdl_alen == address.size()) {
        std::memcpy(address.data(), LLADDR(link), address.size());
        record.hardwareAddress = address;
    }
}

/// The record of an interface in the MIB: the one place where an ordinary program gets whole 64-bit counters. It is
/// packed to 4 bytes, so what is wanted is copied out.
void takeCounters(InterfaceRecord& record)
{
    std::array<int, 6> name = {
        CTL_NET, PF_LINK, NETLINK_GENERIC, IFMIB_IFDATA, static_cast<int>(record.index), IFDATA_GENERAL};
    ifmibdata entry{};
    std::size_t size = sizeof entry;
    // Up to the last counter that is read: a kernel that is older than the SDK may have a shorter record.
    constexpr std::size_t needed =
        offsetof(ifmibdata, ifmd_data) + offsetof(if_data64, ifi_iqdrops) + sizeof(u_int64_t);
    if (::sysctl(name.data(), name.size(), &entry, &size, nullptr, 0) != 0 || size < needed) {
        return;
    }
    if (record.name != std::string_view(entry.ifmd_name, ::strnlen(entry.ifmd_name, sizeof entry.ifmd_name))) {
        return; // the number has gone to another one meanwhile
    }
    const auto& counters = entry.ifmd_data;
    record.hasCounters = true;
    record.mtu = counters.ifi_mtu;
    record.bytesReceived = counters.ifi_ibytes;
    record.bytesSent = counters.ifi_obytes;
    record.packetsReceived = counters.ifi_ipackets;
    record.packetsSent = counters.ifi_opackets;
    record.errorsReceived = counters.ifi_ierrors;
    record.errorsSent = counters.ifi_oerrors;
    record.dropsReceived = counters.ifi_iqdrops;
    record.dropsSent = entry.ifmd_snd_drops;
}

/// Whether a cable is in or a network joined, as the driver says; where it does not, whether the interface runs.
LinkState linkStateOf(int socket, const std::string& name, unsigned flags)
{
    ifmediareq media{};
    name.copy(media.ifm_name, sizeof media.ifm_name - 1);
    if (socket >= 0 && ::ioctl(socket, SIOCGIFMEDIA, &media) == 0 && (media.ifm_status & IFM_AVALID) != 0) {
        return (media.ifm_status & IFM_ACTIVE) != 0 ? LinkState::Up : LinkState::Down;
    }
    if ((flags & IFF_UP) == 0) {
        return LinkState::Down;
    }
    return (flags & IFF_RUNNING) != 0 ? LinkState::Up : LinkState::Unknown;
}

class Socket {
public:
    Socket() : number_(::socket(AF_INET, SOCK_DGRAM, 0)) { }
    ~Socket()
    {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int number() const { return number_; }

private:
    int number_;
};

class MacNetworkInterfaces final : public NetworkInterfaces {
public:
    const NetworkReading* read() override;
    const NetworkReading* latest() const override { return hasReading_ ? &reading_ : nullptr; }

private:
    bool readInterfaces(std::map<std::string, InterfaceRecord>& interfaces);

    NetworkHardware hardware_;
    std::string knownNames_; ///< the names for which the hardware was read
    PrimaryServiceKey primary_;
    NetworkReading reading_;
    bool hasReading_ = false;
};

} // namespace

const NetworkReading* MacNetworkInterfaces::read()
{
    std::map<std::string, InterfaceRecord> interfaces;
    if (!readInterfaces(interfaces)) {
        return nullptr;
    }
    std::string names;
    for (const auto& [name, record] : interfaces) {
        names += name + ' ';
    }
    if (names != knownNames_) { // hardware changes with the names only, and asking for it is slow
        hardware_.read();
        knownNames_ = std::move(names);
    }
    reading_.interfaces.clear();
    for (auto& [name, record] : interfaces) {
        hardware_.describe(record);
        reading_.interfaces.push_back(std::move(record));
    }
    std::sort(reading_.interfaces.begin(), reading_.interfaces.end(),
        [](const InterfaceRecord& a, const InterfaceRecord& b) { return a.index < b.index; });
    reading_.primary = primary_.read(reading_.interfaces);
    hasReading_ = true;
    return &reading_;
}

bool MacNetworkInterfaces::readInterfaces(std::map<std::string, InterfaceRecord>& interfaces)
{
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        return false;
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, &::freeifaddrs);
    const Socket socket;
    for (const ifaddrs* entry = list; entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || !entry->ifa_name) {
            continue;
        }
        InterfaceRecord& record = interfaces[entry->ifa_name];
        record.name = entry->ifa_name;
        if (entry->ifa_addr->sa_family == AF_LINK) {
            takeLink(record, *entry);
            takeCounters(record);
            record.link = linkStateOf(socket.number(), record.name, entry->ifa_flags);
        } else if (entry->ifa_addr->sa_family == AF_INET || entry->ifa_addr->sa_family == AF_INET6) {
            takeAddress(record, *entry);
        }
    }
    std::erase_if(interfaces, [](const auto& entry) { return entry.second.index == 0; }); // it went in between
    return !interfaces.empty();
}

std::unique_ptr<NetworkInterfaces> makeMacNetworkInterfaces() { return std::make_unique<MacNetworkInterfaces>(); }

} // namespace meridal
