#include "base/Value.h"
#include "tests/process/ProcessFixture.h"

#include <rapidcheck.h>

#include <functional>
#include <map>

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

TEST_F(ProcessHierarchyTest, WhatHasAUnitOfItsOwnIsNoPartOfWhoStartedIt)
{
    using Kind = ProcessUnitKind;
    const struct {
        ProcessUnit unit;
        std::vector<Kin> processes;
    } units[] = {
        {{1, Kind::Shared}, {{1, 0, "launchd"}}},
        {{2, Kind::Application}, {{10, 1, "gnome-shell"}, {11, 10, "helper"}, {12, 10, "just launched"}}},
        {{3, Kind::Application}, {{20, 10, "firefox"}, {21, 20, "tab"}, {22, 21, "sandbox"}}},
        {{4, Kind::Application}, {{30, 1, "containerd"}, {31, 1, "shim"}}},
        {{5, Kind::Container}, {{40, 31, "sh"}, {41, 40, "nginx"}, {42, 31, "bash"}, {43, 42, "ls"}}},
        {{6, Kind::Container}, {{50, 31, "launchd"}, {51, 50, "cron"}, {52, 50, "sh"}}},
        {{7, Kind::Shared}, {{60, 10, "session"}, {61, 60, "bash"}, {62, 1, "left behind"}}},
    };
    for (const auto& [unit, processes] : units) {
        for (const auto& each : processes) {
            set(each.pid, each.parent, each.name);
            row(each.pid).unit = unit;
        }
    }
    update();
    using Pids = std::vector<std::int32_t>;
    const std::map<std::int32_t, Pids> groups = {
        {10, {11, 12}}, {20, {21}}, {21, {22}}, {30, {31}}, {40, {41, 42}}, {42, {43}}, {50, {51, 52}}, {60, {61}}};
    const auto expectGroups = [&](const std::map<std::int32_t, Pids>& wanted) {
        for (const auto* each : collector().processes()) {
            const auto group = wanted.find(each->pid());
            EXPECT_EQ(childrenOf(each->pid()), group == wanted.end() ? Pids() : group->second) << each->pid();
        }
    };
    expectGroups(groups);
    EXPECT_TRUE(item(62).root()) << "a session is no application";

    source().unitNames = {{3, ""}, {5, "web"}};
    std::vector<std::string> names;
    for (const bool grouped : {true, false}) {
        for (const auto& each : collector().ranked(ProcessFigure::Cpu, grouped, 100)) {
            if (each.item->pid() == 20 || each.item->pid() == 40) {
                names.push_back(each.name);
            }
        }
    }
    EXPECT_EQ(names, std::vector<std::string>({"firefox", "web", "firefox", "sh"}));

    // A scope is made for what was launched, and nothing else happens.
    row(12).unit = {8, Kind::Application};
    updateAfter(2);
    auto moved = groups;
    moved[10] = {11};
    expectGroups(moved);
    // The first of a unit ends: the next one takes its place.
    source().remove(20);
    updateAfter(2);
    moved.erase(20);
    expectGroups(moved);
    EXPECT_TRUE(item(21).root());
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
