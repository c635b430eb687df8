// SPDX-License-Identifier: Apache-2.0
#include "daemon/DiskService.h"

#include "daemon/MeridalHistory.h"
#include "tests/disks/DiskFixture.h"

namespace meridal::test {
namespace {

using testing::_;
using testing::ElementsAre;

class DiskServiceTest : public DiskTest {
protected:
    DiskServiceTest()
    {
        service.setWanted([this] { return wanted; });
        service.addTo(methods, catalogue);
    }
    std::optional<Result<Value>> ask(const char* parameters)
    {
        std::optional<Result<Value>> answer;
        service.list(
            parseUntrusted(parameters).value(), [&](Result<Value> result) { answer.emplace(std::move(result)); });
        machine.runtime.runDue();
        return answer;
    }
    std::vector<std::string> seriesOf(const char* name)
    {
        std::vector<std::string> keys;
        for (const HistorySeries& series : catalogue.entries().find(name)->second.describe()) {
            keys.push_back(series.key + ' ' + series.name + ' ' + series.unit);
        }
        return keys;
    }

    DiskService service{*collector};
    MeridalHistory methods{machine.runtime.mainQueue()};
    HistoryCatalogue catalogue;
};

TEST_F(DiskServiceTest, TheListIsReadFirstWhileSomebodyHoldsAKey)
{
    const auto ata = plugATA("root/ata/sda", "WX1");
    ata->data = dataPage({{.attributeID = 5, .flags = 0x33, .current = 3, .worst = 3, .raw = 1999},
        {.attributeID = 194, .raw = 40}, {.attributeID = 253, .raw = 7}});
    const auto nvme = plugNVMe("root/pci/nvme0", "S5GX");
    nvme->health = healthPage({.warning = 5, .used = 101});
    wanted = false;
    EXPECT_EQ((**ask("null"))["disks"].size(), 0U);
    EXPECT_EQ(ata->questions(), 0);
    wanted = true;
    service.load();
    Value disks = (**ask(R"([{"attributes":true}])"))["disks"];
    EXPECT_THAT(disks, ElementsAre(hasMembers({{"temperature", 40}}), hasMembers({{"healthy", false}, {"wear", 101}})));
    EXPECT_THAT(disks[0]["attributes"],
        ElementsAre(hasMembers({{"status", "failing"}}), _, hasMembers({{"name", "Attribute 253"}})));
    ASSERT_EQ(disks[0]["problems"].size(), 1U);
    EXPECT_TRUE(disks[0]["problems"][0].get<std::string>().starts_with("Reallocated sectors is below its threshold: "));
    EXPECT_EQ(disks[1]["problems"].size(), 3U) << "a bit each, and its life";
    EXPECT_THAT(disks[1]["log"], hasMembers({{"busyTime", 3600}, {"writeCommands", 5000}}));
    disks = (**ask("{}"))["disks"];
    EXPECT_EQ(disks[0]["attributes"].size(), 1U) << "what is wrong, and no more";
}

TEST_F(DiskServiceTest, WhoAsksOftenCausesNoMoreReadings)
{
    const auto nvme = plugNVMe("root/pci/nvme0", "S5GX");
    service.load();
    for (int second = 0; second < 60; ++second) {
        ask("null");
        ask(R"({"after":"S5GX"})");
        machine.runtime.advance(1);
    }
    EXPECT_EQ(nvme->asked["readHealthLog"], 2 * 2) << "at once and after 30 s, each time twice";
    ask(R"({"after":"S5GX"})");
    EXPECT_EQ(nvme->asked["readHealthLog"], 2 * 2) << "a further page shows what the first one did";
    const auto late = plugNVMe("root/pci/nvme1", "S5GY");
    ask("null");
    machine.disks().observers.tell();
    EXPECT_EQ((**ask("null"))["disks"][1]["wear"], 3) << "a new one does not wait";
}

TEST_F(DiskServiceTest, TheListComesInPagesAndRefusesNonsense)
{
    for (const char* serial : {"A", "B", "C"}) {
        plugATA(std::string("root/ata/") + serial, serial);
    }
    service.load();
    const Value first = **ask(R"({"limit":2})");
    EXPECT_THAT(first["disks"], ElementsAre(hasMembers({{"key", "A"}}), hasMembers({{"key", "B"}})));
    EXPECT_EQ(first["more"], true);
    const Value rest = **ask(R"({"limit":2,"after":"B"})");
    EXPECT_THAT(rest["disks"], ElementsAre(hasMembers({{"key", "C"}})));
    EXPECT_EQ(rest["more"], false);
    EXPECT_EQ(ask(R"({"after":"Z"})")->error().code, ErrorCode::NotFound);
    for (const char* wrong : {"7", R"({"limit":65})", R"({"limit":0})", R"({"after":1})", R"({"attributes":1})"}) {
        EXPECT_EQ(ask(wrong)->error().code, ErrorCode::InvalidArgument) << wrong;
    }
}

TEST_F(DiskServiceTest, HistoryIsOfferedWithoutAskingADisk)
{
    wanted = false;
    const auto ata = plugATA("root/ata/sda", "WX1");
    const auto nvme = plugNVMe("root/pci/nvme0", "S5GX");
    EXPECT_EQ(seriesOf("disks"), (std::vector<std::string>{"WX1 WDC WD40EFRX °C", "S5GX FAST 1000 °C"}));
    EXPECT_EQ(seriesOf("wear"), (std::vector<std::string>{"WX1 WDC WD40EFRX %", "S5GX FAST 1000 %"}));
    EXPECT_EQ(ata->questions() + nvme->questions(), 0);
    wanted = true;
    start();
    EXPECT_EQ(seriesOf("wear"), (std::vector<std::string>{"S5GX FAST 1000 %"})) << "it was read and has none";
    wanted = false;
    const auto spinning = plugATA("root/ata/sdb", "WX2");
    spinning->record.rotational = true;
    machine.disks().observers.tell();
    EXPECT_EQ(seriesOf("wear").size(), 1U);
    EXPECT_EQ(seriesOf("disks").size(), 3U);
}

} // namespace
} // namespace meridal::test
