// SPDX-License-Identifier: Apache-2.0
// Interfaces of a network namespace of the test's own, with a pair of virtual Ethernet devices and real frames.

#include "platform/linux/network/NetlinkInterfaces.h"
#include "tests/linux/NetworkNamespace.h"
#include "tests/network/NetworkFixture.h"

#include <algorithm>
#include <chrono>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace meridal::test {
namespace {

class NetlinkInterfacesTest : public NetworkTest {
protected:
    void SetUp() override
    {
        if (!network.entered()) {
            GTEST_SKIP() << "a network of its own takes root";
        }
        if (!network.ip("link add near type veth peer name far")) {
            GTEST_SKIP() << "no ip command, or no veth";
        }
        // Quiet: no frames but the test's own.
        for (const char* name : {"near", "far"}) {
            ASSERT_TRUE(network.ip(std::string("link set ") + name + " addrgenmode none arp off up"));
        }
        auto interfaces = std::make_unique<NetlinkInterfaces>("/", machine.host.limitations);
        netlink = interfaces.get();
        machine.host.networkInterfaces = std::move(interfaces);
    }

    /// Sends frames of 1000 bytes each.
    void send(const std::string& name, int frames)
    {
        const Descriptor socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL)));
        sockaddr_ll to{};
        to.sll_family = AF_PACKET;
        to.sll_ifindex = static_cast<int>(::if_nametoindex(name.c_str()));
        const std::string frame = std::string(12, '\xFF') + "\x88\xB5" + std::string(986, 'x'); // for experiments
        for (int i = 0; i < frames; ++i) {
            ASSERT_EQ(
                ::sendto(socket.get(), frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to),
                static_cast<ssize_t>(frame.size()));
        }
    }
    const InterfaceRecord* find(const std::string& name)
    {
        const NetworkReading* reading = netlink->latest();
        const auto& all = reading->interfaces;
        const auto found = std::find_if(all.begin(), all.end(), [&](const auto& each) { return each.name == name; });
        return found == all.end() ? nullptr : &*found;
    }
    /// The kernel tells of carriers from a queue of its own, up to a second later.
    LinkState linkOnceIs(const std::string& name, LinkState expected)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (find(name)->link != expected && std::chrono::steady_clock::now() < deadline) {
            netlink->read();
        }
        return find(name)->link;
    }
    NetworkNamespace network;
    NetlinkInterfaces* netlink = nullptr;
};

TEST_F(NetlinkInterfacesTest, ReadsWhatTheyAreAndFollowsTheirAddresses)
{
    ASSERT_TRUE(netlink->read());
    ASSERT_EQ(netlink->latest()->interfaces.size(), 3U) << "loopback and the pair";
    EXPECT_EQ(find("lo")->kind, InterfaceKind::Loopback);
    EXPECT_EQ(find("lo")->enabled, false);
    EXPECT_EQ(find("near")->kind, InterfaceKind::Virtual);
    EXPECT_EQ(linkOnceIs("near", LinkState::Up), LinkState::Up);
    EXPECT_FALSE(find("near")->permanentAddress) << "made up by the kernel";
    EXPECT_TRUE(find("near")->hardwareAddress);
    EXPECT_FALSE(netlink->latest()->primary);

    ASSERT_TRUE(network.ip("addr add 192.0.2.7/24 dev near") && network.ip("-6 addr add 2001:db8::7/64 dev near nodad")
        && network.ip("route add default via 192.0.2.1"));
    netlink->read();
    ASSERT_EQ(find("near")->addresses.size(), 2U);
    EXPECT_EQ(textOf(find("near")->addresses[0]), "192.0.2.7");
    EXPECT_EQ(find("near")->addresses[1].prefixLength, 64);
    ASSERT_TRUE(netlink->latest()->primary);
    EXPECT_EQ(netlink->latest()->primary->interfaceName, "near");
    EXPECT_EQ(textOf(*netlink->latest()->primary->router), "192.0.2.1");

    ASSERT_TRUE(network.ip("addr flush dev near") && network.ip("link set far down"));
    netlink->read();
    EXPECT_TRUE(find("near")->addresses.empty());
    EXPECT_EQ(linkOnceIs("near", LinkState::Down), LinkState::Down);
    EXPECT_FALSE(netlink->latest()->primary);

    ASSERT_TRUE(network.ip("link set near mtu 1400") && network.ip("link add later type veth peer name latest"));
    netlink->read();
    EXPECT_EQ(find("near")->mtu, 1400U);
    ASSERT_TRUE(find("later"));
    EXPECT_TRUE(find("later")->hasCounters);
    EXPECT_TRUE(machine.host.limitations->all().empty());
}

TEST_F(NetlinkInterfacesTest, ARenamedOrRemovedInterfaceLosesNothing)
{
    begin();
    const auto item = collector().interfaceWithBSD("near");
    send("near", 300);
    ASSERT_TRUE(network.ip("link set near down") && network.ip("link set near name renamed")
        && network.ip("link set renamed up"));
    send("renamed", 300); // before the tick that sees the new name
    tick();
    EXPECT_EQ(collector().interfaceWithBSD("renamed"), item);
    send("renamed", 500);
    ASSERT_TRUE(network.ip("link del renamed")); // before a tick sees it
    tick();
    EXPECT_FALSE(collector().interfaceWithBSD("renamed"));
    passBoundary();
    const Value all = totals({{"interfaces", "all"}});
    EXPECT_EQ(all["upload"], 1'100'000);
    // The other end counts what it got where the first one counts what it sent: both go at once, and that half is unseen.
    EXPECT_EQ(all["download"], 600'000);
}

TEST_F(NetlinkInterfacesTest, AFloodOfAnnouncementsIsGotOver)
{
    netlink->read();
    ASSERT_TRUE(network.ip("addr add 192.0.2.7/24 dev near"));
    std::string batch;
    for (int i = 0; i < 400; ++i) { // far more than the socket holds
        for (const char* what : {"add", "del"}) {
            batch += std::string("addr ") + what + " 10.9." + std::to_string(i / 250) + "." + std::to_string(i % 250)
                + "/32 dev far\\n";
        }
    }
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(std::system(("printf '" + batch + "' | ip -batch -").c_str()), 0);
    }
    ASSERT_TRUE(network.ip("addr del 192.0.2.7/24 dev near"));
    netlink->read();
    netlink->read();
    EXPECT_TRUE(find("near")->addresses.empty());
    EXPECT_TRUE(find("far")->addresses.empty());
}

} // namespace
} // namespace meridal::test
