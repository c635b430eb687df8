// SPDX-License-Identifier: Apache-2.0
// The account of bandwidth, one fault after another: nothing carried is counted twice, negative or under another name, and
// nothing recorded is lost.

#include "tests/database/FaultyVfs.h"
#include "tests/network/NetworkFixture.h"

#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <gmock/gmock.h>

#include <cmath>
#include <filesystem>
#include <fstream>

namespace meridal::test {
namespace {

using testing::ElementsAre;

constexpr std::uint64_t megabyte = 1'000'000;
constexpr const char* interfaceTable =
    "create table bandwidth_interface_map (identifier INTEGER PRIMARY KEY AUTOINCREMENT, interface text NOT NULL)";

class BandwidthTest : public NetworkTest {
protected:
    void plugIn(const std::string& name, std::uint8_t lastOctet = 0)
    {
        InterfaceRecord& plugged = machine.network().interface(name);
        if (lastOctet != 0) {
            plugged.permanentAddress = HardwareAddress{2, 0, 0, 0, 0, lastOctet};
        }
    }
    using NetworkTest::begin;
    void begin(const std::string& name, std::uint8_t lastOctet = 0)
    {
        plugIn(name, lastOctet);
        begin();
    }
    /// Away, and back as new hardware is: with another number and counters from zero.
    void replug(const std::string& name, const std::string& newName, std::uint8_t lastOctet)
    {
        machine.network().remove(name);
        tick();
        plugIn(newName, lastOctet);
        tick();
    }
    double sum(const char* name)
    {
        double total = 0;
        for (const Dictionary& row : samples()) {
            EXPECT_GE(row[name].get<double>(), 0);
            EXPECT_GE(row["end"].get<double>(), row["start"].get<double>());
            total += row[name].get<double>();
        }
        return total;
    }
};

TEST_F(BandwidthTest, PeriodsOfTenMinutesLieOnTheGrid)
{
    plugIn("en0");
    machine.network().transfer("en0", 5 * megabyte, 7 * megabyte); // before anybody looked
    begin();
    const double first = now();
    EXPECT_EQ(std::fmod(collector().nextBandwidthUpdateTime(), 600), 0);
    machine.network().transfer("en0", megabyte, 2 * megabyte);
    passBoundary();
    machine.network().transfer("en0", 3 * megabyte, 0);
    passBoundary();
    const auto stored = samples();
    ASSERT_EQ(stored.size(), 2U);
    EXPECT_EQ(stored[0],
        (Dictionary{{"start", first}, {"end", 1'700'000'400.0}, {"upload", 1e6}, {"download", 2e6}, {"network", -1},
            {"interface", "en0"}}));
    EXPECT_EQ(stored[1]["start"], 1'700'000'400.0);
    EXPECT_EQ(stored[1]["end"], 1'700'001'000.0);
    EXPECT_EQ(stored[1]["upload"], 3e6);
}

TEST_F(BandwidthTest, APeriodWithNextToNoTrafficIsDropped)
{
    begin("en0");
    machine.network().transfer("en0", 50 * 1024, 80 * 1024);
    passBoundary();
    machine.network().transfer("en0", 102'400, 102'400); // no more than the limit
    passBoundary();
    EXPECT_TRUE(samples().empty());
    machine.network().transfer("en0", 0, 102'401);
    passBoundary();
    EXPECT_THAT(column("download"), ElementsAre(102'401)) << "what was dropped is not carried over";
}

TEST_F(BandwidthTest, AnotherWiFiNetworkGetsRowsOfItsOwn)
{
    plugIn("wlan0");
    machine.network().interface("wlan0").kind = InterfaceKind::WiFi;
    machine.wireless().joined["wlan0"] = {.bssid = "aa:aa:aa:aa:aa:aa", .ssid = "Home"};
    begin();
    carry("wlan0", megabyte, 0);
    machine.wireless().joined["wlan0"] = {}; // between two networks: still the old one's
    carry("wlan0", megabyte, 0);
    machine.wireless().joined["wlan0"] = {.bssid = "bb:bb:bb:bb:bb:bb", .ssid = "Caf\xE9"};
    tick();
    const double change = now();
    machine.network().transfer("wlan0", 4 * megabyte, 0);
    passBoundary();
    machine.wireless().joined["wlan0"] = {.bssid = "aa:aa:aa:aa:aa:aa", .ssid = "Home, renamed"};
    tick();
    machine.network().transfer("wlan0", 8 * megabyte, 0);
    passBoundary();
    EXPECT_THAT(column("upload"), ElementsAre(2e6, 4e6, 8e6));
    EXPECT_EQ(column("end").at(0), change);
    EXPECT_EQ(column("start").at(1), change);
    EXPECT_THAT(column("network"), ElementsAre(1, 2, 1));
    EXPECT_EQ(rows("SELECT name FROM bandwidth_wifi_map ORDER BY identifier"),
        (std::vector<Dictionary>{{{"name", "Home"}}, {{"name", "Caf\xEF\xBF\xBD"}}}));

    machine.wireless().joined["wlan0"] = {.bssid = "aa:aa:aa:aa:aa:aa", .ssid = ""};
    tick();
    carry("wlan0", 5, 50);
    machine.network().interface("wlan0").bytesSent = 0; // its driver was loaded again
    machine.network().interface("wlan0").bytesReceived = 0;
    carry("wlan0", 7, 70);
    carry("wlan0", 1, 10);
    EXPECT_EQ(daemon->service.interfaces({})->at("networks"),
        Value::array({{{"bssid", "aa:aa:aa:aa:aa:aa"}, {"received", 60}, {"sent", 6}},
            {{"name", "Caf\xEF\xBF\xBD"}, {"received", 0}, {"sent", 4'000'000}},
            {{"name", "Home"}, {"received", 0}, {"sent", 2'000'000}},
            {{"name", "Home, renamed"}, {"received", 0}, {"sent", 8'000'000}}}))
        << "since the start, also of what is in the file";
}

TEST(WifiTraffic, NetworksBeyondTheBoundAreOne)
{
    WifiTraffic traffic;
    for (std::size_t number = 0; number < WifiTraffic::mostNetworks + 9; ++number) {
        traffic.add(std::to_string(number), "aa:aa:aa:aa:aa:aa", {.upload = 1, .download = 2});
    }
    traffic.add("0", std::nullopt, {.upload = 1, .download = 0});
    const auto networks = traffic.networks();
    ASSERT_EQ(networks.size(), WifiTraffic::mostNetworks + 1);
    EXPECT_EQ(networks[0].identity, WirelessIdentity{});
    EXPECT_EQ(networks[0].amount, (BandwidthAmount{.upload = 9, .download = 18}));
    EXPECT_EQ(networks[1].amount, (BandwidthAmount{.upload = 2, .download = 2}));
}

TEST_F(BandwidthTest, AnInterfaceIsKnownByItsHardwareWhateverItsName)
{
    plugIn("eth0", 1);
    begin("eth1", 2);
    machine.network().transfer("eth0", megabyte, 0);
    carry("eth1", 2 * megabyte, 0);
    machine.network().interface("eth0").name = "swap";
    machine.network().interface("eth1").name = "eth0";
    machine.network().interface("swap").name = "eth1";
    machine.network().transfer("eth1", megabyte, 0); // in the midst of it
    tick();
    passBoundary();
    replug("eth0", "eth7", 2);
    carry("eth7", 8 * megabyte, 0);
    startDaemon(); // what was counted since the boundary goes with a crash
    tick();
    machine.network().transfer("eth7", 16 * megabyte, 0);
    passBoundary();
    EXPECT_EQ(rows("SELECT total(upload) AS upload FROM bandwidth_samples JOIN bandwidth_interface_addresses "
                   "ON identifier = interface GROUP BY address ORDER BY address"),
        (std::vector<Dictionary>{{{"upload", 2e6}}, {{"upload", 2e6 + 16e6}}}));
    EXPECT_EQ(rows("SELECT interface FROM bandwidth_interface_map ORDER BY identifier"),
        (std::vector<Dictionary>{{{"interface", "eth1"}}, {{"interface", "eth7"}}}));
}

TEST_F(BandwidthTest, OtherHardwareUnderTheSameNameIsAnother)
{
    begin("usb0", 1);
    carry("usb0", megabyte, 0);
    replug("usb0", "usb0", 2);
    machine.network().transfer("usb0", 2 * megabyte, 0);
    passBoundary();
    EXPECT_EQ(rows("SELECT interface, upload FROM bandwidth_samples ORDER BY sample"),
        (std::vector<Dictionary>{{{"interface", 1}, {"upload", 1e6}}, {{"interface", 2}, {"upload", 2e6}}}));
}

TEST_F(BandwidthTest, AnAddressThatTwoInterfacesShareTellsNoneApart)
{
    plugIn("eth0", 1);
    begin("eth1", 1);
    machine.network().transfer("eth0", megabyte, 0);
    machine.network().transfer("eth1", 2 * megabyte, 0);
    passBoundary();
    EXPECT_EQ(rows("SELECT identifier FROM bandwidth_interface_map").size(), 2U);
    EXPECT_EQ(rows("SELECT DISTINCT interface FROM bandwidth_samples").size(), 2U);
}

TEST_F(BandwidthTest, AnInterfaceThatGoesLeavesWhatItCarriedToTheEnd)
{
    plugIn("en5");
    begin("en0");
    carry("en5", megabyte, 0);
    machine.network().transfer("en5", 2 * megabyte, 0);
    machine.network().now.gone = {machine.network().interface("en5")};
    machine.network().remove("en5");
    tick();
    machine.network().now.gone.clear();
    passBoundary();
    EXPECT_EQ(sum("upload"), 3e6);
    EXPECT_EQ(collector().bandwidthItems().count("en5"), 0U) << "nothing is kept of what went and is stored";
}

TEST_F(BandwidthTest, CountersOfAReplugThatAreAlreadyAheadCountNothingTwice)
{
    begin("en0");
    carry("en0", megabyte, 0);
    InterfaceRecord& record = machine.network().interface("en0");
    record.index += 100;
    record.bytesSent += 5 * megabyte;
    carry("en0", 2 * megabyte, 0);
    passBoundary();
    EXPECT_EQ(sum("upload"), 1e6) << "where the new life of the counters began is unknown";
}

TEST_F(BandwidthTest, ContainersThatCarryNothingLeaveNoName)
{
    startDaemon();
    for (int i = 0; i < 50; ++i) {
        const std::string name = "veth" + std::to_string(i);
        machine.network().interface(name).kind = InterfaceKind::Virtual;
        tick();
        carry(name, i == 7 ? megabyte : 1000, 0);
        machine.network().remove(name);
    }
    passBoundary();
    EXPECT_EQ(
        rows("SELECT interface FROM bandwidth_interface_map"), (std::vector<Dictionary>{{{"interface", "veth7"}}}));
    EXPECT_EQ(sum("upload"), 1e6);
}

TEST_F(BandwidthTest, SleepAndTheEndStoreWhatThereIs)
{
    begin("en0");
    carry("en0", megabyte, 0);
    const double asleep = now();
    bool written = false;
    daemon->service.saveBandwidth([&written] { written = true; });
    EXPECT_FALSE(written) << "the main queue does not wait";
    runtime().runDue();
    EXPECT_TRUE(written);
    runtime().sleepMachine(8 * 3600 + 17);
    machine.network().transfer("en0", 0, 200'000); // woken by the network
    tick();
    machine.network().transfer("en0", 2 * megabyte, 0);
    passBoundary();
    carry("en0", 4 * megabyte, 0);
    daemon->service.saveBandwidth({});
    const auto stored = samples();
    ASSERT_EQ(stored.size(), 4U);
    EXPECT_EQ(stored[0]["end"], asleep);
    EXPECT_LE(stored[1]["end"], asleep + 600) << "closed with the period in which the machine fell asleep";
    EXPECT_GE(stored[2]["start"], asleep + 8 * 3600 - 600) << "no row spans the sleep";
    EXPECT_EQ(stored[3]["end"], now());
    EXPECT_THAT(column("upload"), ElementsAre(1e6, 0, 2e6, 4e6));
}

TEST_F(BandwidthTest, AClockThatIsSetNeitherLosesNorInvents)
{
    begin("en0");
    for (const double step : {-90'000.0, 400'000.0, -3.0, 1e8, -2e8}) {
        carry("en0", megabyte, megabyte);
        runtime().stepWallClock(step);
        carry("en0", megabyte, megabyte);
        EXPECT_LE(collector().nextBandwidthUpdateTime() - now(), 600) << step;
        EXPECT_EQ(std::fmod(collector().nextBandwidthUpdateTime(), 600), 0);
    }
    passBoundary();
    EXPECT_EQ(sum("upload"), 10e6);
    for (const Dictionary& row : samples()) {
        EXPECT_LE(row["end"].get<double>() - row["start"].get<double>(), 601) << row;
    }
}

TEST_F(BandwidthTest, AClockSetBackWithinAPeriodPartsItsRow)
{
    begin("en0");
    runtime().advance(300);
    carry("en0", megabyte, 0);
    const double before = now();
    runtime().stepWallClock(-200);
    carry("en0", 2 * megabyte, 0);
    passBoundary();
    EXPECT_THAT(column("upload"), ElementsAre(1e6, 2e6));
    EXPECT_EQ(samples()[0]["end"], before);
}

TEST_F(BandwidthTest, AFullDiskAtTheBoundaryLosesNothing)
{
    FaultyVfs disk("full at the boundary");
    plugIn("en0", 1);
    startDaemon({.vfs = "full at the boundary"});
    tick();
    disk.failEvery(1, SQLITE_FULL);
    plugIn("en1", 2); // its number is given out meanwhile
    for (int period = 0; period < 3; ++period) {
        carry("en0", megabyte, 0);
        machine.network().transfer("en1", megabyte, 0);
        passBoundary();
    }
    EXPECT_GT(daemon->databases.statistics().begin()->second.batchesFailed, 0U);
    disk.failEvery(0);
    tick(40);
    EXPECT_EQ(samples().size(), 6U);
    EXPECT_EQ(sum("upload"), 6e6);
    EXPECT_EQ(rows("SELECT interface FROM bandwidth_interface_map").size(), 2U);
    daemon.reset(); // before the disk goes
}

TEST_F(BandwidthTest, AFileThatCannotBeReadAtTheStartIsWaitedFor)
{
    prepareFile({interfaceTable, "insert into bandwidth_interface_map (identifier, interface) values (7, 'other')"});
    const auto path = machine.context.paths.support;
    const auto aside = path.string() + ".aside";
    std::filesystem::rename(path, aside);
    std::ofstream(path) << "no folder"; // nothing can be opened there, and nothing moved out of the way
    begin("en0");
    machine.network().transfer("en0", megabyte, 0);
    passBoundary();
    std::filesystem::remove(path);
    std::filesystem::rename(aside, path);
    tick(31);
    tick(31);
    tick(31);
    EXPECT_EQ(sum("upload"), 1e6);
    EXPECT_EQ(rows("SELECT interface FROM bandwidth_samples"), (std::vector<Dictionary>{{{"interface", 8}}}));
}

/// Whatever happens before the file is open: a question is answered then, and the end leaves nothing behind.
TEST_F(BandwidthTest, ASlowDiskAtTheStartHoldsUpNothing)
{
    FaultyVfs disk("slow-bandwidth");
    prepareFile({interfaceTable, "insert into bandwidth_interface_map (identifier, interface) values (7, 'other')"});
    disk.whenOpened = [this] { runtime().advance(20); };
    plugIn("en0", 1);
    const double before = runtime().monotonicTime();
    daemon = std::make_unique<Daemon>(machine.context, HistoryDatabaseItem::Limits{.vfs = "slow-bandwidth"});
    daemon->service.update();
    machine.network().transfer("en0", megabyte, 0);
    daemon->service.update();
    EXPECT_EQ(runtime().monotonicTime(), before);
    EXPECT_EQ(totals({{"interface", "other"}}).at("totals").size(), 0U) << "an answer";
    EXPECT_GE(runtime().monotonicTime(), before + 20);

    daemon = std::make_unique<Daemon>(machine.context, HistoryDatabaseItem::Limits{.vfs = "slow-bandwidth"});
    daemon->service.update();
    machine.network().transfer("en0", megabyte, 0);
    daemon->service.update();
    daemon->service.saveBandwidth({});
    EXPECT_EQ(rows("SELECT interface, upload FROM bandwidth_samples"),
        (std::vector<Dictionary>{{{"interface", 8}, {"upload", 1e6}}}));
    daemon.reset(); // before the disk goes
}

TEST_F(BandwidthTest, RowsFindTheirInterfaceInAFreshFile)
{
    begin("en0", 1);
    daemon->databases.deleteDatabase(machine.context.paths.bandwidthDatabase());
    machine.network().transfer("en0", megabyte, 0);
    passBoundary();
    EXPECT_EQ(samples().at(0)["interface"], "en0");
}

/// Every layout that a file may have been left with: each of the two columns missing or not, or no file at all.
TEST_F(BandwidthTest, EveryOlderLayoutIsBroughtUpToDateWithItsRows)
{
    const std::string wifi =
        "create table bandwidth_wifi_map (identifier INTEGER PRIMARY KEY AUTOINCREMENT, bssid text "
        "NOT NULL";
    const std::string samplesTable = "create table bandwidth_samples (sample INTEGER PRIMARY KEY AUTOINCREMENT, start "
                                     "double NOT NULL, end double NOT NULL, interface INTEGER NOT NULL, ";
    for (const bool hasName : {false, true}) {
        for (const bool hasNetwork : {false, true}) {
            daemon.reset();
            std::filesystem::remove_all(machine.context.paths.support);
            prepareFile({wifi + (hasName ? ", name text)" : ")"), interfaceTable,
                samplesTable + (hasNetwork ? "network INTEGER NOT NULL DEFAULT -1, " : "")
                    + "upload double NOT NULL DEFAULT 0, download double NOT NULL DEFAULT 0)",
                "insert into bandwidth_wifi_map (bssid) values ('aa:aa:aa:aa:aa:aa')",
                "insert into bandwidth_interface_map (interface) values ('en0')",
                "insert into bandwidth_samples (start, end, interface, upload) values (1e9, 1000000600.0, 1, 5e6)"});
            machine.network().now = {};
            plugIn("en0", 1);
            startDaemon();
            tick();
            machine.network().transfer("en0", megabyte, 0);
            passBoundary();
            EXPECT_EQ(sum("upload"), 6e6) << hasName << hasNetwork;
            EXPECT_EQ(rows("SELECT * FROM bandwidth_samples WHERE interface = 1 AND network = -1").size(), 2U);
            EXPECT_EQ(
                rows("SELECT name FROM sqlite_master WHERE type = 'table' AND name LIKE 'bandwidth%-%'").size(), 0U)
                << "no table was put aside";
            EXPECT_EQ(collector().identifierForBSSID("aa:aa:aa:aa:aa:aa", "Home"), 1);
            EXPECT_EQ(collector().identifierForBSSID("aa:aa:aa:aa:aa:aa", "Home, renamed"), 1);
            daemon->service.saveBandwidth({});
            EXPECT_EQ(rows("SELECT name FROM bandwidth_wifi_map"), (std::vector<Dictionary>{{{"name", "Home"}}}));
        }
    }
}

/// Whatever interfaces do, what is stored is what they carried while they were looked at.
RC_GTEST_FIXTURE_PROP(BandwidthTest, TheSumsAgreeWithTheCounters, ())
{
    startDaemon();
    plugIn("en0", 1);
    tick();
    double carried = 0;
    const auto steps = *rc::gen::resize(25, rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 6)));
    std::string name = "en0";
    for (const int step : steps) {
        const auto amount = 10'000 * static_cast<std::uint64_t>(*rc::gen::inRange(200'000, 900'000));
        machine.network().transfer(name, amount, amount);
        carried += static_cast<double>(amount);
        tick(*rc::gen::inRange(1, 400));
        switch (step) {
        case 0: { // it starts over, and has counted on since
            InterfaceRecord& record = machine.network().interface(name);
            (*rc::gen::arbitrary<bool>() ? record.bytesSent : record.bytesReceived) =
                *rc::gen::inRange<std::uint64_t>(0, 1'000'000);
            tick();
            break;
        }
        case 1: {
            const std::string renamed = name == "en0" ? "en1" : "en0";
            machine.network().interface(name).name = renamed;
            name = renamed;
            break;
        }
        case 2:
            runtime().stepWallClock(*rc::gen::inRange(-5000, 5000));
            break;
        case 3:
            replug(name, name, 1);
            break;
        case 4:
            daemon->service.saveBandwidth([] {});
            break;
        default:
            break;
        }
    }
    daemon->service.saveBandwidth({});
    RC_ASSERT(sum("upload") == carried);
    RC_ASSERT(sum("download") == carried);
}

} // namespace
} // namespace meridal::test
