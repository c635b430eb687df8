// SPDX-License-Identifier: Apache-2.0
#include "client/panels/Panels.h"
#include "tests/client/PanelOnPaper.h"
#include "wire/Methods.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <set>

namespace meridal {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A daemon that has recorded a few series for ever.
class Record {
public:
    Result<Value> answer(const PanelQuestion& question)
    {
        if (question.method == method::historySeries) {
            return json(R"({"more":false,"series":[
                {"collector":"load","key":"","name":"Load","series":"load","unit":"","values":["load1","load5","load15"]},
                {"collector":"memory","key":"","name":"Memory","series":"memory","unit":"B","values":["used","free"]},
                {"collector":"busy","key":"vda","name":"vda\u001b[2J","series":"busy/vda","unit":"%","values":["busy"]},
                {"collector":"sensors","key":"TC0P","name":"CPU\u001b Proximity","series":"sensors/TC0P","unit":"°C","values":["value"]}]})");
        }
        asked = question.parameters;
        resolutions.insert(text(asked, "resolution").value_or(""));
        const bool isLong = asked.at("resolution") == "longterm";
        const double until = number(asked, "until").value_or(1'795'413'600);
        const double interval = isLong ? 300 : asked.at("resolution") == "hour" ? 6 : 144;
        const bool isMemory = asked.at("series") == "memory";
        const auto list = [&](double value) { return isMemory ? Value::array({value, 1}) : Value::array({value}); };
        Value samples = Value::array();
        for (int sample = 0; sample < 400; ++sample) {
            const double time = until - (400 - sample) * interval;
            if (time >= number(asked, "from").value_or(0)) {
                const double value = 10 + sample % 40;
                samples.push_back(
                    {{"time", time}, {"values", list(value)}, {"low", list(value - 5)}, {"high", list(value + 5)}});
            }
        }
        pages += asked.contains("before") ? 1 : 0;
        return Value{{"interval", interval}, {"resolution", asked.at("resolution")}, {"samples", samples},
            {"unit", "%"}, {"values", isMemory ? Value::array({"used", "free"}) : Value::array({"value"})},
            {"more", isLong && !asked.contains("before")}, {"next", 1209}};
    }
    Value asked;
    std::set<std::string> resolutions;
    int pages = 0;
};

class HistoryPanelTest : public testing::Test {
protected:
    HistoryPanelTest() { ::setenv("TZ", "UTC", 1); }
    double from() const { return record.asked.at("from").get<double>(); }
    double until() const { return record.asked.at("until").get<double>(); }

    Record record;
    PanelOnPaper panel{makeHistoryPanel(), [this](const PanelQuestion& question) { return record.answer(question); }};
};

TEST_F(HistoryPanelTest, ListsWhatIsRecordedAndFiltersIt)
{
    EXPECT_EQ(panel.text(40, 8),
        "7 of 7 figures\n"
        "  FIGURE                           UNIT\n"
        "  busy/vda?[2J                     %\n"
        "  CPU? Proximity                   °C\n"
        "  load/load1\n"
        "  load/load15\n"
        "  load/load5\n"
        "  memory/free                      B\n");
    panel.press(Key::Kind::End);
    panel.type(U"/ME");
    EXPECT_EQ(panel.text(40, 8),
        "filter: ME\n"
        "  FIGURE                           UNIT\n"
        "  memory/free                      B\n"
        "  memory/used                      B\n");
    EXPECT_TRUE((*panel).takesText());
    panel.press(Key::Kind::Enter);
    panel.type(U"x"); // the first of the rest
    panel.press(Key::Kind::Down);
    panel.type(U"x");
    EXPECT_EQ(panel.text(40, 8),
        "2 of 7 figures  filter: ME  2 marked\n"
        "  FIGURE                           UNIT\n"
        "* memory/free                      B\n"
        "* memory/used                      B\n");
    panel.press(Key::Kind::Enter);
    EXPECT_EQ(record.asked.at("series"), "memory");
    EXPECT_THAT(panel.text(80, 20), AllOf(HasSubstr("── memory/free"), HasSubstr("╌╌ memory/used")));
    panel.press(Key::Kind::Escape);
    panel.type(U"c");
    EXPECT_THAT(panel.text(80, 20), HasSubstr("busy/vda"));
}

