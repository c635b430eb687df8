// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/SystemBus.h"
#include "platform/linux/LinuxHost.h"
#include "platform/linux/kernel/BusNotifications.h"
#include "tests/linux/BusFixture.h"

namespace meridal {
namespace {

using Bus = test::BusTest;

TEST_F(Bus, SignalsReachObserversUntilTheyEnd)
{
    BusNotifications notifications(bus);
    int heard = 0;
    int others = 0;
    auto observation = notifications.observe("com.meridal.Ready-now", [&] { ++heard; });
    const auto other = notifications.observe("com.meridal.Other", [&] { ++others; });
    ASSERT_TRUE(serveUntil([&] { return isReady(); }));
    notifications.post("com.meridal.Ready-now");
    EXPECT_TRUE(serveUntil([&] { return heard == 1; }));

    observation.reset();
    notifications.post("com.meridal.Ready-now");
    notifications.post("com.meridal.Other");
    EXPECT_TRUE(serveUntil([&] { return others == 1; }));
    EXPECT_EQ(heard, 1);
    EXPECT_TRUE(limitations->all().empty());
}

TEST_F(Bus, ABusThatGoesAndComesIsFoundAgain)
{
    BusNotifications notifications(bus);
    int connections = 0;
    const auto subscription = bus->onConnected([&](sd_bus&) { ++connections; });
    int heard = 0;
    const auto observation = notifications.observe("News", [&] { ++heard; });
    ASSERT_TRUE(serveUntil([&] { return isReady(); }));
    EXPECT_EQ(connections, 1);

    daemon.reset();
    ASSERT_TRUE(serveUntil([&] { return bus->handle() == nullptr; }));
    EXPECT_EQ(limitations->all().count("system-bus"), 1U);
    notifications.post("News"); // nobody to carry it
    std::filesystem::remove(tree.root() / "bus");
    runtime.advance(75); // an attempt without success
    EXPECT_EQ(bus->handle(), nullptr);

    startDaemon();
    runtime.advance(75);
    ASSERT_TRUE(serveUntil([&] { return isReady(); }));
    EXPECT_EQ(connections, 2);
    notifications.post("News");
    EXPECT_TRUE(serveUntil([&] { return heard == 1; }));
    EXPECT_TRUE(limitations->all().empty());
}

TEST(BusNotifications, NamesBecomeMembersThatTheBusAllows)
{
    EXPECT_EQ(BusNotifications::memberOf("com.meridal.Menu-changed"), "commeridalMenuchanged");
    EXPECT_EQ(BusNotifications::memberOf("5.minutes"), "_5minutes");
    EXPECT_EQ(BusNotifications::memberOf(".-\xC3\xA9"), "");
    EXPECT_EQ(BusNotifications::memberOf(std::string(1000, 'x')).size(), 255U);
}

TEST(LinuxHost, HasEverySeamEvenOnAnEmptyMachine)
{
    VirtualRuntime runtime;
    const test::TemporaryTree tree{{"proc/5/stat", "5 (only) S 0 1 1 0 -1 0 0 0 0 0 1 1 0 0 20 0 1 0 9 0\n"}};
    const auto host = makeLinuxHost(runtime, {.root = tree.root()});
    ASSERT_TRUE(host->machine && host->processes && host->display && host->distributedNotifications && host->selfUsage);
    EXPECT_TRUE(host->sensors);
    EXPECT_EQ(host->processes->readProcesses(ProcessFields::Cpu).size(), 1U);
    EXPECT_FALSE(host->display->frameRate());
    host->distributedNotifications->post("nobody hears this");
    EXPECT_EQ(host->limitations->all().count("system-bus"), 1U);
    EXPECT_EQ(host->limitations->all().count("responsible-pid"), 1U);
    EXPECT_EQ(makeLinuxHost(runtime)->machine->systemRelease().major, 99);
}

} // namespace
} // namespace meridal
