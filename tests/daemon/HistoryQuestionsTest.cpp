// SPDX-License-Identifier: Apache-2.0
// What clients ask of recorded history, answered from the files of real sensors.

#include "daemon/HistoryQuestions.h"
#include "tests/sensors/SensorsFixture.h"

namespace meridal::test {
namespace {

/// Two sensors, one of which answers only now and then, and odd series of one of them.
class HistoryQuestionsTest : public SensorsTest {
protected:
    HistoryQuestionsTest()
    {
        fit({{sensorOf("TC0P", "chip-1", "CPU"), 40}, {sensorOf("TC1P", "chip-2", "GPU"), 50}});
        start();
        daemon->catalogue.add("odd", collector().history(), [] {
            return std::vector<HistorySeries>{
                {"", "Odd", "W", {"value"}}, {"TC0P", "CPU", "", {"value", "unheard of"}}};
        });
        machine.runtime.advance(12);
    }
    void record(int minutes)
    {
        for (int half = 0; half < 2 * minutes; ++half) {
            source().values["TC1P"] = half % 2 == 1 ? std::nullopt : std::optional(50.0);
            machine.runtime.advance(30);
        }
    }
    Result<Value> ask(const Value& parameters)
    {
        Result<Value> answer = unexpected(ErrorCode::Internal, "no reply");
        questions().samples(parameters, root, [&](Result<Value> reply) { answer = std::move(reply); });
        machine.runtime.runDue();
        return answer;
    }
    HistoryQuestions questions() { return HistoryQuestions(daemon->catalogue); }

