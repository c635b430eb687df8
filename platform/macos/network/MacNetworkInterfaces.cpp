// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/network/MacAdapters.h"

#include "platform/formats/InterfaceAddresses.h"
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
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

namespace {

// What platform/formats takes the bytes for.
static_assert(AF_INET == 2 && AF_INET6 == 30 && IFT_LOOP == 0x18);
static_assert(offsetof(sockaddr_in, sin_addr) == 4 && offsetof(sockaddr_in6, sin6_addr) == 8);
static_assert(offsetof(sockaddr_dl, sdl_index) == 2 && offsetof(sockaddr_dl, sdl_type) == 4);
static_assert(offsetof(sockaddr_dl, sdl_nlen) == 5 && offsetof(sockaddr_dl, sdl_alen) == 6);
static_assert(offsetof(sockaddr_dl, sdl_data) == 8);

/// Those of an address, whatever the length that the kernel gave it.
std::span<const std::uint8_t> bytesOf(const sockaddr* address)
{
    using Bytes = std::span<const std::uint8_t>;
    return address ? Bytes(reinterpret_cast<const std::uint8_t*>(address), address->sa_len) : Bytes();
}

void takeLink(InterfaceRecord& record, const ifaddrs& entry)
{
    const LinkAddress link = linkAddressOf(bytesOf(entry.ifa_addr));
    record.index = link.index;
    record.enabled = (entry.ifa_flags & IFF_UP) != 0;
    record.kind = link.isLoopback ? InterfaceKind::Loopback : record.kind;
    record.hardwareAddress = link.hardware;
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
        } else if (const auto address = interfaceAddressOf(bytesOf(entry->ifa_addr), bytesOf(entry->ifa_netmask))) {
            record.addresses.push_back(*address);
        }
    }
    std::erase_if(interfaces, [](const auto& entry) { return entry.second.index == 0; }); // it went in between
    return !interfaces.empty();
}

std::unique_ptr<NetworkInterfaces> makeMacNetworkInterfaces() { return std::make_unique<MacNetworkInterfaces>(); }

} // namespace meridal
