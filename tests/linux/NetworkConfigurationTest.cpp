// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/ChildProgram.h"
#include "platform/linux/network/DhcpClients.h"
#include "platform/linux/network/LinuxNetworkConfiguration.h"
#include "platform/linux/network/Rfkill.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <cstring>
#include <linux/rfkill.h>
#include <sys/stat.h>
#include <unistd.h>

namespace meridal {
namespace {

using namespace std::string_literals;

/// A recorded process that nothing but its details tells from root's client.
struct RecordedClient {
    const char* pid;
    std::string name;
    std::string commandLine;
    const char* program;
    const char* users = "0\t0\t0\t0";
    const char* alienSpace = "";
};

void record(const test::TemporaryTree& tree, const RecordedClient& client)
{
    const std::string folder = std::string("proc/") + client.pid;
    tree.write(folder + "/comm", client.name + "\n");
    tree.write(folder + "/cmdline", client.commandLine);
    tree.write(folder + "/status", "Name:\t" + client.name + "\nUid:\t" + client.users + "\n");
    tree.link(folder + "/exe", client.program);
    for (const std::string space : {"mnt", "net", "pid"}) {
        tree.link(folder + "/ns/" + space, space + (space == client.alienSpace ? ":[2]" : ":[1]"));
    }
}

void addProgram(const test::TemporaryTree& tree, const char* path, mode_t mode)
{
    tree.write(path, "");
    ASSERT_EQ(::chmod((tree.root() / path).c_str(), mode), 0);
}

struct DhcpClientsTest : testing::Test {
    void SetUp() override
    {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only root's programs count, and only root can record one";
        }
        addProgram(tree, "usr/sbin/dhclient", 0755);
    }
    const test::TemporaryTree tree;
};

TEST_F(DhcpClientsTest, RenewTheirLeaseInTheirOwnWay)
{
    record(tree, {"self", "meridald", "", "/usr/bin/meridald", "0", "mnt"}); // as the service manager starts it
    record(tree, {"1", "systemd", "", "/usr/bin/systemd"});
    record(tree,
        {"41", "dhclient", "dhclient\0-4\0-pf\0/run/dhclient.eth0.pid\0-lf\0/var/lib/eth0.leases\0-I\0eth0\0"s,
            "/usr/sbin/dhclient"});
    record(tree, {"42", "udhcpc", "udhcpc\0-b\0-i\0usb0\0"s, "/bin/busybox"});
    addProgram(tree, "bin/busybox", 0755);
    const DhcpClients clients(tree.root());
    const auto eth0 = clients.find("eth0");
    ASSERT_TRUE(eth0);
    EXPECT_EQ(eth0->commands,
        (std::vector<std::vector<std::string>>{
            {"/usr/sbin/dhclient", "-r", "-pf", "/run/dhclient.eth0.pid", "-lf", "/var/lib/eth0.leases", "eth0"},
            {"/usr/sbin/dhclient", "-4", "-pf", "/run/dhclient.eth0.pid", "-lf", "/var/lib/eth0.leases", "-I",
                "eth0"}}));
    const auto usb0 = clients.find("usb0");
    ASSERT_TRUE(usb0);
    EXPECT_EQ(usb0->signalPid, 42);
    EXPECT_FALSE(clients.find("eth1"));
}

TEST_F(DhcpClientsTest, NoUserCanPassForOne)
{
    record(tree, {"self", "meridald", "", "/usr/bin/meridald"});
    addProgram(tree, "usr/bin/passwd", 0755);
    addProgram(tree, "usr/bin/dhclient", 04755);
    addProgram(tree, "opt/dhclient", 0775);
    addProgram(tree, "srv/dhclient", 0755);
    ASSERT_EQ(::chown((tree.root() / "srv").c_str(), 65534, 65534), 0);
    addProgram(tree, "home/dhclient", 0755);
    ASSERT_EQ(::chown((tree.root() / "home/dhclient").c_str(), 65534, 65534), 0);
    const auto words = "dhclient\0eth0\0"s;
    const auto isTaken = [&](const RecordedClient& client) {
        record(tree, client);
        const bool found = DhcpClients(tree.root()).find("eth0").has_value();
        tree.remove(std::string("proc/") + client.pid);
        return found;
    };
    EXPECT_TRUE(isTaken({"40", "dhclient", words, "/usr/sbin/dhclient"})) << "what the others are to be told from";
    EXPECT_FALSE(isTaken({"41", "dhclient", words, "/usr/sbin/dhclient", "1000\t0\t0\t0"})) << "set-uid";
    EXPECT_FALSE(isTaken({"42", "dhclient", words, "/usr/sbin/dhclient", "1000\t1000\t1000\t1000"}));
    for (const char* space : {"mnt", "net", "pid"}) {
        EXPECT_FALSE(isTaken({"43", "dhclient", words, "/usr/sbin/dhclient", "0\t0\t0\t0", space})) << space;
    }
    EXPECT_FALSE(isTaken({"44", "dhclient", words, "/usr/bin/passwd"})) << "called by a link of that name";
    EXPECT_FALSE(isTaken({"45", "dhclient", words, "/usr/bin/dhclient"})) << "a set-uid program";
    EXPECT_FALSE(isTaken({"46", "dhclient", words, "/opt/dhclient"})) << "a group may write it";
    EXPECT_FALSE(isTaken({"47", "dhclient", words, "/srv/dhclient"})) << "a user may replace it";
    EXPECT_FALSE(isTaken({"48", "dhclient", words, "/home/dhclient"})) << "a user's own";
    EXPECT_FALSE(isTaken({"49", "dhclient", words, "/usr/sbin/dhclient (deleted)"}));
}

TEST(Rfkill, BlocksWhatIsOnAndFreesWhatIsOff)
{
    const test::TemporaryTree tree{{"sys/class/rfkill/rfkill0/type", "bluetooth\n"},
        {"sys/class/rfkill/rfkill0/soft", "0\n"}, {"sys/class/rfkill/rfkill0/hard", "0\n"}, {"dev/rfkill", ""}};
    Rfkill rfkill(tree.root());
    EXPECT_EQ(rfkill.toggle().error().code, ErrorCode::NotFound);
    tree.write("sys/class/rfkill/rfkill1/type", "wlan\n");
    tree.write("sys/class/rfkill/rfkill1/hard", "0\n");
    const auto toggledFrom = [&](const char* soft) {
        tree.write("sys/class/rfkill/rfkill1/soft", soft);
        EXPECT_TRUE(rfkill.toggle());
        std::ifstream file(tree.root() / "dev/rfkill", std::ios::binary);
        rfkill_event event{};
        file.read(reinterpret_cast<char*>(&event), RFKILL_EVENT_SIZE_V1);
        EXPECT_EQ(event.type, RFKILL_TYPE_WLAN);
        EXPECT_EQ(event.op, RFKILL_OP_CHANGE_ALL);
        return event.soft;
    };
    EXPECT_EQ(toggledFrom("0\n"), 1);
    EXPECT_EQ(toggledFrom("1\n"), 0);
    tree.write("sys/class/rfkill/rfkill1/hard", "1\n");
    EXPECT_EQ(rfkill.toggle().error().code, ErrorCode::Unavailable);
    tree.remove("dev/rfkill");
    EXPECT_FALSE(rfkill.toggle());
}

TEST(ChildProgram, GetsItsWordsAndNothingElse)
{
    const test::TemporaryTree tree;
    const std::string file = (tree.root() / "out").string();
    EXPECT_TRUE(runProgram({"/bin/sh", "-c", "ls /proc/self/fd > \"$1\"; env >> \"$1\"", "sh", file}, 10));
    std::ifstream in(file);
    const std::string seen((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(seen.find("HOME="), std::string::npos);
    EXPECT_EQ(seen.find("9\n"), std::string::npos) << seen;
    EXPECT_EQ(runProgram({"/bin/sh", "-c", "exit 3"}, 10).error().message, "/bin/sh failed: exit status 3");
    EXPECT_FALSE(runProgram({"/nonexistent"}, 10));
    EXPECT_EQ(runProgram({"/bin/sh", "-c", "exec tail -f /dev/null"}, 0.05).error().message, "/bin/sh took too long");
}

TEST(LinuxNetworkConfiguration, SaysWhyNothingCanBeDone)
{
    const test::TemporaryTree tree;
    LinuxNetworkConfiguration configuration(tree.root(), "unix:path=" + (tree.root() / "no-bus").string());
    EXPECT_EQ(configuration.refreshLease("nosuch0").error().code, ErrorCode::NotFound);
    EXPECT_EQ(configuration.refreshLease("lo").error().code, ErrorCode::Unavailable);
    EXPECT_EQ(configuration.setNetworkSet("home").error().code, ErrorCode::Unavailable);
}

} // namespace
} // namespace meridal
