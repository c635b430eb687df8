// SPDX-License-Identifier: Apache-2.0
#include "collectors/applications/LargestGroups.h"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>

namespace meridal::test {
namespace {

using testing::ElementsAre;

/// Groups as the table has them: they come, use, are folded into "other" and come again.
struct TableOfGroups {
    TableOfGroups()
    {
        groups.resize(2);
        groups[0].kind = GroupKind::Other;
        groups[0].name = "other";
        groups[1].number = 1;
        groups[1].kind = GroupKind::Kernel;
        groups[1].name = "kernel";
    }
    GroupTotals& of(const std::string& name)
    {
        const auto found =
            std::find_if(groups.begin(), groups.end(), [&name](const auto& each) { return each.name == name; });
        if (found != groups.end()) {
            return *found;
        }
        GroupTotals& made = groups.emplace_back();
        made.number = ++last;
        made.identity = "exe:/" + name;
        made.name = name;
        made.now.processes = 1;
        return made;
    }
    void use(const std::string& name, std::uint64_t amount)
    {
        GroupSums& sums = of(name).sums;
        sums.cpuUserSeconds += static_cast<double>(amount);
        sums.bytesSent += amount * 1000;
        all += amount;
    }
    void fold(const std::string& name)
    {
        const auto found =
            std::find_if(groups.begin() + 2, groups.end(), [&name](const auto& each) { return each.name == name; });
        if (found != groups.end()) {
            groups[0].sums += found->sums;
            groups.erase(found);
        }
    }
    /// What the daemon's counting being switched off and on makes of it.
    void startOver() { *this = TableOfGroups{*this, 0}; }
    std::vector<const GroupTotals*> totals() const
    {
        std::vector<const GroupTotals*> pointers;
        for (const GroupTotals& group : groups) {
            pointers.push_back(&group);
        }
        return pointers;
    }

    std::vector<GroupTotals> groups;
    std::uint32_t last = 1;
    std::uint64_t all = 0;

private:
    TableOfGroups(const TableOfGroups& before, int) : TableOfGroups() { all = before.all; }
};

std::vector<std::string> namesOf(const std::vector<GroupTotals>& answer)
{
    std::vector<std::string> names;
    for (const GroupTotals& group : answer) {
        names.push_back(group.name);
    }
    return names;
}

RC_GTEST_PROP(LargestGroups, EveryCounterOnlyGrowsAndAllThatWasToldLastIsAllThatWasUsed, ())
{
    const auto count = *rc::gen::inRange<std::size_t>(1, 4);
    LargestGroups largest(count);
    TableOfGroups table;
    std::map<std::string, GroupSums> told;
    double now = 0;
    for (int question = *rc::gen::inRange(1, 60); question > 0; --question) {
        for (int step = *rc::gen::inRange(0, 5); step > 0; --step) {
            const std::string name(1, *rc::gen::inRange<char>('a', 'h'));
            switch (*rc::gen::inRange(0, 10)) {
            case 0:
                table.fold(name);
                break;
            case 1:
                table.use("kernel", 1);
                break;
            default:
                table.use(name, *rc::gen::inRange<std::uint64_t>(0, 1000));
                table.of(name).now.processes = *rc::gen::inRange(0U, 2U);
            }
        }
        now += *rc::gen::inRange(0, 100);
        const auto& answer = largest.take(table.totals(), now, now);
        RC_ASSERT(answer.size() <= count + 2);
        for (const GroupTotals& group : answer) {
            const auto before = std::exchange(told[group.name], group.sums);
            RC_ASSERT(group.sums.bytesSent >= before.bytesSent);
            RC_ASSERT(group.sums.cpuUserSeconds >= before.cpuUserSeconds);
        }
        GroupSums sum;
        for (const auto& [name, sums] : told) {
            sum += sums;
        }
        if (*rc::gen::inRange(0, 20) == 0) {
            table.startOver();
            largest.startOver();
        }
        RC_ASSERT(sum.bytesSent == table.all * 1000);
        RC_ASSERT(std::abs(sum.cpuUserSeconds - static_cast<double>(table.all)) < 1e-6);
    }
}

TEST(LargestGroups, ComeAndGoForWhatLastsAndNotForAPeak)
{
    LargestGroups largest(2);
    TableOfGroups table;
    double now = 1000;
    table.use("big", 100);
    table.use("middle", 50);
    table.use("small", 10);
    table.of("small").sums.joules = 3;
    EXPECT_THAT(namesOf(largest.take(table.totals(), now, 600)), ElementsAre("other", "kernel", "big", "middle"));
    const auto live = [&](int questions, std::uint64_t used) {
        std::vector<GroupTotals> answer;
        for (int question = 0; question < questions; ++question) {
            now += 15;
            table.use("big", 2);
            table.use("middle", 1);
            table.use("small", used);
            answer = largest.take(table.totals(), now, 0);
        }
        return answer;
    };
    EXPECT_EQ(namesOf(live(1, 150))[3], "middle") << "a peak of 15 s on ten processors";
    EXPECT_EQ(namesOf(live(20, 0))[3], "middle");
    auto answer = live(40, 4);
    ASSERT_THAT(namesOf(answer), ElementsAre("other", "kernel", "big", "small")) << "ten minutes, that is";
    const auto later = live(1, 4);
    EXPECT_EQ(later[3].sums.cpuUserSeconds, answer[3].sums.cpuUserSeconds + 4);
    EXPECT_EQ(later[0].sums.cpuUserSeconds, answer[0].sums.cpuUserSeconds + 1) << "what middle uses, from now on";
    EXPECT_EQ(later[0].sums.joules, 3);
    EXPECT_EQ(later[0].now.processes, 1U);

    table.of("big").now.processes = 0; // nothing of it is left, which is no reason
    EXPECT_THAT(namesOf(live(10, 0)), ElementsAre("other", "kernel", "big", "small"));
    table.fold("big");
    table.of("middle").now.processes = 1;
    EXPECT_THAT(namesOf(largest.take(table.totals(), now, 0)), ElementsAre("other", "kernel", "middle", "small"))
        << "there is room";
}

TEST(LargestGroups, AreKeptForFewWhoAsk)
{
    LargestGroupsByAsker askers;
    using Asker = LargestGroupsByAsker::Asker;
    const Asker scraper{7U, std::nullopt, 50};
    const LargestGroups* kept = &askers.of(scraper, 0);
    for (std::size_t count = 1; count < 100; ++count) {
        askers.of(Asker{1000U, 1000U, count}, 1 + static_cast<double>(count));
    }
    EXPECT_EQ(askers.size(), LargestGroupsByAsker::mostStates);
    EXPECT_EQ(&askers.of(scraper, 3600), kept) << "one who asks in a hundred ways takes nothing from others";
    askers.forgetIdle(3600 + LargestGroupsByAsker::idleFor);
    EXPECT_EQ(askers.size(), 1U);
    askers.forgetIdle(3601 + LargestGroupsByAsker::idleFor);
    EXPECT_EQ(askers.size(), 0U);
}

} // namespace
} // namespace meridal::test
