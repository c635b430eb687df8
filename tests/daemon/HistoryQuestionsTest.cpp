// What clients ask of recorded history, answered from real files.

#include "daemon/HistoryQuestions.h"
#include "collectors/HistoryCatalogue.h"
#include "collectors/StatCollector.h"
#include "collectors/StatCollectorItem.h"
#include "wire/Link.h"
#include "database/HistoryDatabaseController.h"
#include "tests/support/FakeHost.h"

#include <gtest/gtest.h>

#include <cmath>

namespace meridal::test {
namespace {

/// Two sensors: one counts the seconds, the other answers only now and then.
class SensorCollector final : public StatCollector {
public:
    explicit SensorCollector(Context& context)
        : StatCollector(context,
            {.description = "Sensors",
                .sampleCount = 2,
                .storageType = StorageType::Items,
                .layout = StorageLayout::forHistory()})
    {
        config() = {{"addSampleMap", {{"value", 0}, {"load", 1}}}, {"addSampleIDKeys", {"sample"}},
            {"sampleKeys", {{"value", 0}, {"load", 1}}},
            {"sqlCreateID", "CREATE TABLE %@ (sample INTEGER PRIMARY KEY, time REAL)"},
            {"sqlInsert", "INSERT INTO %@ VALUES (?, ?)"}, {"sqlInsertKeys", {"sample", "time"}},
            {"sqlCreate",
                "CREATE TABLE %@ (sample INTEGER, uuid TEXT, time REAL, value REAL, load REAL, "
                "PRIMARY KEY (sample, uuid)) WITHOUT ROWID"},
            {"sqlInsertItem", "INSERT INTO %@ VALUES (?, ?, ?, ?, ?)"},
            {"sqlInsertItemKeys", {"sample", "uuid", "time", "value", "load"}}};
        setDbTablePrefix("sensor");
        setDbpath(context.paths.support / "sensors.db");
        setDbpathLong(context.paths.support / "sensors-long.db");
        newItemWithKey("TC0P");
        newItemWithKey("TC1P");
    }
    std::shared_ptr<StatCollectorItem> makeItem() override
    {
        return std::make_shared<StatCollectorItem>(context(), 2, StorageLayout::forHistory());
    }
    void updateStats() override
    {
        const double now = context().runtime.wallTime();
        items()[0]->addSample(Dictionary{{"time", now}, {"value", now}, {"load", 1.0}}, StorageIndex::Live);
        if (std::fmod(now, 60) < 12) {
            items()[1]->addSample(Dictionary{{"time", now}, {"value", 21.26}, {"load", 1.0}}, StorageIndex::Live);
        }
    }
};

class HistoryQuestionsTest : public testing::Test {
protected:
    HistoryQuestionsTest()
    {
        machine_.context.databases = &databases_;
        catalogue_.add("sensors", collector_, [] {
            return std::vector<HistorySeries>{
                {"TC0P", "CPU", "s", {"value", "load", "unheard of"}}, {"TC1P", "Package", "W", {"value"}, 0.1}};
        });
        catalogue_.add("own", collector_, [] { return std::vector<HistorySeries>{{"", "Own", "", {"value"}}}; });
        collector_.startLogging();
    }
    Result<Value> ask(const Value& parameters, std::uint32_t uid = 0)
    {
        Result<Value> answer = unexpected(ErrorCode::Internal, "no reply");
        questions_.samples(parameters, Peer{uid, uid, true}, [&](Result<Value> reply) { answer = std::move(reply); });
        machine_.runtime.runDue();
        return answer;
    }

    FakeMachine machine_;
    HistoryDatabaseController databases_{machine_.context};
    SensorCollector collector_{machine_.context};
    HistoryCatalogue catalogue_;
    HistoryQuestions questions_{catalogue_};
};

TEST_F(HistoryQuestionsTest, PagesOfOneSeriesJoinUpWithoutHoleOrOverlap)
{
    machine_.runtime.advance(600);
    Value question{{"series", "sensors/TC0P"}, {"resolution", "hour"}, {"limit", 30}};
    std::vector<std::uint64_t> identifiers; // newest first
    bool more = true;
    while (more) {
        const auto page = ask(question);
        ASSERT_TRUE(page);
        const Value& samples = page->at("samples");
        ASSERT_LE(samples.size(), 30U);
        ASSERT_FALSE(samples.empty());
        for (auto sample = samples.rbegin(); sample != samples.rend(); ++sample) {
            identifiers.push_back(sample->at("sample").get<std::uint64_t>());
            const double time = sample->at("time").get<double>();
            EXPECT_NEAR(sample->at("values")[0].get<double>(), time - 2.5, 1.01) << "the average of six seconds";
            EXPECT_EQ(sample->at("values")[1], 1.0);
            EXPECT_TRUE(sample->at("values")[2].is_null());
        }
        more = page->at("more").get<bool>();
        EXPECT_EQ(more, page->contains("next"));
        question["before"] = page->value("next", Value());
    }
    // Those of the last seconds are there too, though nothing has told the file to write them.
    ASSERT_GE(identifiers.size(), 98U);
    for (std::size_t i = 1; i < identifiers.size(); ++i) {
        ASSERT_EQ(identifiers[i] + 1, identifiers[i - 1]);
    }
    EXPECT_EQ(identifiers.back(), 1U);
}

TEST_F(HistoryQuestionsTest, GapsAreMissingAndSpansAreKept)
{
    machine_.runtime.advance(600);
    const double now = machine_.runtime.wallTime();
    const Value all = ask({{"series", "sensors/TC1P"}}).value();
    EXPECT_GE(all.at("samples").size(), 20U);
    EXPECT_LE(all.at("samples").size(), 40U); // of a hundred periods
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

TEST_F(HistoryQuestionsTest, FineFiguresAreForRootOnly)
{
    machine_.runtime.advance(120);
    const Value question{{"series", "sensors/TC1P"}};
    EXPECT_NEAR(ask(question, 0)->at("samples")[0].at("values")[0].get<double>(), 21.26, 1e-9);
    EXPECT_NEAR(ask(question, 1000)->at("samples")[0].at("values")[0].get<double>(), 21.3, 1e-9);
}

TEST_F(HistoryQuestionsTest, SeriesAreListedInPages)
{
    const auto listed = [this](const Value& question, bool more = false) {
        const auto page = questions_.series(question);
        EXPECT_EQ(page->at("more"), more) << question;
        std::vector<std::string> names;
        for (const Value& series : page->at("series")) {
            names.push_back(series.at("series"));
        }
        return names;
    };
    using Names = std::vector<std::string>;
    EXPECT_EQ(listed({{"limit", 2}}, true), (Names{"own", "sensors/TC0P"}));
    EXPECT_EQ(listed({{"limit", 2}, {"after", "sensors/TC0P"}}), Names{"sensors/TC1P"});
    EXPECT_EQ(listed({{"collector", "sensors"}}), (Names{"sensors/TC0P", "sensors/TC1P"}));
    EXPECT_EQ(listed({{"collector", "nobody"}}), Names());
    EXPECT_EQ(listed(Value()).size(), 3U);
    EXPECT_EQ(questions_.series(Value())->at("series")[2].at("unit"), "W");
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
    EXPECT_TRUE(ask(good)) << "before anything was recorded";
    EXPECT_TRUE(ask({{"series", "sensors/TC0P"}, {"before", std::uint64_t{1} << 62}}));
}

} // namespace
} // namespace meridal::test