    const Peer root{.uid = 0, .gid = 0, .known = true};
};

TEST_F(HistoryQuestionsTest, PagesOfOneSeriesJoinUpWithoutHoleOrOverlap)
{
    record(10);
    Value question{{"series", "odd/TC0P"}, {"resolution", "hour"}, {"limit", 30}};
    std::vector<std::uint64_t> identifiers; // newest first
    for (bool more = true; more;) {
        const auto page = ask(question);
        ASSERT_TRUE(page);
        const Value& samples = page->at("samples");
        ASSERT_LE(samples.size(), 30U);
        ASSERT_FALSE(samples.empty());
        for (auto sample = samples.rbegin(); sample != samples.rend(); ++sample) {
            identifiers.push_back(sample->at("sample").get<std::uint64_t>());
            EXPECT_EQ(sample->at("values"), Value({40.0, nullptr}));
        }
        more = page->at("more").get<bool>();
        EXPECT_EQ(more, page->contains("next"));
        question["before"] = page->value("next", Value());
    }
    // Those of the last seconds are there too, though nothing has told the file to write them.
    ASSERT_GE(identifiers.size(), 98U);
    for (std::size_t place = 0; place < identifiers.size(); ++place) {
        ASSERT_EQ(identifiers[place], identifiers.size() - place);
    }
}

TEST_F(HistoryQuestionsTest, GapsAreMissingAndSpansAreKept)
{
    record(10);
    const double now = machine.runtime.wallTime();
    const auto rare = ask({{"series", "sensors/TC1P"}})->at("samples").size();
    EXPECT_GE(rare, 40U);
    EXPECT_LE(rare, 75U); // of a hundred periods
    const Value span =
        ask({{"series", "sensors/TC0P"}, {"from", now - 120}, {"until", now - 60}, {"resolution", "hour"}}).value();
    EXPECT_EQ(span.at("samples").size(), 10U);
    EXPECT_EQ(span.at("more"), false);
    for (const Value& sample : span.at("samples")) {
        EXPECT_GE(sample.at("time"), now - 120);
        EXPECT_LT(sample.at("time"), now - 60);
    }
    const Value longTerm = ask({{"series", "sensors/TC0P"}, {"resolution", "longterm"}}).value();
    EXPECT_EQ(longTerm.at("interval"), 300);
    EXPECT_GE(longTerm.at("samples").size(), 1U);
}

/// A sensor that stands at 40 but for six seconds in each minute: means of minutes hide it, what they lie between tells.
TEST_F(HistoryQuestionsTest, BandsTellWhatMeansHide)
{
    for (int minute = 0; minute < 20; ++minute) {
        source().values["TC0P"] = 40;
        machine.runtime.advance(54);
        source().values["TC0P"] = 90.06;
        machine.runtime.advance(6);
    }
    const Value question{{"series", "sensors/TC0P"}, {"resolution", "day"}, {"limit", 4}};
    const Value plain = ask(question).value();
    for (const Value& sample : plain.at("samples")) {
        EXPECT_FALSE(sample.contains("low")) << "who does not ask";
    }
    Value bands = question;
    bands["band"] = true;
    const Value page = ask(bands).value();
    ASSERT_EQ(page.at("samples").size(), 4U);
    for (const Value& sample : page.at("samples")) {
        EXPECT_LT(sample.at("values")[0], 50);
        EXPECT_EQ(sample.at("low"), Value({40.0}));
        EXPECT_EQ(sample.at("high"), Value({90.06}));
    }
    bands["series"] = "sensors/TC1P";
    EXPECT_FALSE(ask(bands)->at("samples")[0].contains("low")) << "one that never moved";
    bands["series"] = "odd/TC0P";
    EXPECT_EQ(ask(bands)->at("samples")[0].at("high"), Value({90.06, nullptr}));
}

TEST_F(HistoryQuestionsTest, SeriesAreListedInPages)
{
    const auto listed = [this](const Value& question, bool more = false) {
        const auto page = questions().series(question);
        EXPECT_EQ(page->at("more"), more) << question;
        std::vector<std::string> names;
        for (const Value& series : page->at("series")) {
            names.push_back(series.at("series"));
        }
        return names;
    };
    using Names = std::vector<std::string>;
    EXPECT_EQ(listed({{"limit", 2}}, true), (Names{"odd", "odd/TC0P"}));
    EXPECT_EQ(listed({{"limit", 2}, {"after", "sensors/TC0P"}}), Names{"sensors/TC1P"});
    EXPECT_EQ(listed({{"collector", "sensors"}}), (Names{"sensors/TC0P", "sensors/TC1P"}));
    EXPECT_EQ(listed({{"collector", "nobody"}}), Names());
    EXPECT_EQ(listed(Value()).size(), 4U);
    const Value series = questions().series(Value())->at("series");
    EXPECT_EQ(series[0].at("unit"), "W");
    EXPECT_FALSE(series[0].contains("origin"));
    EXPECT_EQ(series[2].at("origin"), "chip-1");
}

/// A client that asks in the first moments, while the names of earlier runs are still being read, waits for them.
TEST_F(HistoryQuestionsTest, WhatEarlierRunsRecordedIsListedFromTheFirstQuestionOn)
{
    record(1);
    daemon.reset();
    fit({}); // both are away now
    daemon = std::make_unique<Daemon>(machine);
    Value atOnce;
    Value afterwards;
    machine.runtime.mainQueue().post([&] {
        atOnce = questions().series({{"collector", "sensors"}})->at("series");
        daemon->catalogue.whenComplete([&] {
            afterwards = questions().series({{"collector", "sensors"}})->at("series");
        });
    });
    machine.runtime.runDue();
    EXPECT_TRUE(atOnce.empty()) << "else nothing is waited for here";
    ASSERT_EQ(afterwards.size(), 2U);
    EXPECT_EQ(afterwards[1].at("series"), "sensors/TC1P");
}

TEST_F(HistoryQuestionsTest, NonsenseIsRefusedInWords)
{
    const auto code = [this](const Value& question) {
        const auto answer = ask(question);
        EXPECT_FALSE(answer);
        return answer ? ErrorCode::Internal : answer.error().code;
    };
    for (const char* unknown : {"sensors/XXXX", "'; DROP TABLE x; --"}) {
        EXPECT_EQ(code({{"series", unknown}}), ErrorCode::NotFound);
    }
    const Value good{{"series", "sensors/TC0P"}};
    for (const Value& wrong : {Value{{"series", 7}}, Value{{"resolution", "decade"}}, Value{{"limit", 0}},
             Value{{"limit", 1001}}, Value{{"limit", 1.5}}, Value{{"before", -1}}, Value{{"from", "yesterday"}}}) {
        Value question = good;
        question.update(wrong);
        EXPECT_EQ(code(question), ErrorCode::InvalidArgument) << wrong;
    }
    for (const Value& shapeless : {Value(), Value("sensors/TC0P")}) {
        EXPECT_EQ(code(shapeless), ErrorCode::InvalidArgument);
    }
    EXPECT_TRUE(ask(good)) << "before a period was full";
    EXPECT_TRUE(ask({{"series", "sensors/TC0P"}, {"before", std::uint64_t{1} << 62}}));
}

} // namespace
} // namespace meridal::test
