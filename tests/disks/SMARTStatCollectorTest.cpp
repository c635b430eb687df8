// SPDX-License-Identifier: Apache-2.0
#include "database/HistoryDatabaseController.h"
#include "database/SQLiteConnection.h"
#include "tests/disks/DiskFixture.h"

#include <algorithm>
#include <iterator>

namespace meridal::test {
namespace {

using testing::DoubleNear;
using testing::ElementsAre;

TEST_F(DiskTest, KeysTellWhatTheDisksTell)
{
    plugATA("root/ata/sda", " WX1 ");
    plugNVMe("root/pci/nvme0", "S5GX");
    start();
    EXPECT_EQ(collector->diskTemperatures(),
        parseUntrusted(R"([{"key":"WX1","name":"WDC WD40EFRX","temperature":34},
            {"key":"S5GX","name":"FAST 1000","temperature":41}])")
            .value());
    const Value status = collector->diskStatus();
    EXPECT_THAT(status,
        ElementsAre(hasMembers({{"key", "sda"}, {"smart", true}, {"status", true}}),
            Value{{"key", "nvme0"}, {"nvme", true}, {"nvme-percentage-used", 3}}));
    ASSERT_EQ(status[0]["attributes"].size(), 6U);
    EXPECT_EQ(status[0]["attributes"][1],
        (Value{{"f", "51"}, {"c", "200"}, {"w", "200"}, {"th", "140"}, {"value", 0}, {"t", "1700000000"}}));
    EXPECT_EQ(collector->itemWithBSD("sda"), item("WX1"));
    EXPECT_EQ(collector->itemWithBSD("sdb"), nullptr);
    const Value overview = *collector->overview();
    EXPECT_EQ(overview["items"][0]["status"], "1");
    EXPECT_EQ(overview["items"][0]["attributes"][0]["name"], "Raw read error rate");
}

TEST_F(DiskTest, ATAIsReadEveryFiveMinutesAndNVMeEveryTime)
{
    const auto ata = plugATA("root/ata/sda", "WX1");
    const auto nvme = plugNVMe("root/pci/nvme0", "S5GX");
    start();
    watchFor(600);
    EXPECT_EQ(updates, 20);
    EXPECT_EQ(ata->asked["readData"], 2 * 2) << "at once and after 300 s, each time twice";
    EXPECT_EQ(ata->asked["readThresholds"], 1) << "they never change";
    EXPECT_EQ(ata->asked["identify"], 1);
    EXPECT_EQ(nvme->asked["readHealthLog"], 21 * 2);
    EXPECT_EQ(ata->asked["enableOperations"], 0);
    machine.runtime.advance(3600);
    EXPECT_EQ(nvme->asked["readHealthLog"], 21 * 2) << "without a tick nothing is read";
}

TEST_F(DiskTest, ASleepingDiskIsLeftAloneForADay)
{
    const auto sleeping = plugATA("root/ata/sda", "WX1");
    const auto hidden = plugATA("root/usb/sdb", "USB1");
    sleeping->power = DiskPower::Asleep;
    hidden->power = DiskPower::Unknown;
    start();
    watchFor(86'400);
    for (const Plugged& each : {std::cref(sleeping), std::cref(hidden)}) {
        EXPECT_EQ(each->wakingQuestions(), 0);
        EXPECT_EQ(each->asked["powerMode"], 86'400 / (&each == &sleeping ? 30 : 300));
        EXPECT_EQ(each->closed, each->asked["powerMode"]) << "and not held open meanwhile";
    }
    EXPECT_EQ(item("WX1")->state(), DiskState::Asleep);
    EXPECT_EQ(item("USB1")->state(), DiskState::PowerHidden);
    EXPECT_EQ(collector->diskStatus()[0]["asleep"], true);
    EXPECT_FALSE(collector->diskStatus()[0].contains("status")) << "nobody knows";
    sleeping->power = DiskPower::Awake;
    watchFor(30);
    EXPECT_EQ(collector->diskTemperatures().size(), 1U);
    sleeping->power = DiskPower::Asleep;
    watchFor(330);
    EXPECT_EQ(collector->diskTemperatures().size(), 0U) << "what it was then is not what it is now";
}

TEST_F(DiskTest, TheRecordLetsDisksRest)
{
    wanted = false;
    const auto ata = plugATA("root/ata/sda", "WX1");
    const auto sleeping = plugATA("root/ata/sdb", "WX2");
    sleeping->power = DiskPower::Asleep;
    const auto idle = plugATA("root/ata/sdc", "WX3");
    idle->requests = 77;
    const auto nvme = plugNVMe("root/pci/nvme0", "S5GX");
    collector->keepRecord();
    machine.runtime.advance(SMARTStatCollector::firstRecord - 1);
    EXPECT_EQ(ata->questions(), 0) << "not in the midst of a boot";
    machine.runtime.advance(2 * 3600);
    EXPECT_EQ(ata->asked["readData"], 2 * 4) << "every 1800 s";
    EXPECT_EQ(nvme->asked["readHealthLog"], 2 * 24) << "every 300 s";
    EXPECT_EQ(sleeping->wakingQuestions(), 0);
    EXPECT_EQ(sleeping->asked["powerMode"], 4);
    wanted = true;
    collector->updateStatsIfDue([this] { ++updates; });
    machine.runtime.runDue();
    EXPECT_EQ(updates, 1);
    EXPECT_EQ(ata->asked["readData"], 2 * 5) << "who asks gets figures of now";
    wanted = false;
    machine.runtime.advance(2 * 3600);
    EXPECT_EQ(idle->asked["readData"], 2 * 2) << "one for who asked; nobody else uses it, so it may rest";
    idle->requests = 78;
    machine.runtime.advance(SMARTStatCollector::recordInterval);
    EXPECT_EQ(idle->asked["readData"], 2 * 3);
}

TEST_F(DiskTest, NothingIsReadWhileNobodyAsks)
{
    wanted = false;
    const auto early = plugATA("root/ata/sda", "WX1");
    machine.disks().observers.tell();
    machine.runtime.advance(1000);
    EXPECT_EQ(machine.disks().searches, 0);
    EXPECT_TRUE(collector->needToReload());
    wanted = true;
    announce();
    EXPECT_EQ(early->asked["readData"], 2) << "arrived while somebody asks";
    wanted = false;
    const auto late = plugATA("root/ata/sdb", "WX2");
    machine.disks().observers.tell();
    machine.runtime.advance(1000);
    EXPECT_EQ(late->questions(), 0);
    wanted = true;
    tick();
    EXPECT_EQ(late->asked["readData"], 2);
}

TEST_F(DiskTest, AHangingDiskHoldsUpNobody)
{
    const auto hanging = plugATA("root/ata/sda", "HANG");
    const auto other = plugNVMe("root/pci/nvme0", "S5GX");
    start();
    hanging->data = dataPage({{.attributeID = 194, .raw = 50}});
    hanging->beforeAnswer = [&] {
        hanging->beforeAnswer = nullptr;
        machine.runtime.advance(180); // others have their turns meanwhile
    };
    machine.runtime.advance(301);
    updates = 0;
    collector->updateStats([&] {
        ++updates;
        EXPECT_EQ(item("S5GX")->temperature(), 41);
        EXPECT_EQ(item("HANG")->temperature(), 34) << "as it was";
        EXPECT_GE(item("HANG")->readingFor(), 3.0);
    });
    const auto ticks = machine.runtime.startTimer(machine.runtime.mainQueue(), {.first = 30, .interval = 30},
        [this] { collector->updateStats([this] { ++updates; }); });
    const int readBefore = other->asked["readHealthLog"];
    machine.runtime.advance(1);
    EXPECT_EQ(updates, 1 + 6) << "all in time";
    EXPECT_EQ(other->asked["readHealthLog"], readBefore + 2 * 7);
    machine.runtime.advance(1);
    EXPECT_EQ(item("HANG")->temperature(), 50) << "late, but here";
    EXPECT_FALSE(item("HANG")->isBeingRead());
}

TEST_F(DiskTest, ADiskUnpluggedInMidReadIsGone)
{
    const auto plugged = plugATA("root/ata/sda", "WX1");
    plugged->beforeAnswer = [&] {
        plugged->beforeAnswer = nullptr;
        plugged->data.reset();
        unplug(plugged);
    };
    start();
    EXPECT_EQ(collector->diskStatus(), Value::array());
    const auto again = plugATA("root/usb/sdc", "WX1");
    tick();
    ASSERT_EQ(collector->diskStatus().size(), 0U) << "not announced yet";
    announce();
    EXPECT_EQ(collector->diskStatus()[0]["key"], "sdc");
    EXPECT_EQ(item("WX1")->temperature(), 34);
}

TEST_F(DiskTest, WhatAPageDoesNotTellStaysAsItWas)
{
    const auto ata = plugATA("root/ata/sda", "WX1");
    start();
    SMARTPage damaged = dataPage({{.attributeID = 194, .raw = 99}});
    damaged[40] ^= 1;
    for (const auto& page : {std::optional(damaged), std::optional<SMARTPage>(), std::optional(SMARTPage{})}) {
        ata->data = page;
        machine.runtime.advance(300);
        tick();
        EXPECT_EQ(item("WX1")->state(), DiskState::Silent);
        EXPECT_EQ(item("WX1")->temperature(), 34);
        EXPECT_EQ(item("WX1")->attributes().size(), 6U);
    }
    ata->supported = false;
    machine.runtime.advance(300);
    tick();
    EXPECT_EQ(item("WX1")->temperature(), 34);
}

TEST_F(DiskTest, StatusComesFromTheDiskOrElseFromItsAttributes)
{
    auto attributes = usualAttributes();
    attributes[1].current = 130; // below 140, and it predicts failure
    const auto silent = plugATA("root/usb/sda", "WX1");
    silent->failing.reset();
    silent->data = dataPage(attributes);
    const auto told = plugATA("root/ata/sdb", "WX2");
    told->failing = true;
    const auto unknown = plugATA("root/usb/sdc", "WX3");
    unknown->failing.reset();
    unknown->thresholds.reset();
    start();
    EXPECT_EQ(item("WX1")->overallStatus(), false);
    EXPECT_EQ(item("WX2")->overallStatus(), false);
    EXPECT_EQ(item("WX3")->overallStatus(), std::nullopt);
}

TEST_F(DiskTest, IdentityComesFromWhereItIsKnown)
{
    const auto far = plug({.path = "root/usb/sda", .serial = "   ", .usbSerial = " 123456", .guid = "guid"});
    far->data = dataPage({});
    far->identity = identifyPage({.model = "HGST HUS7"});
    plugATA("root/ata/sdb", "A1", "APPLE SSD SM0512F");
    plug({.path = "root/ata/sdc", .vendor = "ACME", .model = "Disk 1", .unitSerial = "V1", .usbSerial = "B1"});
    plug({.path = "root/ata/sdd", .serial = "\t  "});
    start();
    ASSERT_EQ(collector->items().size(), 3U) << "a disk without a serial is left out";
    EXPECT_EQ(item("123456")->model(), "HGST HUS7");
    EXPECT_EQ(item("123456")->firmware(), "01.01A01");
    EXPECT_EQ(item("A1")->model(), "Apple SSD");
    EXPECT_EQ(item("V1")->model(), "ACME Disk 1");
}

TEST_F(DiskTest, TwoDisksWithOneSerialAreTwoDisks)
{
    const auto first = plugATA("root/usb/sda", "SAME");
    const auto second = plugATA("root/usb/sdb", "SAME");
    second->data = dataPage({{.attributeID = 194, .raw = 44}});
    start();
    EXPECT_EQ(item("SAME")->temperature(), 34);
    EXPECT_EQ(item("SAME#2")->temperature(), 44);
    announce();
    EXPECT_EQ(collector->items().size(), 2U) << "and stay the same two";
    EXPECT_EQ(item("SAME#2")->bsd(), "sdb");

    unplug(first);
    EXPECT_EQ(item("SAME"), nullptr);
    EXPECT_EQ(item("SAME#2")->bsd(), "sdb") << "what stays keeps its record";
    const auto third = plugATA("root/ata/sda", "SAME"); // found before the second one
    std::swap(machine.disks().plugged.front(), machine.disks().plugged.back());
    announce();
    EXPECT_EQ(item("SAME#2")->bsd(), "sdb");
    EXPECT_EQ(item("SAME")->temperature(), 34);

    unplug(second);
    third->power = DiskPower::Asleep;
    third->record.path = "root/usb/sdc";
    announce();
    EXPECT_EQ(item("SAME")->state(), DiskState::Asleep);
    EXPECT_TRUE(item("SAME")->attributes().empty()) << "another place may mean another disk";
    EXPECT_EQ(item("SAME")->overallStatus(), std::nullopt);
}

TEST_F(DiskTest, WhatCannotBeReadSaysWhy)
{
    const auto off = plugATA("root/ata/sda", "OFF");
    off->identity = identifyPage({.model = "FAST 1000", .smartEnabled = false});
    const auto denied = plugATA("root/ata/sdb", "DENIED");
    denied->denied = true;
    start();
    watchFor(300);
    EXPECT_EQ(item("OFF")->state(), DiskState::SwitchedOff);
    EXPECT_EQ(item("OFF")->model(), "FAST 1000") << "its own words";
    EXPECT_EQ(off->asked["enableOperations"] + off->asked["readData"], 0) << "its owner meant it";
    EXPECT_EQ(item("DENIED")->state(), DiskState::Denied);
    EXPECT_EQ(denied->asked["readData"], 0);
    off->identity = identifyPage({});
    denied->denied = false;
    watchFor(330);
    EXPECT_EQ(item("OFF")->temperature(), 34) << "switched on meanwhile";
    EXPECT_EQ(item("DENIED")->temperature(), 34);
}

class DiskHistoryTest : public DiskTest {
protected:
    DiskHistoryTest() { machine.context.databases = &databases; }
    ~DiskHistoryTest() override
    {
        collector.reset();
        machine.context.databases = nullptr;
    }
    /// The columns of one row.
    std::vector<double> figures(const std::string& sql) const
    {
        std::vector<double> found;
        SQLiteConnection file;
        EXPECT_TRUE(file.open(machine.context.paths.support / "disk-history.db", {}));
        EXPECT_TRUE(file.forEachRow(sql, {}, [&](std::span<const SqlValue> row) {
            std::transform(row.begin(), row.end(), std::back_inserter(found), sqlNumber);
        }));
        return found;
    }
    HistoryDatabaseController databases{machine.context};
};

TEST_F(DiskHistoryTest, TheRecordNeedsNobodyWhoAsksAndOutlivesTheDisk)
{
    wanted = false;
    const auto ata = plugATA("root/ata/sda", "WX1");
    const auto nvme = plugNVMe("root/pci/nvme0", "S5GX");
    collector->keepRecord();
    constexpr double watched = 3 * 3600 + 300; // a reading of five minutes ago is the latest
    machine.runtime.advance(watched);
    const char* const count = "SELECT count(temperature), max(temperature) FROM day_diskhistory WHERE uuid='WX1'";
    EXPECT_THAT(figures(count), ElementsAre(DoubleNear(watched / 144, 2), 34)) << "without a hole";
    const double before = figures(count)[0];
    const int reads = ata->asked["readData"];
    ata->power = DiskPower::Asleep;
    machine.runtime.advance(1500);
    EXPECT_LE(figures(count)[0], before + 3) << "asleep, it is not as warm as it was for longer than 5 minutes";
    EXPECT_EQ(ata->asked["readData"], reads);
    unplug(ata);
    unplug(nvme);
    for (const bool isRestarted : {false, true}) {
        if (isRestarted) {
            collector->cleanup();
            collector = std::make_unique<SMARTStatCollector>(machine.context);
            collector->keepRecord();
            machine.runtime.advance(1);
        }
        const auto temperatures = collector->temperatureSeries();
        ASSERT_EQ(temperatures.size(), 2U);
        EXPECT_EQ(temperatures[1].key + temperatures[1].name + temperatures[1].unit, "WX1WDC WD40EFRX°C");
        ASSERT_EQ(collector->wearSeries().size(), 1U);
        EXPECT_EQ(collector->wearSeries()[0].values, std::vector<std::string>{"wear"});
    }
}

TEST_F(DiskHistoryTest, FiguresAreRecordedWhileSomebodyAsks)
{
    plugATA("root/ata/sda", "WX1");
    plugNVMe("root/pci/nvme0", "S5GX");
    start();
    watchFor(600);
    wanted = false;
    machine.runtime.advance(5);
    const auto nvme = figures(
        "SELECT min(temperature), max(temperature), max(wear), count(*) FROM hour_diskhistory WHERE uuid='S5GX'");
    EXPECT_THAT(nvme, ElementsAre(41, 41, 3, DoubleNear(100, 3))) << "every 6 s, between two readings the latest";
    const auto ata = figures("SELECT max(temperature), count(wear), count(*) FROM hour_diskhistory WHERE uuid='WX1'");
    EXPECT_THAT(ata, ElementsAre(34, 0, DoubleNear(100, 3))) << "it has no wear, which is not 0";
    EXPECT_THAT(
        figures("SELECT count(*) FROM pragma_table_info('hour_diskhistory') WHERE name || ' ' || type || ' ' || pk IN "
                "('sample INTEGER 1', 'uuid TEXT 2', 'time REAL 0', 'temperature REAL 0', 'wear REAL 0')"),
        ElementsAre(5))
        << "another layout would be set aside";
    const std::string newest = "SELECT max(sample) FROM hour_diskidhistory";
    const double before = figures(newest)[0];
    machine.runtime.advance(1000);
    EXPECT_THAT(figures(newest), ElementsAre(before)) << "and not without";
    wanted = true;
    watchFor(60);
    EXPECT_GT(figures(newest)[0], before + 160) << "the gap counts";
}

} // namespace
} // namespace meridal::test
