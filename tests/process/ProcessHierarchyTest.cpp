#include "base/Value.h"
#include "tests/process/ProcessFixture.h"

#include <rapidcheck.h>

#include <functional>

namespace meridal {
namespace {

class ProcessHierarchyTest : public test::ProcessFixture {
protected:
    ProcessHierarchyTest() { set(1, 0, "launchd"); }
    std::vector<std::int32_t> childrenOf(std::int32_t pid)
    {
        std::vector<std::int32_t> pids;
        for (const auto* child : item(pid).children()) {
            pids.push_back(child->pid());
        }
        return pids;
    }
};

TEST_F(ProcessHierarchyTest, HelpersGoUnderTheirApp)
{
    set({{10, 1, "app"}, {11, 10, "renderer"}, {12, 1, "service of app"}, {13, 1, "daemon"}});
    source().responsible = {{12, 10}, {13, 13}, {11, 13}};
    update();
    EXPECT_EQ(childrenOf(10), std::vector<std::int32_t>({11, 12})) << "a parent other than launchd goes before";
    EXPECT_TRUE(item(13).root());
    EXPECT_TRUE(item(10).root()) << "launchd takes nobody in";
    EXPECT_EQ(item(12).controllingPid(), 10);
}

TEST_F(ProcessHierarchyTest, CommandsOfShellsAndTerminalsStayAlone)
{
    set({{10, 1, "Terminal"}, {11, 10, "bash"}, {12, 11, "make"}, {13, 12, "cc1plus"}, {14, 12, "sh"},
        {15, 12, "nginx"}});
    update();
    EXPECT_TRUE(item(11).root() && item(12).root() && item(14).root() && item(15).root());
    EXPECT_EQ(childrenOf(12), std::vector<std::int32_t>({13}));
}

TEST_F(ProcessHierarchyTest, OldReleasesKnowParentsOnly)
{
    machine.machine().release = {10, 8, 5};
    set({{11, 1, "bash"}, {12, 11, "make"}, {13, 1, "service"}});
    source().responsible = {{13, 12}};
    update();
    EXPECT_FALSE(item(12).root());
    EXPECT_TRUE(item(13).root());
    EXPECT_FALSE(Value::parse(collector().memoryProcesses(false)).contains("processes-footprint"));
}

TEST_F(ProcessHierarchyTest, OrphansHeadTheirOwnGroupAndNoStrangerAdoptsThem)
{
    for (const bool withinOneInterval : {false, true}) { // then the item is the same
        set({{10, 1, "app"}, {11, 10, "helper"}});
        updateAfter(2);
        ASSERT_FALSE(item(11).root());
        source().remove(10);
        if (!withinOneInterval) {
            updateAfter(2);
            EXPECT_TRUE(item(11).root());
        }
        set(10, 1, "newcomer"); // got the pid of the parent that ended
        row(10).startIdentity = 999;
        updateAfter(2);
        EXPECT_TRUE(item(11).root());
        EXPECT_TRUE(childrenOf(10).empty());
        source().remove(10);
        source().remove(11);
        updateAfter(2);
    }
}

TEST_F(ProcessHierarchyTest, CirclesAreCut)
{
    set({{10, 11}, {11, 10}, {12, 12}, {13, 15}, {14, 13}, {15, 14}, {16, 14}});
    update();
    EXPECT_TRUE(item(10).root() && item(12).root() && item(13).root());
    EXPECT_EQ(collector().ranked(ProcessFigure::Cpu, true, 100).size(), 4u);
}

TEST_F(ProcessHierarchyTest, LongChainsDoNotRecurse)
{
    constexpr std::int32_t length = 200'000;
    source().rows.clear();
    for (std::int32_t pid = 2; pid < length; ++pid) {
        source().rows.push_back(process(pid, pid - 1));
        source().rows.back().physFootprint = 1;
    }
    update();
    const auto rows = collector().ranked(ProcessFigure::Memory, true, 3);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].item->sharingTotalMemory(), length - 2);
    EXPECT_EQ(rows[0].item->totalMemoryUsage(), length - 2);
}

TEST_F(ProcessHierarchyTest, TotalsEqualANaiveRecursion)
{
    const std::function<double(const ProcessStatCollectorItem&)> naive = [&](const auto& each) {
        double sum = each.memory();
        if (each.sharingUseHierachy()) {
            for (const auto* child : each.children()) {
                sum += naive(*child);
            }
        }
        return sum;
    };
    EXPECT_TRUE(rc::check("any forest", [&](const std::vector<std::uint8_t>& parents) {
        ProcessStatCollector fresh(machine.context);
        fresh.setUpdateMask(test::everyList);
        source().rows.clear();
        for (std::size_t index = 0; index < parents.size(); ++index) {
            const auto pid = static_cast<std::int32_t>(100 + index);
            source().rows.push_back(
                process(pid, static_cast<std::int32_t>(90 + parents[index] % (parents.size() + 10))));
            source().rows.back().physFootprint = index + 1;
        }
        source().rows.push_back(process(1, 0, "launchd"));
        fresh.update();
        for (auto* each : fresh.processes()) {
            each->setSharingUseHierachy(each->pid() % 7 != 0);
        }
        fresh.setSharingUseHeirachy(true);
        fresh.updateTotals(ProcessFigure::Memory);
        for (const auto* each : fresh.processes()) {
            RC_ASSERT(each->sharingTotalMemory() == naive(*each));
            RC_ASSERT(each->totalMemoryUsage() == naive(*each));
        }
        fresh.setSharingUseHeirachy(false);
        fresh.updateTotals(ProcessFigure::Memory);
        for (const auto* each : fresh.processes()) {
            RC_ASSERT(each->sharingTotalMemory() == each->memory() && each->totalMemoryUsage() == each->memory());
        }
    }));
}

} // namespace
} // namespace meridal
