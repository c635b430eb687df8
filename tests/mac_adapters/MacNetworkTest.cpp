// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/network/MacAdapters.h"
#include "platform/macos/network/NetworkHardware.h"
#include "platform/macos/network/PrimaryServiceKey.h"
#include "simulated/mac/SimulatedMac.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal {
namespace {

class MacNetworkTest : public testing::Test {
protected:
    InterfaceRecord described(const std::string& name, InterfaceKind kind = InterfaceKind::Other) const
    {
        InterfaceRecord record = interfaceOf(0, name);
        record.kind = kind;
        hardware.describe(record);
        return record;
    }
    static InterfaceRecord interfaceOf(std::int32_t index, const std::string& name)
    {
        InterfaceRecord record;
        record.index = index;
        record.name = name;
        return record;
    }
    /// "en0 192.168.1.1", "-" for what is absent.
    std::string primary(const PrimaryServiceKey& key) const
    {
        const auto service = key.read({interfaceOf(4, "en0"), interfaceOf(9, "utun3")});
        if (!service) {
            return "-";
        }
        EXPECT_EQ(service->interfaceIndex, service->interfaceName == "en0" ? 4 : 9);
        std::array<char, INET6_ADDRSTRLEN> router{'-'};
        if (service->router) {
            const bool isIPv4 = service->router->family == InterfaceAddress::Family::IPv4;
            inet_ntop(isIPv4 ? AF_INET : AF_INET6, service->router->bytes.data(), router.data(), router.size());
        }
        return service->interfaceName + ' ' + router.data();
    }

