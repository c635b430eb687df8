// SPDX-License-Identifier: Apache-2.0
// Which rows of the process table somebody gets to see, in which order and with what in them.

#include "collectors/process/ProcessTableQuery.h"
#include "tests/process/ProcessFixture.h"

#include <map>

namespace meridal::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Tells texts out of maps, and counts how often it was asked for command lines.
struct ToldTexts final : ProcessTexts {
    std::string name(ProcessStatCollectorItem& item, bool) override { return std::string(item.name()); }
    std::string_view command(const ProcessStatCollectorItem& item) override
    {
        ++commandsAsked;
        return commands[item.pid];
    }
    std::string unit(const ProcessStatCollectorItem& item) override { return units[item.pid]; }
    std::string user(const ProcessStatCollectorItem& item) override { return item.user() == 7U ? "anna" : "root"; }

    std::map<std::int32_t, std::string> commands;
    std::map<std::int32_t, std::string> units;
    int commandsAsked = 0;
};

/// Five processes, of which 20 to 22 are a group: 21 and 22 were started by 20.
class ProcessTableRows : public ProcessFixture {
protected:
    ProcessTableRows()
    {
        set({{1, 0, "init"}, {10, 1, "zsh"}, {20, 1, "Browser"}, {21, 20, "renderer"}, {22, 20, "renderer"}});
        machine.processes().responsible = {{21, 20}, {22, 20}};
        texts.commands = {{10, "-zsh"}, {20, "/opt/browser --open"}, {21, "/opt/browser --type=a"}, {22, ""}};
        for (const auto& [pid, user, threads] : std::initializer_list<std::tuple<int, unsigned, unsigned>>{
                 {1, 0, 1}, {10, 7, 2}, {20, 7, 40}, {21, 7, 5}, {22, 7, 9}}) {
            row(pid).user = user;
            row(pid).threads = threads;
            row(pid).physFootprint = row(pid).residentSize = static_cast<std::uint64_t>(pid) * 1000;
        }
        update();
        source().work(10, {.cpu = 1});
        source().work(20, {.cpu = 0.2});
        source().work(21, {.cpu = 0.9, .read = 4000});
        source().work(22, {.cpu = 0.9});
        updateAfter(2);
        query.columns = {ProcessColumn::Cpu, ProcessColumn::Threads, ProcessColumn::Resident, ProcessColumn::DiskRead};
    }
    std::vector<std::int32_t> pids(const ProcessView& view = {})
    {
        selection.select(collector().table(), view, query, {}, texts);
        std::vector<std::int32_t> all;
        for (const auto& row : selection.rows()) {
            all.push_back(row.item->pid);
        }
        return all;
    }
    std::vector<std::int32_t> sortedBy(ProcessColumn column, bool isReversed = false)
    {
        query.sort = column;
        query.isReversed = isReversed;
        return pids();
    }
    double figure(std::size_t row, ProcessColumn column)
    {
        return selection.figure(selection.rows()[row], column).value_or(absent);
    }

    ToldTexts texts;
    ProcessTableQuery query;
    ProcessSelection selection;
};

TEST_F(ProcessTableRows, AreSortedByAnyColumnWithWhatIsNotKnownBehind)
{
    EXPECT_THAT(pids(), ElementsAre(10, 21, 22, 20, 1)) << "the busiest first, equal ones as they came";
    EXPECT_EQ(texts.commandsAsked, 0) << "what is not shown is not asked for";
    EXPECT_THAT(sortedBy(ProcessColumn::Cpu, true), ElementsAre(1, 20, 21, 22, 10));
    EXPECT_THAT(sortedBy(ProcessColumn::Pid), ElementsAre(1, 10, 20, 21, 22));
    EXPECT_THAT(sortedBy(ProcessColumn::Threads), ElementsAre(20, 22, 21, 10, 1));
    EXPECT_THAT(sortedBy(ProcessColumn::Name), ElementsAre(20, 1, 21, 22, 10)) << "small letters and large alike";
    EXPECT_THAT(sortedBy(ProcessColumn::Command), ElementsAre(10, 20, 21, 1, 22));
    EXPECT_THAT(sortedBy(ProcessColumn::Command, true), ElementsAre(21, 20, 10, 1, 22));
    set(30, 1, "new");
    updateAfter(2);
    EXPECT_EQ(sortedBy(ProcessColumn::Cpu).back(), 30);
    EXPECT_EQ(sortedBy(ProcessColumn::Cpu, true).back(), 30);
    EXPECT_EQ(figure(5, ProcessColumn::Cpu), absent);
}

