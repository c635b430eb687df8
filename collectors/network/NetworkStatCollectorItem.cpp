// SPDX-License-Identifier: Apache-2.0
#include "collectors/network/NetworkStatCollectorItem.h"

#include "base/Text.h"
#include "collectors/network/BandwidthDatabase.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace meridal {

namespace {

bool isConnectedOtherwise(const InterfaceRecord& a, const InterfaceRecord& b)
{
    return a.index != b.index || a.name != b.name || a.link != b.link || a.enabled != b.enabled
        || a.addresses != b.addresses;
}

Value orNull(const std::optional<double>& figure) { return figure ? Value(*figure) : Value(); }

const char* nameOf(LinkState link)
{
    return link == LinkState::Up ? "up" : link == LinkState::Down ? "down" : "unknown";
}

std::uint16_t group(const InterfaceAddress& address, std::size_t number)
{
    return static_cast<std::uint16_t>(address.bytes[2 * number] << 8 | address.bytes[2 * number + 1]);
}

/// Where the longest run of two or more zero groups lies, the first of several: from, length.
std::pair<std::size_t, std::size_t> longestZeros(const InterfaceAddress& address)
{
    std::pair<std::size_t, std::size_t> longest = {8, 1};
    for (std::size_t from = 0; from < 8; ++from) {
        std::size_t length = 0;
        while (from + length < 8 && group(address, from + length) == 0) {
            ++length;
        }
        if (length > longest.second) {
            longest = {from, length};
        }
    }
    return longest;
}

} // namespace

std::string textOf(const InterfaceAddress& address)
{
    const auto& bytes = address.bytes;
    if (address.family == InterfaceAddress::Family::IPv4) {
        return fmt::format("{}.{}.{}.{}", bytes[0], bytes[1], bytes[2], bytes[3]);
    }
    const auto [from, length] = longestZeros(address);
    std::string text;
    for (std::size_t number = 0; number < 8; ++number) {
        if (number == from) {
            text += "::";
            number += length - 1;
            continue;
        }
        text += (text.empty() || text.back() == ':' ? "" : ":") + fmt::format("{:x}", group(address, number));
    }
    return text;
}

bool NetworkStatCollectorItem::update(const InterfaceRecord& record, double time)
{
    const bool changed = isConnectedOtherwise(record_, record);
    const auto identity = static_cast<std::uint64_t>(record.index);
    const CounterReading sent{.identity = identity, .count = record.bytesSent, .time = time};
    const CounterReading received{.identity = identity, .count = record.bytesReceived, .time = time};
    uploadRate_ = record.hasCounters ? ratePerSecond(sent_, sent) : std::nullopt;
    downloadRate_ = record.hasCounters ? ratePerSecond(received_, received) : std::nullopt;
    sent_ = record.hasCounters ? sent : CounterReading{};
    received_ = record.hasCounters ? received : CounterReading{};
    record_ = record;
    return changed;
}

const char* NetworkStatCollectorItem::hardware() const
{
    switch (record_.kind) {
    case InterfaceKind::Loopback:
        return "Loopback";
    case InterfaceKind::Ethernet:
        return "Ethernet";
    case InterfaceKind::WiFi:
        return "AirPort";
    case InterfaceKind::Cellular:
        return "Cellular";
    case InterfaceKind::Bluetooth:
        return "Bluetooth";
    case InterfaceKind::Bridge:
        return "Bridge";
    case InterfaceKind::Bond:
        return "Bond";
    case InterfaceKind::Vlan:
        return "VLAN";
    case InterfaceKind::Tunnel:
        return "Tunnel";
    case InterfaceKind::Virtual:
        return "Virtual";
    case InterfaceKind::Other:
        break;
    }
    return "Other";
}

Dictionary NetworkStatCollectorItem::describe() const
{
    Value addresses = Value::array();
    for (const InterfaceAddress& address : record_.addresses) {
        addresses.push_back(fmt::format("{}/{}", textOf(address), address.prefixLength));
    }
    Dictionary all = {{"interface", validUtf8(record_.name)}, {"index", record_.index}, {"hardware", hardware()},
        {"link", nameOf(record_.link)}, {"enabled", record_.enabled}, {"primary", primary_},
        {"addresses", std::move(addresses)}, {"uploadRate", orNull(uploadRate_)},
        {"downloadRate", orNull(downloadRate_)}};
    if (!record_.displayName.empty()) {
        all["displayName"] = validUtf8(record_.displayName);
    }
    if (record_.mtu > 0) {
        all["mtu"] = record_.mtu;
    }
    if (const auto& address = record_.hardwareAddress) {
        all["hardwareAddress"] = textOf(*address);
    }
    if (const auto& address = record_.permanentAddress) {
        all["permanentAddress"] = textOf(*address);
    }
    if (record_.hasCounters) {
        all["bytes"] = {{"sent", record_.bytesSent}, {"received", record_.bytesReceived}};
        all["packets"] = {{"sent", record_.packetsSent}, {"received", record_.packetsReceived}};
        all["errors"] = {{"sent", record_.errorsSent}, {"received", record_.errorsReceived}};
        all["drops"] = {{"sent", record_.dropsSent}, {"received", record_.dropsReceived}};
    }
    return all;
}

} // namespace meridal
