// SPDX-License-Identifier: Apache-2.0
// What the record answers, with what waits to be written.

#include "tests/applications/ApplicationFixture.h"

namespace meridal::test {
namespace {

class ApplicationReaderTest : public ApplicationTest {
protected:
    ApplicationReaderTest()
    {
        begin_ = now();
        totals_.group("kernel").sums.cpuSystemSeconds = 5;
        pass(3 * hour, 30, [&] {
            for (int number = 0; number < 50; ++number) {
                use(fmt::format("exe:/bin/{}", number), 0.01 * (number + 1),
                    1000U * static_cast<unsigned>(50 - number));
            }
        });
    }
    TotalsQuestion question(RecordStep step, RankedBy by = RankedBy::Cpu)
    {
        return {.from = begin_, .until = now(), .step = step, .by = by, .whose = {}, .after = {}};
    }
    static std::vector<std::string> names(const std::vector<RecordedGroup>& groups)
    {
        std::vector<std::string> all;
        for (const RecordedGroup& group : groups) {
            all.push_back(group.name);
        }
        return all;
    }
    double begin_ = 0;
};

TEST_F(ApplicationReaderTest, TotalsOfEveryStepAreAllThatWasGivenLargestFirst)
{
    machine_.runtime.advance(10);
    use("exe:/bin/new", 1000); // in no file yet
    record();
    for (const RecordStep step : recordSteps) {
        SCOPED_TRACE(traitsOf(step).name);
        TotalsQuestion asked = question(step);
        asked.limit = 7;
        std::vector<RecordedGroup> all;
        for (int page = 0; page < 20; ++page) {
            const RecordedTotals totals = this->totals(asked);
            EXPECT_EQ(totals.from, startOf(step, begin_));
            EXPECT_EQ(totals.until, endOf(step, startOf(step, now() - 1)));
            all.insert(all.end(), totals.groups.begin(), totals.groups.end());
            asked.after = totals.next;
            if (!totals.next) {
                break;
            }
            EXPECT_EQ(totals.groups.size(), 7U);
        }
        ASSERT_GE(all.size(), 33U);
        EXPECT_EQ(names(all)[0], "exe:/bin/new");
        EXPECT_EQ(names(all)[1], "exe:/bin/49");
        EXPECT_EQ(all[all.size() - 2].kind, GroupKind::Other);
        EXPECT_EQ(all.back().kind, GroupKind::Kernel);
        EXPECT_FALSE(all[all.size() - 2].memoryPeakBytes) << "nobody knows";
        GroupSums sums;
        for (const RecordedGroup& group : all) {
            sums += group.sums;
        }
        EXPECT_NEAR(sums.cpuSeconds(), static_cast<double>(given_) / 1000 + 5, 1e-6);
        EXPECT_EQ(sums.bytesReceived, 360U * 1000 * 1275);
    }
    EXPECT_EQ(names(totals(question(RecordStep::Hour, RankedBy::Network)).groups)[0], "exe:/bin/0");
    EXPECT_EQ(totals({.from = begin_ - day, .until = begin_ - hour, .whose = {}, .after = {}}).until, 0);
}

TEST_F(ApplicationReaderTest, ViewersSeeTheirOwnAndTheKernel)
{
    totals_.group("exe:/bin/theirs", 1001).sums.cpuUserSeconds = 3;
    pass(30);
    TotalsQuestion asked = question(RecordStep::Hour);
    asked.whose.viewer = 1001;
    EXPECT_EQ(names(totals(asked).groups), (std::vector<std::string>{"exe:/bin/theirs", "kernel"}));
    asked.whose = {.viewer = {}, .owner = 1001};
    EXPECT_EQ(names(totals(asked).groups), std::vector<std::string>{"exe:/bin/theirs"});
    const auto isKnown = [this](const std::string& identity, std::uint32_t viewer) {
        return course({.from = begin_,
                          .until = now(),
                          .identity = identity,
                          .whose = {.viewer = viewer, .owner = {}},
                          .after = {}})
            .isKnown;
    };
    EXPECT_TRUE(isKnown("exe:/bin/theirs", 1001));
    EXPECT_FALSE(isKnown("exe:/bin/theirs", 1000));
    EXPECT_FALSE(isKnown("other", 1000));
    EXPECT_EQ(names(moment(now() - 10, 1001).groups), (std::vector<std::string>{"exe:/bin/theirs", "kernel"}));
}

TEST_F(ApplicationReaderTest, ACourseHasEachPeriodOnce)
{
    for (const auto& [step, count] :
        {std::pair(RecordStep::Minute, 180), {RecordStep::Quarter, 12}, {RecordStep::Hour, 3}}) {
        CourseQuestion asked{.from = begin_,
            .until = now(),
            .step = step,
            .identity = "exe:/bin/49",
            .whose = {},
            .limit = 5,
            .after = {}};
        double cpu = 0;
        int periods = 0;
        for (bool more = true; more;) {
            const RecordedCourse page = course(asked);
            for (const RecordedCourse::Period& period : page.periods) {
                EXPECT_EQ(period.start, begin_ + periods++ * traitsOf(step).seconds);
                EXPECT_EQ(period.seconds, traitsOf(step).seconds);
                cpu += period.group.sums.cpuSeconds();
            }
            more = page.more;
            asked.after = page.periods.back().start;
            EXPECT_EQ(page.group.owner, 1000U);
        }
        EXPECT_EQ(periods, count) << traitsOf(step).name;
        EXPECT_NEAR(cpu, 360 * 0.5, 1e-6);
    }
    // The users of a name are one course, until somebody asks for one of them.
    totals_.group("exe:/bin/49", 1001).sums.cpuUserSeconds = 3;
    pass(60);
    CourseQuestion asked{.from = now() - 60,
        .until = now(),
        .step = RecordStep::Minute,
        .identity = "exe:/bin/49",
        .whose = {},
        .after = {}};
    EXPECT_FALSE(course(asked).group.owner);
    EXPECT_EQ(course(asked).periods.at(0).seconds, 60);
    EXPECT_EQ(course(asked).periods.at(0).group.sums.cpuSeconds(), 3);
    asked.whose.owner = 1000;
    EXPECT_EQ(course(asked).group.owner, 1000U);
}

TEST_F(ApplicationReaderTest, AMomentIsItsMinuteWithTheProcessesOfThen)
{
    const auto number = totals_.group("exe:/bin/49").number;
    const double minute = startOf(RecordStep::Minute, now());
    pass(60, 10, [&] { use("exe:/bin/49", 1); });
    recorder_->recordMinute(now(),
        {{.pid = 7, .startTime = 1.5e9, .name = "work", .group = number, .cpuSeconds = 2.5, .memoryBytes = 9},
            {.pid = 8, .startTime = 2, .name = "gone", .group = 4711, .diskBytes = 3}});
    pass(60);
    recorder_->recordMinute(now(), {{.pid = 9, .name = "later", .group = number}});
    const RecordedMoment then = moment(minute + 59);
    EXPECT_EQ(then.from, minute);
    EXPECT_EQ(then.until, minute + 60);
    ASSERT_EQ(then.processes.size(), 2U);
    EXPECT_EQ(then.processes[0].pid, 7);
    EXPECT_EQ(then.processes[0].startTime, 1.5e9);
    EXPECT_EQ(then.processes[0].cpuSeconds, 2.5);
    EXPECT_EQ(then.processes[0].groupName, "exe:/bin/49");
    EXPECT_EQ(then.groups.at(then.processes[0].group).identity, "exe:/bin/49");
    EXPECT_EQ(then.groups.at(then.processes[1].group).kind, GroupKind::Other);
    EXPECT_EQ(moment(minute + 60).processes.at(0).name, "later");
    EXPECT_EQ(moment(minute + 59, 1000).processes.size(), 1U) << "whose the other was nobody knows";
    EXPECT_TRUE(moment(minute + 59, 1001).processes.empty());
    EXPECT_EQ(moment(begin_ - 1).until, 0);
    // When minutes are not kept any more, a coarser period has it; while the machine slept, none.
    machine_.clockSource().synchronised = true;
    machine_.runtime.sleepMachine(3 * day);
    pass(2 * hour, 600);
    EXPECT_EQ(moment(minute + 59).until - moment(minute + 59).from, 900);
    EXPECT_EQ(moment(now() - day).until, 0);
}

} // namespace
} // namespace meridal::test
