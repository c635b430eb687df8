// SPDX-License-Identifier: Apache-2.0
#include "base/Value.h"
#include "tests/process/ProcessFixture.h"

#include <rapidcheck.h>

#include <algorithm>
#include <array>
#include <map>
#include <unordered_set>

namespace meridal {
namespace {

using test::absent;
using test::FakeProcessSource;

class ProcessHierarchyTest : public test::ProcessFixture {
protected:
    ProcessHierarchyTest() { set(1, 0, "launchd"); }
    std::vector<std::int32_t> childrenOf(std::int32_t pid)
    {
        std::vector<std::int32_t> pids;
        for (const auto* child : collector().processes()) {
            if (child->controller == &item(pid)) {
                pids.push_back(child->pid);
            }
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
    EXPECT_EQ(item(12).controllingPid, 10);
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
            const auto group = wanted.find(each->pid);
            EXPECT_EQ(childrenOf(each->pid), group == wanted.end() ? Pids() : group->second) << each->pid;
        }
    };
    expectGroups(groups);
    EXPECT_TRUE(item(62).root()) << "a session is no application";

    source().unitNames = {{3, ""}, {5, "web"}};
    std::vector<std::string> names;
    for (const bool grouped : {true, false}) {
        for (const std::int32_t pid : {20, 40}) {
            names.emplace_back(collector().sharingNameForProcess(*collector().processForPid(pid), grouped));
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
    EXPECT_FALSE(Value::parse(collector().memoryProcesses({})).contains("processes-footprint"));
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
    EXPECT_EQ(ranked(ProcessFigure::cpu, {.grouped = true}).size(), 4u);
}

TEST_F(ProcessHierarchyTest, LongChainsTakeNoLongerThanAnythingElse)
{
    constexpr std::int32_t length = 200'000;
    for (const std::int32_t first : {2, 2 + length}) {
        source().rows.clear();
        for (std::int32_t pid = first; pid < first + length; ++pid) {
            source().rows.push_back(FakeProcessSource::process(pid, pid - 1));
            source().rows.back().physFootprint = 1;
        }
        if (first != 2) { // children first
            std::reverse(source().rows.begin(), source().rows.end());
        }
        updateAfter(2);
        const auto rows = ranked(ProcessFigure::memory, {.grouped = true});
        ASSERT_EQ(rows.size(), 1U);
        EXPECT_EQ(rows[0].item->pid, first);
        EXPECT_EQ(rows[0].totals[0], length);
    }
}

/// Against the plain way: each one that is shown counts for the last above it that is, and all are sorted.
TEST_F(ProcessHierarchyTest, RankingsFollowTableViewAndFigureAlone)
{
    EXPECT_TRUE(rc::check("any forest, any view",
        [&](const std::vector<std::uint8_t>& parents, const std::unordered_set<std::uint8_t>& someShown) {
            ProcessStatCollector fresh(machine.context);
            fresh.setUpdateMask(test::everyList);
            ProcessRanking ranking;
            source().rows.clear();
            for (std::size_t index = 0; index < parents.size(); ++index) {
                const auto parent = static_cast<std::int32_t>(90 + parents[index] % (parents.size() + 10));
                ProcessRecord& row = source().rows.emplace_back(
                    FakeProcessSource::process(static_cast<std::int32_t>(100 + index), parent));
                row.physFootprint = index % 3;
                row.present = index % 5 == 0 ? ProcessFields::Cpu : ProcessFields::All;
            }
            source().rows.push_back(FakeProcessSource::process(1, 0, "launchd"));
            fresh.update();
            const std::unordered_set<std::int32_t> pids(someShown.begin(), someShown.end());
            for (const ProcessView& view :
                {ProcessView{true, nullptr}, {true, &pids}, {false, nullptr}, {false, &pids}}) {
                const auto sees = [&](const ProcessStatCollectorItem& each) {
                    return !view.shown || view.shown->contains(each.pid);
                };
                std::map<const ProcessStatCollectorItem*, std::optional<double>> totals;
                for (const auto* each : fresh.processes()) {
                    const auto* head = each;
                    while (view.grouped && head->controller && sees(*head->controller)) {
                        head = head->controller;
                    }
                    if (sees(*each)) {
                        auto& total = totals[head];
                        total = each->figures.memory ? total.value_or(0) + *each->figures.memory : total;
                    }
                }
                std::vector<std::pair<double, std::uint32_t>> wanted;
                for (const auto& [head, total] : totals) {
                    wanted.emplace_back(-total.value_or(absent), head->place);
                }
                std::sort(wanted.begin(), wanted.end());
                ranking.sum(fresh.table(), view, std::array{ProcessFigure::cpu, ProcessFigure::memory});
                std::vector<std::pair<double, std::uint32_t>> got;
                for (const auto& row : ranking.first(1, unlimitedProcesses)) {
                    got.emplace_back(-row.totals[1].value_or(absent), row.item->place);
                }
                RC_ASSERT(got == wanted);
                const auto few = ranking.first(1, 3);
                RC_ASSERT(few.size() == std::min<std::size_t>(3, wanted.size()));
                const bool isSame = few.empty() || few.back().item->place == wanted[few.size() - 1].second;
                RC_ASSERT(isSame);
            }
        }));
}

} // namespace
} // namespace meridal