TEST_F(HistoryPanelTest, ZoomsAndPans)
{
    panel.press(Key::Kind::Enter); // the first of all
    EXPECT_THAT(panel.text(40, 8),
        AllOf(StartsWith("23 Nov 05:00:06 to 23 Nov 06:00:06\nbusy/vda?[2J, 1 h  %\n100 ┤\n"), HasSubstr("░"),
            EndsWith("                    05:30\nmin 5 %   avg 29 %   max 54 %\n")));
    EXPECT_THAT(panel.text(80, 20), HasSubstr("\n60 ┤\n"));
    EXPECT_EQ(from(), 1'795'413'606 - 3600);
    EXPECT_FALSE(record.asked.contains("until")) << "it goes on with the time";
    panel.type(U"d-");
    EXPECT_EQ(from(), 1'795'413'888 - 2 * 86'400) << "wider, and up to now";
    EXPECT_TRUE(record.resolutions.contains("day"));
    panel.type(U"d");
    panel.press(Key::Kind::Left);
    const double end = until();
    EXPECT_NEAR(end, 1'795'413'600 - 21'600, 300);
    panel.press(Key::Kind::WheelUp); // above the drawing: in the middle
    EXPECT_NEAR(until(), end - 21'600, 2);
    EXPECT_NEAR(from(), end - 64'800, 2);
    const double left = from();
    panel.press({.kind = Key::Kind::Click, .row = 5, .column = 0});
    EXPECT_THAT(panel.text(), HasSubstr("click where the stretch is to end"));
    panel.press({.kind = Key::Kind::Click, .row = 5, .column = 42});
    EXPECT_NEAR(from(), left, 600);
    EXPECT_NEAR(until(), left + 21'600, 1200) << "half of it";
    panel.type(U"o");
    ASSERT_TRUE(std::holds_alternative<MomentWish>(panel.wish));
    EXPECT_NEAR(*std::get<MomentWish>(panel.wish).moment, left + 10'800, 900);
    panel.showMoment(std::nullopt);
    panel.type(U"n");
    EXPECT_FALSE(record.asked.contains("until"));
}

TEST_F(HistoryPanelTest, FollowsPagesAndOpensWhatSomebodyElseWants)
{
    (*panel).open({{"series", "sensors/TC0P"}});
    panel.pass(0);
    EXPECT_EQ(record.asked.at("series"), "sensors/TC0P");
    EXPECT_EQ(record.pages, 0);
    panel.type(U"yyy--");
    EXPECT_EQ(record.pages, 2) << "what is far back comes in pages";
    EXPECT_THAT(panel.text(80, 20), HasSubstr("CPU? Proximity"));
    PanelOnPaper none(makeHistoryPanel(), [](const PanelQuestion&) { return json(R"({"series":[],"more":false})"); });
    EXPECT_THAT(none.text(40, 8), StartsWith("0 of 0 figures\n"));
    none.press(Key::Kind::Enter);
    none.type(U"x");
    EXPECT_THAT(none.text(40, 8), StartsWith("0 of 0 figures\n"));
}

Result<Value> askedOfMoments(const PanelQuestion& question)
{
    const double time = question.parameters.at("time").get<double>();
    if (time < 1e9) {
        return unexpected(ErrorCode::NotFound, "nothing is recorded of that time");
    }
    Value then = json(R"({"boot":{"asleep":false,"on":true,"since":1795318354.0},
        "cpu":{"busy":12.5,"from":1795409997.0,"until":1795410003.0,"user":10.0,"system":2.5,"iowait":0.1,"steal":0.0},
        "fans":[],"temperatures":[{"chip":"coretemp-isa-0000","name":"Core 0\u001b","unit":"°C","value":61.25,"series":"sensors/a"}],
        "known":{"from":1795365300.0,"until":1795413600.0}})");
    then["time"] = time;
    return then;
}

TEST(MomentPanel, StepsThroughTimeAndTakesMomentsAsTheyAreTyped)
{
    ::setenv("TZ", "UTC", 1);
    PanelOnPaper panel(makeMomentPanel(), askedOfMoments);
    EXPECT_EQ(panel.text(40, 10),
        "This is now. What was at another moment\n"
        "is in the record:\n"
        "\n"
        "  ←     a minute back; m, h and d choose\n"
        "        how long a step is\n"
        "  Enter type a moment, such as\n"
        "        \"yesterday 18:30\" or \"-2h\"\n"
        "  n     back to now\n"
        "\n"
        "The other panels show that moment, too,\n"
        "as far as it was recorded.\n");
    panel.press(Key::Kind::Left);
    EXPECT_EQ(panel.view.moment, 1'795'413'540);
    panel.type(U"h");
    panel.press(Key::Kind::Left);
    EXPECT_EQ(panel.view.moment, 1'795'409'940);
    EXPECT_EQ(panel.text(40, 10),
        "Mon 2026-11-23 04:59:00 UTC\n"
        "1 h 1 min ago\n"
        "machine      on and awake since Sun\n"
        "             2026-11-22 03:32:34\n"
        "figures      means of the 6 s from\n"
        "             04:59:57\n"
        "CPU          12.5 % busy, user 10.0 %,\n"
        "             system 2.5 %, waiting for\n"
        "             disks 0.1 %, stolen 0.0 %\n"
        "temperatures coretemp-isa-0000: Core 0?\n"
        "             61.2 °C\n"
        "\n"
        "What changed in the ten minutes around\n"
        "it\n"
        "  nothing that stands out\n"
        "\n"
        "The record reaches from Sun 2026-11-22\n"
        "16:35:00 to Mon 2026-11-23 06:00:00.\n");
    EXPECT_EQ(panel.text(80, 20),
        "Mon 2026-11-23 04:59:00 UTC, 1 h 1 min ago\n"
        "machine      on and awake since Sun 2026-11-22 03:32:34\n"
        "figures      means of the 6 s from 04:59:57\n"
        "CPU          12.5 % busy, user 10.0 %, system 2.5 %, waiting for disks 0.1 %,\n"
        "             stolen 0.0 %\n"
        "temperatures coretemp-isa-0000: Core 0? 61.2 °C\n"
        "\n"
        "What changed in the ten minutes around it\n"
        "  nothing that stands out\n"
        "\n"
        "The record reaches from Sun 2026-11-22 16:35:00 to Mon 2026-11-23 06:00:00.\n");
    panel.press(Key::Kind::Right);
    panel.press(Key::Kind::Right);
    EXPECT_FALSE(panel.view.moment) << "nobody sees the future";
    panel.press(Key::Kind::Enter);
    panel.type(U"whenever");
    EXPECT_TRUE((*panel).takesText());
    panel.press(Key::Kind::Enter);
    ASSERT_TRUE(std::holds_alternative<MessageWish>(panel.wish));
    EXPECT_THAT(panel.text(40, 10), StartsWith("when: whenever\n")) << "and can be mended";
    panel.press(Key::Kind::Escape);
    EXPECT_FALSE((*panel).takesText());
    panel.press(Key::Kind::Enter);
    panel.type(U"-1d");
    panel.press(Key::Kind::Enter);
    EXPECT_EQ(panel.view.moment, 1'795'413'600 - 86'400);
    panel.type(U"n");
    EXPECT_FALSE(panel.view.moment);
    panel.showMoment(5e8);
    EXPECT_EQ(panel.text(80, 20), "nothing is recorded of that time\n");
}

TEST(Panels, TakeAnswersOfAnyShape)
{
    const Value odd = {{"key", 1}, {"series", "a"}, {"values", 1}, {"time", 1e300}, {"value", "x"}, {"more", true},
        {"next", {1}}, {"interface", {}}, {"bsd", 5}, {"attributes", 1}, {"rates", 2}, {"processes", "x"}};
    const Value list = {1, "x", Value(), Value::array({1}), Value::object(), odd};
    Value all = odd;
    for (const char* entry :
        {"sensors", "disks", "interfaces", "groups", "series", "samples", "batteries", "peripherals", "rows",
            "temperatures", "fans", "network", "applications", "battery", "others", "download", "upload", "gone"}) {
        all[entry] = list;
    }
    all["applicationsUntil"] = 5;
    for (const Value& answer : {Value(), Value(1), Value("x"), list, odd, all}) {
        for (auto& made : allPanels()) {
            PanelOnPaper panel(std::move(made), [&](const PanelQuestion& question) {
                Value shaped = answer;
                if (question.method == method::momentsAt && shaped.is_object()) {
                    shaped["time"] = question.parameters.at("time");
                }
                return shaped;
            });
            for (const std::optional<double> moment : {std::optional<double>(), std::optional(1.7e9)}) {
                panel.showMoment(moment);
                panel.type(U"xhlc");
                for (const Key::Kind kind : {Key::Kind::Enter, Key::Kind::Down, Key::Kind::Right, Key::Kind::Click}) {
                    panel.press(kind);
                    panel.pass(2);
                    (*panel).lines({.rows = 1, .columns = 20, .now = panel.view.now, .moment = moment});
                }
            }
        }
    }
}

} // namespace
} // namespace meridal
