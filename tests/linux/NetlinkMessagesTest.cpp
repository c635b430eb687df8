// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/GenericNetlink.h"
#include "platform/linux/kernel/NetlinkSocket.h"
#include "platform/linux/network/LinkMessages.h"
#include "platform/linux/network/WirelessMessages.h"
#include "platform/linux/traffic/InterfaceTotals.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <fstream>
#include <libmnl/libmnl.h>
#include <linux/genetlink.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/nl80211.h>
#include <linux/rtnetlink.h>

namespace meridal {
namespace {

/// A message built as the kernel builds it.
class Message {
public:
    template <typename Header>
    Message(std::uint16_t type, const Header& header)
    {
        message_->nlmsg_type = type;
        *static_cast<Header*>(mnl_nlmsg_put_extra_header(message_, sizeof header)) = header;
    }
    template <typename Data>
    Message& put(std::uint16_t type, const Data& data)
    {
        mnl_attr_put(message_, type, sizeof data, &data);
        return *this;
    }
    Message& text(std::uint16_t type, const std::string& text)
    {
        mnl_attr_put(message_, type, text.size(), text.data());
        return *this;
    }
    /// What made the interface; hardware has no such thing.
    Message& driver(const std::string& kind)
    {
        if (!kind.empty()) {
            nlattr* nest = begin(IFLA_LINKINFO);
            text(IFLA_INFO_KIND, kind);
            end(nest);
        }
        return *this;
    }
    nlattr* begin(std::uint16_t type) { return mnl_attr_nest_start(message_, type); }
    void end(nlattr* nest) { mnl_attr_nest_end(message_, nest); }
    nlmsghdr& operator*() { return *message_; }

private:
    alignas(8) std::array<char, 4096> memory_{};
    nlmsghdr* message_ = mnl_nlmsg_put_header(memory_.data());
};

Message link(int index, std::uint16_t type = ARPHRD_ETHER)
{
    ifinfomsg header{};
    header.ifi_index = index;
    header.ifi_type = type;
    header.ifi_flags = IFF_UP;
    return {RTM_NEWLINK, header};
}

Message generic(std::uint8_t command)
{
    genlmsghdr header{};
    header.cmd = command;
    return {0x1c, header};
}

TEST(NetlinkMessages, CountersOfEveryKernelAreRead)
{
    rtnl_link_stats64 counters{};
    counters.rx_bytes = 0x1'0000'0001;
    counters.tx_bytes = 7;
    const std::string bytes(reinterpret_cast<const char*>(&counters), sizeof counters);
    const auto parsed = [&](std::size_t size) {
        return rtnl::parseLink(*link(3).text(IFLA_IFNAME, "eth0").text(IFLA_STATS64, bytes.substr(0, size)))->record;
    };
    EXPECT_TRUE(parsed(bytes.size()).hasCounters);
    EXPECT_EQ(parsed(bytes.size()).bytesReceived, 0x1'0000'0001U);
    EXPECT_EQ(parsed(bytes.size()).name, "eth0") << "without its NUL";
    EXPECT_EQ(parsed(64).bytesSent, 7U) << "an older kernel's";
    EXPECT_FALSE(parsed(16).hasCounters) << "absent, not zero";

    if_stats_msg header{};
    header.ifindex = 3;
    Message alone(RTM_NEWSTATS, header);
    alone.text(IFLA_STATS_LINK_64, bytes);
    EXPECT_EQ(rtnl::countedInterface(*alone), 3);
    EXPECT_EQ(rtnl::countedInterface(*link(3)), 0);
    InterfaceRecord record;
    rtnl::takeCounters(record, *alone);
    EXPECT_EQ(record.bytesReceived, 0x1'0000'0001U);
}

TEST(NetlinkMessages, FramesThatSeveralInterfacesCarryCountOnce)
{
    const auto made = [](std::int32_t index, const std::string& kind, std::uint32_t master) {
        return *rtnl::parseLink(*link(index)
                                     .text(IFLA_IFNAME, "x")
                                     .driver(kind)
                                     .put(IFLA_STATS64, rtnl_link_stats64{})
                                     .put(IFLA_MASTER, master));
    };
    std::vector<std::int32_t> counted;
    // A card, its VLAN, a bridge with two members, a synthetic card and the faster one under it.
    for (const rtnl::Link& link : InterfaceTotals::counted({made(1, "", 3), made(2, "vlan", 0), made(3, "bridge", 0),
             made(4, "veth", 3), made(5, "", 0), made(6, "", 5)})) {
        counted.push_back(link.record.index);
    }
    EXPECT_EQ(counted, (std::vector<std::int32_t>{1, 4, 5}));
}

TEST(NetlinkMessages, WhatIsNoInterfaceOfOursIsPassedOver)
{
    Message nameless = link(3);
    EXPECT_FALSE(rtnl::parseLink(*nameless));
    EXPECT_FALSE(rtnl::parseLink(*link(0).text(IFLA_IFNAME, "eth0")));
    ifinfomsg port{};
    port.ifi_family = AF_BRIDGE;
    port.ifi_index = 3;
    Message leavesBridge(RTM_DELLINK, port);
    leavesBridge.text(IFLA_IFNAME, "eth0");
    EXPECT_FALSE(rtnl::parseLink(*leavesBridge)) << "the interface itself stays";
    (*nameless).nlmsg_len = NLMSG_HDRLEN + 4;
    EXPECT_FALSE(rtnl::parseLink(*nameless)) << "cut in its fixed part";
}

TEST(NetlinkMessages, TheKindTellsHardwareFromWhatRunsOverIt)
{
    const auto kind = [](std::uint16_t type, const std::string& driver, const char* deviceType, bool hasDevice) {
        return rtnl::kindOf(
            *rtnl::parseLink(*link(3, type).text(IFLA_IFNAME, "x").driver(driver)), deviceType, hasDevice);
    };
    EXPECT_EQ(kind(ARPHRD_LOOPBACK, "", "", false), InterfaceKind::Loopback);
    EXPECT_EQ(kind(ARPHRD_ETHER, "", "", true), InterfaceKind::Ethernet);
    EXPECT_EQ(kind(ARPHRD_ETHER, "", "", false), InterfaceKind::Virtual);
    EXPECT_EQ(kind(ARPHRD_ETHER, "", "wlan", true), InterfaceKind::WiFi);
    EXPECT_EQ(kind(ARPHRD_ETHER, "veth", "", false), InterfaceKind::Virtual);
    EXPECT_EQ(kind(ARPHRD_ETHER, "tun", "", false), InterfaceKind::Virtual);
    EXPECT_EQ(kind(ARPHRD_NONE, "tun", "", false), InterfaceKind::Tunnel);
    EXPECT_EQ(kind(ARPHRD_NONE, "wireguard", "", false), InterfaceKind::Tunnel);
    EXPECT_EQ(kind(ARPHRD_ETHER, "bridge", "bridge", false), InterfaceKind::Bridge);
    EXPECT_EQ(kind(ARPHRD_PPP, "", "", false), InterfaceKind::Tunnel);
}

TEST(NetlinkMessages, AddressesOfALinkBetweenTwoAreTheOwnEnd)
{
    ifaddrmsg header{};
    header.ifa_family = AF_INET;
    header.ifa_prefixlen = 32;
    header.ifa_index = 5;
    Message message(RTM_NEWADDR, header);
    message.put(IFA_ADDRESS, std::array<std::uint8_t, 4>{10, 0, 0, 2});
    EXPECT_EQ(rtnl::parseAddress(*message)->address.bytes[3], 2);
    message.put(IFA_LOCAL, std::array<std::uint8_t, 4>{10, 0, 0, 1});
    EXPECT_EQ(rtnl::parseAddress(*message)->address.bytes[3], 1);
    header.ifa_prefixlen = 33;
    Message impossible(RTM_NEWADDR, header);
    impossible.put(IFA_LOCAL, std::array<std::uint8_t, 4>{10, 0, 0, 1});
    EXPECT_FALSE(rtnl::parseAddress(*impossible));
}

TEST(NetlinkMessages, ARouteThatLeadsNowhereIsNone)
{
    rtmsg header{};
    header.rtm_family = AF_INET;
    header.rtm_type = RTN_UNICAST;
    Message message(RTM_NEWROUTE, header);
    EXPECT_FALSE(rtnl::parseRoute(*message));
    message.put(RTA_OIF, std::int32_t{4}).put(RTA_GATEWAY, std::array<std::uint8_t, 4>{192, 0, 2, 1});
    const auto route = rtnl::parseRoute(*message);
    ASSERT_TRUE(route && route->router);
    EXPECT_EQ(route->index, 4);
    header.rtm_type = RTN_BLACKHOLE;
    Message hole(RTM_NEWROUTE, header);
    hole.put(RTA_OIF, std::int32_t{4});
    EXPECT_FALSE(rtnl::parseRoute(*hole));
}

TEST(NetlinkMessages, AGenericFamilyComesWithItsGroups)
{
    Message message = generic(CTRL_CMD_NEWFAMILY);
    message.put(CTRL_ATTR_FAMILY_ID, std::uint16_t{0x1c});
    nlattr* groups = message.begin(CTRL_ATTR_MCAST_GROUPS);
    for (std::uint16_t number = 1; number <= 2; ++number) {
        nlattr* group = message.begin(number);
        message.text(CTRL_ATTR_MCAST_GRP_NAME, number == 1 ? std::string("scan\0", 5) : std::string("mlme\0", 5));
        message.put(CTRL_ATTR_MCAST_GRP_ID, std::uint32_t{number} + 4);
        message.end(group);
    }
    message.end(groups);
    const auto family = parseGenericFamily(*message);
    ASSERT_TRUE(family);
    EXPECT_EQ(family->identifier, 0x1c);
    EXPECT_EQ(family->groups.at("mlme"), 6U);
    Message other = generic(CTRL_CMD_DELFAMILY);
    other.put(CTRL_ATTR_FAMILY_ID, std::uint16_t{0x1c});
    EXPECT_FALSE(parseGenericFamily(*other));
}

/// What nl80211 answers about an interface, as a socket handed it over: NL80211_CMD_GET_INTERFACE, the dump of GET_SCAN and
/// that of GET_STATION, in this order. Recorded on Debian 12 (Linux 6.1) with mac80211_hwsim, hostapd and wpa_supplicant 2.10
/// or iw 5.19; they are seeds of the fuzzer, too.
WirelessIdentity recorded(const std::string& name, bool withList = true)
{
    std::ifstream file(MERIDAL_SOURCE_DIR "/fuzz/corpus/netlink_messages/wifi_" + name, std::ios::binary);
    std::array<std::uint32_t, 1024> bytes{};
    file.read(reinterpret_cast<char*>(bytes.data()), sizeof bytes);
    nl80211::Association association;
    forEachNetlinkMessage(bytes.data(), static_cast<std::size_t>(file.gcount()), [&](const nlmsghdr& message) {
        const auto* header = static_cast<const genlmsghdr*>(mnl_nlmsg_get_payload(&message));
        if (withList || header->cmd != NL80211_CMD_NEW_SCAN_RESULTS) {
            association.take(message);
        }
    });
    EXPECT_TRUE(association.isWireless()) << name;
    return association.identity();
}

TEST(NetlinkMessages, TheNetworkIsThatOfTheBaseStationInUse)
{
    const WirelessIdentity home{.bssid = "02:00:00:00:03:00", .ssid = "Lab-Home"};
    const WirelessIdentity open{.bssid = "02:00:00:00:02:00", .ssid = "Lab-Open"};
    EXPECT_EQ(recorded("wpa_supplicant"), home) << "of three in the list, with no name from the interface";
    EXPECT_EQ(recorded("iw_connect"), open);
    EXPECT_EQ(recorded("left"), WirelessIdentity{}) << "the list still has them";
    EXPECT_EQ(recorded("access_point"), WirelessIdentity{}) << "its station is a guest";
    EXPECT_EQ(recorded("iw_connect", false), open) << "interface and station alone";
    EXPECT_EQ(recorded("wpa_supplicant", false), WirelessIdentity{}) << "a station without a name may only be tried";
}

/// Lists that no driver of the recordings makes: several links to one base station, hidden names, another kind of network,
/// what is cut short.
TEST(NetlinkMessages, ListedBaseStationsOfOtherKinds)
{
    struct Station {
        std::uint8_t address; ///< its last byte
        int status;
        int link; ///< -1: the only one
        std::string elements;
    };
    const auto joined = [](const std::vector<Station>& stations, const std::string& ownName = "") {
        nl80211::Association association;
        association.take(*generic(NL80211_CMD_NEW_INTERFACE)
                              .put(NL80211_ATTR_IFTYPE, std::uint32_t{NL80211_IFTYPE_STATION})
                              .text(NL80211_ATTR_SSID, ownName));
        for (const Station& station : stations) {
            Message message = generic(NL80211_CMD_NEW_SCAN_RESULTS);
            nlattr* bss = message.begin(NL80211_ATTR_BSS);
            message.put(NL80211_BSS_BSSID, std::array<std::uint8_t, 6>{0xaa, 0, 0, 0, 0, station.address});
            message.text(NL80211_BSS_INFORMATION_ELEMENTS, station.elements);
            message.put(NL80211_BSS_STATUS, std::uint32_t(station.status));
            if (station.link >= 0) {
                message.put(NL80211_BSS_MLO_LINK_ID, std::uint8_t(station.link));
                message.put(NL80211_BSS_MLD_ADDR, std::array<std::uint8_t, 6>{0xaa, 0, 0, 0, 0, 0xff});
            }
            message.end(bss);
            association.take(*message);
        }
        const WirelessIdentity identity = association.identity();
        return identity.bssid ? identity.bssid->substr(15) + ' ' + *identity.ssid : "none";
    };
    const std::string rates("\1\2ab", 4);
    const std::string name("\0\4Home", 6);
    const int associated = NL80211_BSS_STATUS_ASSOCIATED;
    EXPECT_EQ(
        joined({{3, associated, 2, name}, {1, associated, 0, rates + name}, {2, associated, 1, name}}), "01 Home");
    EXPECT_EQ(joined({{1, NL80211_BSS_STATUS_AUTHENTICATED, -1, name}}), "none") << "about to be joined";
    EXPECT_EQ(joined({{1, NL80211_BSS_STATUS_IBSS_JOINED, -1, name}}), "01 Home");
    EXPECT_EQ(joined({{1, associated, -1, {"\0\0\1\2ab", 6}}}), "01 ") << "hidden";
    EXPECT_EQ(joined({{1, associated, -1, {"\0\4\0\0\0\0", 6}}}, "Attic"), "01 Attic") << "hidden, known by who joined";
    EXPECT_EQ(joined({{1, associated, -1, rates + name.substr(0, 4)}}), "01 ") << "cut short";
}

} // namespace
} // namespace meridal
