// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/traffic/MacAdapters.h"
#include "simulated/mac/SimulatedMac.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <array>
#include <memory>
#include <string>

namespace meridal {
namespace {

/// A socket's other end; its address as text, empty where it has none.
socket_info socketOf(int kind, const std::string& address, std::uint16_t port, std::uint16_t localPort)
{
    socket_info socket{};
    socket.soi_kind = kind;
    socket.soi_protocol = kind == SOCKINFO_TCP ? IPPROTO_TCP : IPPROTO_UDP;
    in_sockinfo& ends = kind == SOCKINFO_TCP ? socket.soi_proto.pri_tcp.tcpsi_ini : socket.soi_proto.pri_in;
    ends.insi_fport = htons(port);
    ends.insi_lport = htons(localPort);
    const bool isV6 = address.find(':') != std::string::npos;
    ends.insi_vflag = static_cast<std::uint8_t>(isV6 ? INI_IPV6 : INI_IPV4);
    if (isV6) {
        inet_pton(AF_INET6, address.c_str(), &ends.insi_faddr.ina_6);
    } else {
        inet_pton(AF_INET, address.c_str(), &ends.insi_faddr.ina_46.i46a_addr4);
    }
    return socket;
}

class MacConnectionsTest : public testing::Test {
protected:
    MacConnectionsTest()
    {
        browser.user = 501;
        browser.files = {0, 1, 2};
        browser.sockets[5] = socketOf(SOCKINFO_TCP, "192.0.2.7", 443, 50'002);
        browser.sockets[6] = socketOf(SOCKINFO_TCP, "2001:db8::7", 8443, 50'003);
        browser.sockets[7] = socketOf(SOCKINFO_IN, "192.0.2.53", 53, 50'004);
        browser.sockets[8] = socketOf(SOCKINFO_IN, "", 0, 5353);
        browser.sockets[9] = socketOf(SOCKINFO_UN, "", 0xFFFF, 0xFFFF);
        browser.sockets[10] = socketOf(SOCKINFO_TCP, "", 0, 0);
    }
    /// The ports of the rows.
    std::string rows(std::vector<std::int32_t> pids)
    {
        std::string text;
        for (const ConnectionRecord& each : connections->readConnections(pids)) {
            text += std::to_string(each.pid) + ':' + std::to_string(each.localPort) + '>'
                + std::to_string(each.foreignPort) + ' ';
        }
        return text;
    }

    test::SimulatedMac mac;
    test::SimulatedProcess& browser = mac.kernel.processes[402];
    const std::unique_ptr<ProcessConnections> connections = makeLibprocConnections();
};

TEST_F(MacConnectionsTest, ThoseOfTCPAndUDPWithPortsThatPeopleKnow)
{
    mac.kernel.processes[403].sockets[3] = socketOf(SOCKINFO_TCP, "192.0.2.8", 22, 50'005);
    EXPECT_EQ(rows({402, 403}), "402:50002>443 402:50003>8443 402:50004>53 402:5353>0 403:50005>22 ");
    mac.ledger.fail("proc_pidfdinfo", EBADF);
    EXPECT_EQ(rows({402}), "402:50003>8443 402:50004>53 402:5353>0 ") << "one was closed since the list was made";
    mac.kernel.user = 501;
    EXPECT_EQ(rows({9, 403, 402}), "402:50002>443 402:50003>8443 402:50004>53 402:5353>0 ") << "one gone, one refused";
    EXPECT_EQ(rows({}), "");

    const auto sockets = connections->socketsOf(402, 10);
    ASSERT_EQ(sockets.size(), 3U) << "that have another end";
    EXPECT_EQ(sockets[0].protocol, 6);
    EXPECT_EQ(sockets[0].host, "192.0.2.7");
    EXPECT_EQ(sockets[1].host, "2001:db8::7");
    EXPECT_EQ(sockets[1].port, 8443);
    EXPECT_EQ(sockets[1].localPort, 50'003);
    EXPECT_EQ(sockets[2].protocol, 17);
    EXPECT_EQ(connections->socketsOf(402, 2).size(), 2U);
    EXPECT_TRUE(connections->socketsOf(403, 10).empty());
}

TEST_F(MacConnectionsTest, AListThatGrowsOrShrinksIsReadAsItIs)
{
    browser.files.clear();
    browser.sockets.clear();
    EXPECT_EQ(rows({402}), "");
    const auto growTo = [this](int count) {
        browser.sockets.clear();
        for (int number = 3; number < 3 + count; ++number) {
            browser.sockets[number] = socketOf(SOCKINFO_IN, "", 0, static_cast<std::uint16_t>(1000 + number));
        }
    };
    for (const int count : {15, 300, 2}) {
        growTo(count);
        const std::array<std::int32_t, 1> pids = {402};
        EXPECT_EQ(connections->readConnections(pids).size(), static_cast<std::size_t>(count));
    }
    browser.sockets = {{4, socketOf(SOCKINFO_IN, "", 0, 4)}, {9, socketOf(SOCKINFO_IN, "", 0, 9)}};
    EXPECT_EQ(rows({402}), "402:4>0 402:9>0 ");
    browser.sockets.erase(4);
    EXPECT_EQ(rows({402}), "402:9>0 ") << "where the other stood before";
    // Between the question how many and the list of them: the kernel's list ends where the room does.
    mac.kernel.meanwhile = [&](const std::string& call) {
        if (call == "proc_pidinfo 1, size") {
            growTo(2000);
        }
    };
    const std::array<std::int32_t, 1> pids = {402};
    EXPECT_GE(connections->readConnections(pids).size(), 22U) << "what fits, and nothing beyond it";
    mac.kernel.meanwhile = [&](const std::string& call) {
        if (call == "proc_pidinfo 1, size") {
            mac.kernel.processes.clear();
        }
    };
    EXPECT_EQ(connections->readConnections(pids).size(), 0U) << "and none of the last process that was asked";
}

} // namespace
} // namespace meridal