    test::SimulatedMac mac;
    NetworkHardware hardware;
    std::unique_ptr<NetworkConfiguration> configuration = makeMacNetworkConfiguration();
};

TEST_F(MacNetworkTest, HardwareIsWhatTheSystemSaysAndTheRestWhatItsNameSays)
{
    // As on a Mac mini of 2012; the modem has no name among the interfaces, and the bridge's type is in no header.
    mac.configuration.interfaces = {
        {{"BSD Name", "en0"}, {"Type", "Ethernet"}, {"Name", "Ethernet"}, {"Address", "a8:20:66:31:95:57"}},
        {{"BSD Name", "en1"}, {"Type", "IEEE80211"}, {"Name", "Wi-Fi"}, {"Address", "8c:2d:aa:33:03:e9"}},
        {{"BSD Name", "fw0"}, {"Type", "FireWire"}, {"Name", "FireWire"}, {"Address", "a8:20:66:ff:fe:44:f1:22"}},
        {{"BSD Name", "bridge0"}, {"Type", "Bridge"}, {"Name", "Thunderbolt Bridge"}}, {{"Type", "Modem"}},
        {{"BSD Name", "en4"}, {"Name", "Bluetooth PAN"}, {"Address", "8c:2d:aa:33:03:-1"}}};
    EXPECT_EQ(described("en1").kind, InterfaceKind::Other) << "not read yet";
    hardware.read();
    EXPECT_EQ(described("en0").permanentAddress, (HardwareAddress{0xa8, 0x20, 0x66, 0x31, 0x95, 0x57}));
    EXPECT_EQ(described("en0").kind, InterfaceKind::Ethernet);
    EXPECT_EQ(described("en1").kind, InterfaceKind::WiFi);
    EXPECT_EQ(described("en1").displayName, "Wi-Fi");
    EXPECT_EQ(described("fw0").permanentAddress, std::nullopt) << "it has eight bytes";
    EXPECT_EQ(described("bridge0").kind, InterfaceKind::Bridge) << "by its name";
    EXPECT_EQ(described("bridge0").displayName, "Thunderbolt Bridge");
    EXPECT_EQ(described("en4").kind, InterfaceKind::Other) << "no type is told";
    EXPECT_EQ(described("en4").permanentAddress, std::nullopt);
    EXPECT_EQ(described("utun3").kind, InterfaceKind::Tunnel);
    EXPECT_EQ(described("utunnel0").kind, InterfaceKind::Other);
    EXPECT_EQ(described("").kind, InterfaceKind::Other) << "the modem is nobody's";
    EXPECT_EQ(described("lo0", InterfaceKind::Loopback).kind, InterfaceKind::Loopback);

    mac.configuration.interfaces.erase(mac.configuration.interfaces.begin());
    hardware.read();
    EXPECT_EQ(described("en0").displayName, "") << "it was pulled out";
    mac.ledger.fail("SCNetworkInterfaceCopyAll");
    hardware.read();
    EXPECT_EQ(described("en1").kind, InterfaceKind::Other);
}

TEST_F(MacNetworkTest, ThePrimaryServiceIsOneWhoseInterfaceIsThere)
{
    const PrimaryServiceKey key;
    auto& ofIPv4 = mac.configuration.store["State:/Network/Global/IPv4"];
    auto& ofIPv6 = mac.configuration.store["State:/Network/Global/IPv6"];
    EXPECT_EQ(primary(key), "-") << "values that are no dictionaries";
    ofIPv6 = {{"PrimaryInterface", "en0"}, {"PrimaryService", "F7C9"}, {"Router", "fe80::1%en0"}};
    EXPECT_EQ(primary(key), "en0 fe80::1");
    ofIPv4 = {{"PrimaryInterface", "en7"}, {"Router", "192.168.1.1"}};
    EXPECT_EQ(primary(key), "en0 fe80::1") << "the other's interface has gone";
    ofIPv4 = {{"PrimaryInterface", "utun3"}, {"Router", "10.8.0.1"}};
    EXPECT_EQ(primary(key), "utun3 10.8.0.1");
    for (const Value& odd :
        {Value(), Value::binary({'1', '.', '1', '.', '1', '.', '1'}), Value("10.8.0"), Value(5), Value("fe80::1")}) {
        ofIPv4["Router"] = odd;
        EXPECT_EQ(primary(key), "utun3 -") << odd;
    }
    ofIPv4["PrimaryInterface"] = Value::array({"utun3"});
    mac.configuration.store.erase("State:/Network/Global/IPv6");
    EXPECT_EQ(primary(key), "-");

    mac.ledger.fail("SCDynamicStoreCreate");
    ofIPv4["PrimaryInterface"] = "en0";
    EXPECT_EQ(primary(PrimaryServiceKey()), "-") << "no store";
}

TEST_F(MacNetworkTest, ALeaseIsRenewedOnTheInterfaceOfThatName)
{
    mac.configuration.interfaces = {{{"Type", "Modem"}}, {{"BSD Name", "en0"}}, {{"BSD Name", "en1"}}};
    EXPECT_TRUE(configuration->refreshLease("en1"));
    EXPECT_EQ(mac.configuration.refreshed, std::vector<std::string>{"en1"});
    EXPECT_EQ(configuration->refreshLease("en").error().code, ErrorCode::NotFound);
    mac.ledger.fail("SCNetworkInterfaceForceConfigurationRefresh", kSCStatusAccessError);
    EXPECT_EQ(configuration->refreshLease("en0").error().code, ErrorCode::NotPermitted);
    mac.ledger.fail("SCNetworkInterfaceForceConfigurationRefresh", kSCStatusFailed);
    const auto failed = configuration->refreshLease("en0");
    EXPECT_EQ(failed.error().code, ErrorCode::Unavailable);
    EXPECT_NE(failed.error().message.find("Failed!"), std::string::npos) << "the system's own words";
    mac.configuration.interfaces.push_back({{"BSD Name", "en0"}});
    mac.ledger.fail("SCNetworkInterfaceForceConfigurationRefresh");
    EXPECT_TRUE(configuration->refreshLease("en0")) << "one of two that share a name";
}

TEST_F(MacNetworkTest, ANetworkSetBecomesCurrentWhole)
{
    mac.configuration.sets = {"8A1C", "Café (upstairs)"};
    ASSERT_TRUE(configuration->setNetworkSet("8A1C"));
    EXPECT_EQ(mac.configuration.inEffect["CurrentSet"], "/Sets/8A1C");
    EXPECT_TRUE(configuration->setNetworkSet("Café (upstairs)"));
    for (const char* unknown : {"", "8A1", "\xFF"}) {
        EXPECT_EQ(configuration->setNetworkSet(unknown).error().code, ErrorCode::NotFound) << unknown;
    }
    for (const char* call : {"SCPreferencesCreate", "SCPreferencesSetValue", "SCPreferencesCommitChanges"}) {
        mac.ledger.fail(call, kSCStatusAccessError);
        EXPECT_EQ(configuration->setNetworkSet("8A1C").error().code, ErrorCode::NotPermitted) << call;
    }
    EXPECT_EQ(mac.configuration.saved["CurrentSet"], "/Sets/Café (upstairs)") << "nothing was written";
    mac.ledger.fail("SCPreferencesApplyChanges", kSCStatusFailed);
    EXPECT_EQ(configuration->setNetworkSet("8A1C").error().code, ErrorCode::Unavailable);
}

} // namespace
} // namespace meridal