TEST_F(ProcessTableRows, PagesHaveNoGapAndAgreeWithTheWhole)
{
    const auto all = pids();
    std::vector<std::int32_t> paged;
    query.limit = 2;
    for (query.offset = 0; query.offset < 8; query.offset += 2) {
        const auto page = pids();
        paged.insert(paged.end(), page.begin(), page.end());
        EXPECT_EQ(selection.total(), all.size());
    }
    EXPECT_EQ(paged, all);
}

TEST_F(ProcessTableRows, AreFilteredByWhatPeopleKnow)
{
    const auto filtered = [this](const ProcessFilter& filter) {
        query.filter = filter;
        return pids();
    };
    EXPECT_THAT(filtered({.any = TextFilter("BROWSER")}), ElementsAre(21, 20)) << "name or command line";
    EXPECT_THAT(filtered({.name = TextFilter("render")}), ElementsAre(21, 22));
    EXPECT_THAT(filtered({.name = TextFilter("render"), .command = TextFilter("type=")}), ElementsAre(21)) << "both";
    EXPECT_THAT(filtered({.command = TextFilter(*Pattern::of("^-|open$"))}), ElementsAre(10, 20));
    EXPECT_THAT(filtered({.user = "anna"}), ElementsAre(10, 21, 22, 20));
    EXPECT_THAT(filtered({.user = "0"}), ElementsAre(1));
    EXPECT_THAT(filtered({.user = "ann"}), IsEmpty());
    EXPECT_THAT(filtered({.pid = 22}), ElementsAre(22));
    texts.units = {{10, "unit:getty@.service"}};
    EXPECT_THAT(filtered({.unit = TextFilter("getty")}), ElementsAre(10));
}

TEST_F(ProcessTableRows, GroupsHaveTheSumsOfAllOfThem)
{
    query.grouped = true;
    EXPECT_THAT(pids(), ElementsAre(20, 10, 1));
    EXPECT_NEAR(figure(0, ProcessColumn::Cpu), 100, 1e-6);
    EXPECT_EQ(figure(0, ProcessColumn::Threads), 54);
    EXPECT_EQ(figure(0, ProcessColumn::Resident), 63'000);
    EXPECT_EQ(figure(0, ProcessColumn::DiskRead), 2000);
    EXPECT_THAT(sortedBy(ProcessColumn::Resident), ElementsAre(20, 10, 1));
    query.filter = {.name = TextFilter("render")};
    EXPECT_THAT(pids(), ElementsAre(20)) << "of whom anybody passes";
    EXPECT_EQ(figure(0, ProcessColumn::Threads), 54) << "and all count";

    query = {.columns = query.columns, .sort = ProcessColumn::Pid, .group = 20};
    EXPECT_THAT(pids(), ElementsAre(20, 21, 22));
    EXPECT_EQ(figure(2, ProcessColumn::Group), 20);
}

TEST_F(ProcessTableRows, WhoMaySeeSomeOnlySeesThoseAndTheirSums)
{
    const std::unordered_set<std::int32_t> shown = {10, 21, 22};
    query.grouped = true;
    EXPECT_THAT(pids({.shown = &shown}), ElementsAre(10, 21, 22)) << "their head is hidden, so each stands alone";
    EXPECT_EQ(figure(1, ProcessColumn::Threads), 5);
    query.grouped = false;
    query.filter = {.command = TextFilter("browser")};
    EXPECT_THAT(pids({.shown = &shown}), ElementsAre(21));
    EXPECT_EQ(selection.total(), 1U);
}

} // namespace
} // namespace meridal::test
