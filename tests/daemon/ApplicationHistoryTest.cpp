// SPDX-License-Identifier: Apache-2.0
// What clients ask of the record of applications, answered from a real file.

#include "daemon/ApplicationHistory.h"
#include "collectors/process/ProcessStatCollector.h"
#include "daemon/ProcessViews.h"
#include "tests/applications/ApplicationFixture.h"
#include "wire/Link.h"

namespace meridal::test {
namespace {

class ApplicationHistoryTest : public ApplicationTest {
protected:
    ApplicationHistoryTest()
    {
        views_.beginPass();
        totals_.group("kernel").sums.joules = 1;
        pass(hour, 30, [&] {
            for (int number = 0; number < 40; ++number) {
                use(fmt::format("exe:/bin/{}", number), 0.1 * (number + 1), 100);
            }
            totals_.group("exe:/bin/39").sums.joules = totals_.group("exe:/bin/39").sums.joules.value_or(0) + 0.5;
            totals_.group("exe:/bin/39").now = {.residentBytes = 5'000, .footprintBytes = 4'000, .processes = 3};
        });
    }
    Result<Value> ask(const Value& parameters, std::uint32_t uid = 0)
    {
        Result<Value> answer = unexpected(ErrorCode::Internal, "no reply");
        questions_.history(parameters, {.uid = uid, .gid = uid, .known = true},
            [&](Result<Value> reply) { answer = std::move(reply); });
        machine_.runtime.runDue();
        return answer;
    }
    ErrorCode refusal(const Value& parameters, std::uint32_t uid = 0)
    {
        const auto answer = ask(parameters, uid);
        EXPECT_FALSE(answer) << parameters;
        return answer ? ErrorCode::Internal : answer.error().code;
    }

    ProcessStatCollector processes_{machine_.context};
    ProcessViews views_{machine_.context, processes_};
    ApplicationHistory questions_{machine_.context, *recorder_, views_};
};

TEST_F(ApplicationHistoryTest, TotalsComeInPagesWithOtherAndKernelLast)
{
    Value question{{"by", "cpu"}, {"limit", 25}};
    std::vector<std::string> names;
    double cpu = 0;
    for (bool more = true; more;) {
        const auto page = ask(question);
        ASSERT_TRUE(page) << page.error().message;
        EXPECT_EQ(page->at("step"), "quarter"); // the finest that has a day in 500 periods
        EXPECT_EQ(page->at("from"), now() - hour);
        EXPECT_EQ(page->at("until"), now());
        for (const Value& group : page->at("groups")) {
            names.push_back(group.at("group"));
            cpu += group.at("cpuUser").get<double>() + group.at("cpuSystem").get<double>();
        }
        more = page->at("more").get<bool>();
        EXPECT_EQ(more, page->contains("next"));
        question["after"] = page->value("next", Value());
    }
    EXPECT_EQ(names.front(), "exe:/bin/39");
    EXPECT_EQ(names[names.size() - 2], "other");
    EXPECT_EQ(names.back(), "kernel");
    EXPECT_NEAR(cpu, static_cast<double>(given_) / 1000, 1e-6);
    const Value largest = ask({{"limit", 1}})->at("groups")[0];
    const Value expected = parseUntrusted(
        R"({"group":"exe:/bin/39","name":"exe:/bin/39","kind":"application","user":1000,"cpuUser":480.0,"cpuSystem":0.0,)"
        R"("diskRead":0,"diskWritten":0,"received":12000,"sent":0,"wakeups":0,"energyScore":0.0,"joules":60.0,)"
        R"("started":0,"ended":0,"memory":4000,"memoryPeak":4000,"processesPeak":3})")
                               .value();
    EXPECT_EQ(largest, expected);
}

TEST_F(ApplicationHistoryTest, OneGroupHasItsCourse)
{
    Value question{{"group", "exe:/bin/39"}, {"step", "minute"}, {"limit", 40}};
    const Value first = ask(question).value();
    EXPECT_EQ(first.at("user"), 1000);
    EXPECT_EQ(first.at("kind"), "application");
    ASSERT_EQ(first.at("periods").size(), 40U);
    EXPECT_EQ(first.at("periods")[0].at("time"), now() - hour);
    EXPECT_EQ(first.at("periods")[0].at("seconds"), 60);
    EXPECT_EQ(first.at("periods")[0].at("cpuUser"), 8);
    question["after"] = first.at("next");
    const Value second = ask(question).value();
    EXPECT_EQ(second.at("periods").size(), 20U);
    EXPECT_EQ(second.at("more"), false);
}

TEST_F(ApplicationHistoryTest, RestrictedUsersSeeTheirOwn)
{
    machine_.visibility().rule = ProcessRestriction{.exemptGroup = 27};
    machine_.runtime.advance(ProcessViews::checkInterval);
    views_.beginPass();
    EXPECT_EQ(ask(Value(), 1001)->at("groups").size(), 1U) << "the kernel";
    const Value own = ask({{"limit", 100}}, 1000)->at("groups");
    EXPECT_GT(own.size(), 30U);
    EXPECT_NE(own[own.size() - 2].at("kind"), "other");
    EXPECT_EQ(own.back().at("kind"), "kernel");
    EXPECT_EQ(refusal({{"group", "exe:/bin/39"}}, 1001), ErrorCode::NotFound);
    EXPECT_TRUE(ask({{"group", "exe:/bin/39"}}, 0));
}

TEST_F(ApplicationHistoryTest, NonsenseIsRefusedInWords)
{
    for (const char* unknown : {"exe:/bin/none", "'; DROP TABLE application_map; --", "\xff\xfe", ""}) {
        EXPECT_EQ(refusal({{"group", unknown}}), ErrorCode::NotFound);
    }
    for (const Value& wrong :
        {Value{{"from", now()}, {"until", now() - 1}}, Value{{"from", now() + 1000}}, Value{{"until", now() + 1000}},
            Value{{"by", "size"}}, Value{{"step", "decade"}}, Value{{"limit", 0}}, Value{{"limit", 501}},
            Value{{"owner", -1}}, Value{{"owner", 1e12}}, Value{{"after", "[1e999,1]"}}, Value{{"after", "x"}},
            Value{{"after", 5}}, Value{{"group", 5}}, Value{{"group", "kernel"}, {"after", "nan"}},
            Value{{"from", now() - 2 * day}, {"step", "minute"}}, Value("cpu")}) {
        EXPECT_EQ(refusal(wrong), ErrorCode::InvalidArgument) << wrong;
    }
    const Value nothing = ask({{"from", 0}, {"until", 1000}}).value();
    EXPECT_TRUE(nothing.at("from").is_null());
    EXPECT_TRUE(nothing.at("groups").empty());
}

} // namespace
} // namespace meridal::test
