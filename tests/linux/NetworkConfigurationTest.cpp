#include "platform/linux/ChildProgram.h"
#include "platform/linux/DhcpClients.h"
#include "platform/linux/LinuxNetworkConfiguration.h"
#include "platform/linux/Rfkill.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <cstring>
#include <linux/rfkill.h>
#include <unistd.h>

namespace meridal {
namespace {

using namespace std::string_literals;

TEST(DhcpClients, RenewTheirLeaseInTheirOwnWay)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root's processes count, and only root can record one";
    }
    const auto dhclient = "dhclient\0-4\0-pf\0/run/dhclient.eth0.pid\0-lf\0/var/lib/eth0.leases\0-I\0eth0\0"s;
    const auto udhcpc = "udhcpc\0-b\0-i\0usb0\0"s;
    const auto decoy = "dhclient\0evil0\0"s;
    const test::TemporaryTree tree{{"proc/41/comm", "dhclient\n"}, {"proc/41/cmdline", dhclient},
        {"proc/42/comm", "udhcpc\n"}, {"proc/42/cmdline", udhcpc}, {"proc/43/comm", "dhclient\n"},
        {"proc/43/cmdline", decoy}, {"proc/self/comm", "dhclient\n"}};
    for (const char* process : {"proc/41", "proc/43"}) {
        tree.link(std::string(process) + "/exe", "/usr/sbin/dhclient");
    }
    tree.link("proc/42/exe", "/bin/busybox");
    ASSERT_EQ(::chown((tree.root() / "proc/43").c_str(), 65534, 65534), 0);
    const DhcpClients clients(tree.root());
    const auto eth0 = clients.find("eth0");
    ASSERT_TRUE(eth0);
    EXPECT_EQ(eth0->commands,
        (std::vector<std::vector<std::string>>{
            {"/usr/sbin/dhclient", "-r", "-pf", "/run/dhclient.eth0.pid", "-lf", "/var/lib/eth0.leases", "eth0"},
            {"/usr/sbin/dhclient", "-4", "-pf", "/run/dhclient.eth0.pid", "-lf", "/var/lib/eth0.leases", "-I",
                "eth0"}}));
    EXPECT_EQ(clients.find("usb0")->signalPid, 42);
    EXPECT_FALSE(clients.find("evil0")) << "an ordinary user's process of that name";
    EXPECT_FALSE(clients.find("eth1"));
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
