// SPDX-License-Identifier: Apache-2.0
#include "daemon/NetworkActions.h"
#include "platform/NetworkNames.h"
#include "tests/network/NetworkFixture.h"
#include "tests/support/HasMembers.h"

#include <cstdlib>
#include <ctime>

namespace meridal::test {
namespace {

using testing::ElementsAre;

class NetworkStatCollectorTest : public NetworkTest {
protected:
    NetworkStatCollectorTest()
    {
        observation = machine.notifications.observe(
            NetworkStatCollector::setupChanged, nullptr, [this](const void*, const Dictionary&) { ++changes; });
    }
    int changesSince() { return std::exchange(changes, 0); }

    int changes = 0;
    std::unique_ptr<NotificationCenter::Observation> observation;
};

TEST_F(NetworkStatCollectorTest, FollowsInterfacesThatComeGoAndChangeTheirName)
{
    machine.network().interface("eth0");
    begin();
    EXPECT_EQ(changesSince(), 1);
    const auto item = collector().interfaceWithBSD("eth0");
    EXPECT_FALSE(item->uploadRate()) << "one reading makes no rate";
    carry("eth0", 2000, 6000);
    EXPECT_EQ(item->uploadRate(), 1000);
    EXPECT_EQ(item->downloadRate(), 3000);
    EXPECT_EQ(changesSince(), 0);

    machine.network().interface("eth0").name = "uplink";
    machine.network().interface("usb0");
    carry("uplink", 2000, 0);
    EXPECT_EQ(collector().interfaceWithBSD("uplink"), item);
    EXPECT_EQ(item->uploadRate(), 1000) << "the name is not what is counted";
    EXPECT_EQ(changesSince(), 1);

    machine.network().interface("uplink").bytesSent = 5; // the driver was loaded anew
    machine.network().remove("usb0");
    tick();
    EXPECT_FALSE(item->uploadRate());
    EXPECT_EQ(collector().items().size(), 1U);
    machine.network().unreadable = true;
    tick();
    EXPECT_EQ(collector().items().size(), 1U) << "a table that cannot be read changes nothing";
}

TEST_F(NetworkStatCollectorTest, ThePrimaryInterfaceAndItsNetworkAreKnown)
{
    InterfaceRecord& wlan = machine.network().interface("wlan0");
    wlan.kind = InterfaceKind::WiFi;
    machine.network().now.primary = {
        .interfaceIndex = wlan.index, .interfaceName = "wlan0", .router = InterfaceAddress{.bytes = {192, 0, 2, 1}}};
    begin();
    EXPECT_EQ(collector().wifiMap().at("wlan0"), WirelessIdentity{}) << "the hardware answers nothing";
    machine.wireless().joined["wlan0"] = {.bssid = "aa:aa:aa:aa:aa:aa", .ssid = "Home"};
    tick();
    EXPECT_EQ(collector().primarySettings(),
        (Dictionary{{"interface", "wlan0"}, {"router", "192.0.2.1"}, {"wifi-bssid", "aa:aa:aa:aa:aa:aa"}}));
    const auto wifi = [this] { return daemon->service.interfaces(Value())->at("interfaces")[0].at("wifi"); };
    EXPECT_EQ(wifi(), (Value{{"name", "Home"}, {"bssid", "aa:aa:aa:aa:aa:aa"}}));
    machine.wireless().joined["wlan0"] = {.bssid = std::nullopt, .ssid = "Home"};
    tick();
    EXPECT_EQ(collector().wifiMap().at("wlan0").bssid, "aa:aa:aa:aa:aa:aa") << "what is counted is still its own";
    EXPECT_EQ(wifi(), Value::object()) << "but it is on none";
    EXPECT_EQ(collector().primaryNetworkChanges(), 0U);
    machine.wireless().joined["wlan0"] = {.bssid = "bb:bb:bb:bb:bb:bb", .ssid = "Work"};
    tick();
    EXPECT_EQ(collector().primaryNetworkChanges(), 1U);
    const auto router = [this] { return collector().primarySettings().value("router", "none"); };
    machine.network().now.primary->router = InterfaceAddress{.bytes = {192, 0, 2, 254}};
    tick();
    EXPECT_EQ(router(), "192.0.2.254") << "of the same interface";
    machine.network().now.primary->router.reset();
    tick();
    EXPECT_EQ(router(), "none");
    changes = 0;
    machine.network().now.primary.reset();
    tick();
    EXPECT_EQ(changesSince(), 1);
    EXPECT_TRUE(collector().primarySettings().empty());
}

TEST_F(NetworkStatCollectorTest, AddressesAreWrittenAsPeopleWriteThem)
{
    const auto v6 = [](std::array<std::uint8_t, 16> bytes) {
        return textOf(InterfaceAddress{.family = InterfaceAddress::Family::IPv6, .bytes = bytes});
    };
    EXPECT_EQ(v6({}), "::");
    EXPECT_EQ(v6({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}), "::1");
    EXPECT_EQ(v6({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0x1f}), "2001:db8:0:1::1f");
    EXPECT_EQ(v6({0xfe, 0x80, 0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 0, 0}), "fe80:1:2:3:4:5:6:0");
    EXPECT_EQ(v6({0x20, 0x01, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}), "2001:0:0:1::");
}

TEST_F(NetworkStatCollectorTest, HardwareWithoutAnAddressCountsAsWell)
{
    machine.network().interface("eth0").permanentAddress = HardwareAddress{2, 0, 0, 0, 0, 1};
    machine.network().interface("wwan0").kind = InterfaceKind::Cellular;
    machine.network().interface("tun0").kind = InterfaceKind::Tunnel;
    begin();
    for (const char* name : {"eth0", "wwan0", "tun0"}) {
        machine.network().transfer(name, 1'000'000, 0);
    }
    passBoundary();
    machine.network().transfer("wwan0", 500'000, 0); // not stored yet
    tick();
    EXPECT_EQ(totals(Value::object())["upload"], 2.5e6);
    EXPECT_EQ(totals({{"interfaces", "all"}})["upload"], 3.5e6);

    machine.network().interface("eth0").name = "uplink"; // nothing is stored after this
    tick();
    EXPECT_EQ(totals({{"interface", "uplink"}})["upload"], 1e6);
    EXPECT_EQ(totals({{"by", "interface"}})["totals"][0]["name"], "uplink");
}

TEST_F(NetworkStatCollectorTest, InterfacesComeInBoundedPages)
{
    startDaemon();
    for (int i = 0; i < 7; ++i) {
        machine.network().interface("veth" + std::to_string(i)).kind = InterfaceKind::Virtual;
    }
    machine.network().interface("\xFFname").displayName = "\xC0";
    tick();
    std::vector<std::string> names;
    Value parameters = {{"limit", 3}};
    for (bool more = true; more;) {
        const auto page = daemon->service.interfaces(parameters);
        ASSERT_TRUE(page);
        for (const Value& interface : (*page)["interfaces"]) {
            names.push_back(interface["interface"]);
            parameters["after"] = interface["index"];
        }
        more = (*page)["more"];
    }
    EXPECT_EQ(names.size(), 8U);
    EXPECT_EQ(names.back(), "\xEF\xBF\xBDname");
    EXPECT_FALSE(daemon->service.interfaces({{"limit", 501}}));
    EXPECT_FALSE(daemon->service.interfaces(Value::array({1, 2})));
}

TEST_F(NetworkStatCollectorTest, ActionsReachTheHostOnlyWithNamesThatAreNames)
{
    NetworkActions actions(machine.context);
    const auto works = [&](auto action, const auto&... arguments) {
        bool worked = false;
        (actions.*action)(Peer{.uid = 0, .known = true}, arguments...,
            [&](const Result<void>& result) { worked = result.has_value(); });
        runtime().runDue();
        return worked;
    };
    for (const char* name :
        {"", "-r", "../etc", "eth0;reboot", "eth 0", "..", "eth0\n", "a2345678901234567", "\xC3\xA9th"}) {
        EXPECT_FALSE(works(&NetworkActions::refreshDHCP, name)) << name;
    }
    for (const char* name : {"", "-x", "../../x", "a/b", "a\\b", "tab\t", "\xFF", ".hidden"}) {
        EXPECT_FALSE(works(&NetworkActions::setNetworkSet, name)) << name;
    }
    EXPECT_FALSE(isNetworkSetIdentifier(std::string(129, 'x')));
    EXPECT_FALSE(isInterfaceName(std::string_view("eth0\0x", 6)));
    EXPECT_TRUE(works(&NetworkActions::refreshDHCP, "enp0s31f6.100"));
    EXPECT_TRUE(works(&NetworkActions::setNetworkSet, "Caf\xC3\xA9 (upstairs)"));
    EXPECT_TRUE(works(&NetworkActions::toggleAirPortPower));
    EXPECT_EQ(machine.networkConfiguration().refreshed, std::vector<std::string>{"enp0s31f6.100"});
    EXPECT_EQ(machine.networkConfiguration().sets, std::vector<std::string>{"Caf\xC3\xA9 (upstairs)"});
    EXPECT_FALSE(machine.wireless().powered);
}

/// Eight days of a laptop on two networks, one of two base stations, beside a container's interfaces, as clients see them.
TEST_F(NetworkStatCollectorTest, TotalsAddUpByTimeAndThingInPages)
{
    ::setenv("TZ", "UTC-2", 1); // two hours east
    ::tzset();
    machine.network().interface("wlan0").kind = InterfaceKind::WiFi;
    machine.network().interface("wlan0").permanentAddress = HardwareAddress{2, 0, 0, 0, 0, 1};
    machine.network().interface("lo").kind = InterfaceKind::Loopback;
    begin();
    const std::array<WirelessIdentity, 4> networks = {
        {{.bssid = "aa:aa:aa:aa:aa:aa", .ssid = "Home"}, {.bssid = "bb:bb:bb:bb:bb:bb", .ssid = "Work"},
            {.bssid = "cc:cc:cc:cc:cc:cc", .ssid = "Home"}, {.bssid = "dd:dd:dd:dd:dd:dd", .ssid = ""}}};
    for (std::size_t day = 0; day < 8; ++day) {
        machine.wireless().joined["wlan0"] = networks.at(day / 2);
        tick();
        machine.network().transfer("wlan0", 1'000'000, 3'000'000);
        machine.network().transfer("lo", 9'000'000, 9'000'000);
        tick(86'398);
    }
    machine.wireless().joined["wlan0"] = {.bssid = "ee:ee:ee:ee:ee:ee", .ssid = "Caf\xC3\xA9"};
    tick();
    machine.network().transfer("wlan0", 500'000, 0); // not stored yet, nor is the name
    tick();

    const auto ofPages = [&](Value parameters) {
        Value all = Value::array();
        for (bool more = true; more;) {
            const Value page = totals(parameters);
            EXPECT_EQ(page["upload"], 8.5e6) << "of all pages";
            for (const Value& total : page["totals"]) {
                all.push_back(total);
                parameters["after"] = total["key"];
            }
            more = page["more"];
        }
        return all;
    };
    EXPECT_THAT(ofPages({{"by", "network"}, {"limit", 1}}),
        ElementsAre(hasMembers({{"name", "Home"}, {"download", 12e6}}), hasMembers({{"name", "Work"}, {"upload", 2e6}}),
            hasMembers({{"bssid", "dd:dd:dd:dd:dd:dd"}, {"upload", 2e6}}),
            hasMembers({{"name", "Caf\xC3\xA9"}, {"upload", 5e5}})));
    EXPECT_THAT(ofPages({{"by", "station"}, {"limit", 2}}),
        ElementsAre(hasMembers({{"name", "Home"}, {"bssid", "aa:aa:aa:aa:aa:aa"}, {"download", 6e6}}),
            hasMembers({{"name", "Work"}}), hasMembers({{"name", "Home"}, {"bssid", "cc:cc:cc:cc:cc:cc"}}),
            hasMembers({{"bssid", "dd:dd:dd:dd:dd:dd"}}), hasMembers({{"name", "Caf\xC3\xA9"}})));
    EXPECT_EQ(totals({{"by", "interface"}})["totals"].size(), 2U) << "each is told apart, so loopback too";
    EXPECT_EQ(totals({{"interface", "lo"}})["upload"], 72e6);
    EXPECT_EQ(totals({{"interfaces", "all"}})["upload"], 80.5e6);

    std::vector<std::string> days;
    for (const Value& total : ofPages({{"by", "day"}, {"limit", 3}})) {
        days.push_back(total["key"]);
    }
    EXPECT_EQ(days.front(), "2023-11-15") << "it was 22:13 in Greenwich";
    EXPECT_TRUE(std::is_sorted(days.begin(), days.end()));
    EXPECT_GE(days.size(), 8U);
    EXPECT_EQ(totals({{"by", "hour"}})["totals"][0]["key"], "2023-11-15 00:00");
    EXPECT_EQ(totals({{"by", "month"}})["totals"][0]["key"], "2023-11");
    EXPECT_EQ(totals({{"from", now()}})["totals"].size(), 0U);
    for (const Value& wrong : {Value{{"by", "week"}}, Value{{"limit", 0}}, Value{{"from", "now"}}, Value{{"after", 1}},
             Value{{"by", "network"}, {"after", "x"}}, Value{{"interface", 1}}, Value{{"interfaces", "none"}},
             Value(7)}) {
        EXPECT_TRUE(totals(wrong).is_null()) << wrong;
    }
    ::unsetenv("TZ");
    ::tzset();
}

} // namespace
} // namespace meridal::test
