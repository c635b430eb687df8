// SPDX-License-Identifier: Apache-2.0
#include "client/panels/PageWindow.h"
#include "client/panels/PagedList.h"
#include "client/panels/Panels.h"
#include "client/plot/RecentCourses.h"
#include "tests/client/PanelOnPaper.h"
#include "wire/Methods.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace meridal {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A page of what a repeated question says of numbered rows.
Value pageFrom(const PanelQuestion& question, int count, int limit)
{
    const int first = static_cast<int>(integer(question.parameters, "after").value_or(-1)) + 1;
    Value rows = Value::array();
    for (int row = first; row < std::min(count, first + limit); ++row) {
        rows.push_back({{"key", row}});
    }
    return {{"rows", rows}, {"more", first + limit < count}};
}

TEST(PagedList, FollowsPagesAsTheyComeAndGo)
{
    PagedList list({.name = "all", .method = "list", .list = "rows"});
    int count = 5;
    const auto ask = [&] {
        for (std::size_t page = 0, pages = 1; page < pages; ++page) {
            std::vector<PanelQuestion> questions;
            list.addQuestions(questions);
            const PanelQuestion question = questions.at(page);
            EXPECT_TRUE(list.take({.name = question.name, .result = pageFrom(question, count, 2)}));
            questions.clear();
            list.addQuestions(questions);
            pages = questions.size();
        }
        return list.rows().size();
    };
    EXPECT_FALSE(list.isKnown());
    EXPECT_EQ(ask(), 5U);
    count = 1;
    EXPECT_EQ(ask(), 1U) << "pages that are no more hold nothing";
    count = 1000;
    EXPECT_EQ(ask(), 64U) << "a daemon that never ends is not followed for ever";
    EXPECT_FALSE(list.take({.name = "other", .result = Value()}));
    list.take({.name = "all", .result = unexpected(ErrorCode::NotFound, "no\x1B")});
    EXPECT_EQ(list.complaint(), "no?");
}

TEST(PageWindow, KeepsHeadingsAndTheChosenLineInSight)
{
    Lines page;
    for (const char* words : {"TITLE", "a", "b", "c", "d", "e"}) {
        page.push_back({{Style::Plain, words}});
    }
    PageWindow window;
    EXPECT_EQ(textOf(window.cut(page, 1, 4, 3, 5)), "TITLE\nc\nd\n");
    EXPECT_EQ(window.lineAt(2), 4);
    EXPECT_EQ(window.lineAt(0), 0);
    EXPECT_FALSE(window.lineAt(3) || window.lineAt(-1));
    EXPECT_EQ(textOf(window.cut(page, 1, 3, 3, 5)), "TITLE\nc\nd\n") << "it moves only when it must";
    EXPECT_EQ(window.cut(page, 1, 1, 3, 5)[1], (Line{{Style::Chosen, "a    "}}));
    EXPECT_EQ(textOf(window.cut(page, 1, std::nullopt, 9, 5)).size(), 16U);
    EXPECT_EQ(textOf(window.cut({}, 1, std::nullopt, 3, 5)), "");
    EXPECT_EQ(textOf(window.cut(page, 1, 5, 1, 5)), "e\n") << "one row shows what is chosen";
}

TEST(RecentCourses, GoOnWhereTheRecordEnds)
{
    RecentCourses courses(100);
    courses.add("a", 1000, 1);
    courses.add("a", 1010, 5);
    courses.fill("a", {{.time = 950, .value = 0}, {.time = 1000, .value = 2}});
    EXPECT_EQ(courses.spark("a", 4), " ▁ █") << "0 in the second quarter, 2 and 5 in the last";
    courses.add("a", 1150, 5);
    EXPECT_EQ(courses.spark("a", 4), "   ▄") << "the rest is too old";
    courses.add("a", 10, 3);
    EXPECT_EQ(courses.spark("a", 1), "▄") << "a clock that was set back begins anew";
    EXPECT_EQ(courses.spark("b", 4), "");
    EXPECT_EQ(courses.title(), "LAST 1 MIN 40 S");
}

constexpr const char* sensorAnswer = R"({"more":false,"sensors":[
    {"chip":"nct6775-isa-0290","critical":100.0,"fixed":false,"high":55.0,"highest":55.0,"key":"TBCC","kind":"temperature",
     "low":41.5,"lowest":41.5,"name":"CPU\u001b[2J","unit":"°C","value":41.5,"alarm":null},
    {"chip":"nct6775-isa-0290","fixed":true,"high":13.2,"low":10.8,"highest":12.1,"lowest":11.9,"key":"VP12","kind":"voltage",
     "name":"+12V","unit":"V","value":13.4,"alarm":"high"},
    {"chip":"nct6775-isa-0290","fixed":true,"low":300.0,"high":null,"highest":1500.0,"lowest":0.0,"key":"F0Ac","kind":"fan",
     "name":"Front","unit":"rpm","value":0,"alarm":"low"}]})";

Result<Value> askedOfSensors(const PanelQuestion& question)
{
    if (question.method == method::sensorsList) {
        return json(sensorAnswer);
    }
    if (question.method == method::momentsAt) {
        Value then = json(R"({"temperatures":[{"series":"sensors/TBCC","name":"CPU","unit":"°C","value":77.0}],
            "fans":[{"series":"sensors/gone","name":"Rear","unit":"rpm","value":900,"chip":"old"}]})");
        then["time"] = question.parameters.at("time");
        return then;
    }
    if (question.parameters.at("series") == "sensors/TBCC") {
        return json(
            R"({"values":["value"],"samples":[{"time":1795413060,"values":[30]},{"time":1795413300,"values":[50]}]})");
    }
    return unexpected(ErrorCode::NotFound, "no such series");
}

TEST(SensorsPanel, ShowsWhatIsAndHowItCameToBe)
{
    PanelOnPaper panel(makeSensorsPanel(), askedOfSensors);
    EXPECT_EQ(panel.text(80, 20),
        "SENSOR            VALUE  STATE  LAST 10 MIN     LIMITS          HIGHEST\n"
        "nct6775-isa-0290\n"
        "  CPU?[2J       41.5 °C          ▁     █     ▅  critical 100    55.0 °C\n"
        "  +12V         13.400 V  HIGH                ▄  10.8 to 13.2   12.100 V\n"
        "\n"
        "FAN                  SPEED  STATE  LAST 10 MIN     LIMITS      LOWEST    HIGHEST\n"
        "nct6775-isa-0290\n"
        "  Front            stopped  LOW                 ▁  min 300      0 rpm   1500 rpm\n");
    EXPECT_EQ(panel.text(40, 8),
        "SENSOR            VALUE  STATE\n"
        "nct6775-isa-0290\n"
        "  CPU?[2J       41.5 °C\n"
        "  +12V         13.400 V  HIGH\n"
        "\n"
        "FAN               SPEED  STATE  LIMITS\n"
        "nct6775-isa-0290\n"
        "  Front         stopped  LOW    min 300\n");
    panel.press(Key::Kind::End);
    panel.text(40, 4);
    EXPECT_EQ((*panel).lines(panel.view).back().front().style, Style::Chosen) << "it is in sight";
    panel.press(Key::Kind::Enter);
    EXPECT_EQ(std::get<OpenWish>(panel.wish).argument, (Value{{"series", "sensors/F0Ac"}}));
    panel.press({.kind = Key::Kind::Click, .row = 0});
    EXPECT_TRUE(std::holds_alternative<std::monostate>(panel.wish)) << "a title is nothing to choose";
    panel.text(80, 20);
    panel.press({.kind = Key::Kind::Click, .row = 2});
    panel.press({.kind = Key::Kind::Click, .row = 2});
    EXPECT_EQ(std::get<OpenWish>(panel.wish).argument, (Value{{"series", "sensors/TBCC"}}));
    const std::size_t before = panel.asked;
    panel.pass(2);
    EXPECT_EQ(panel.asked, before + 1) << "the record is asked once, the chips again and again";
    panel.showMoment(1.7e9);
    EXPECT_EQ(panel.text(80, 20),
        "SENSOR                 VALUE  RANGE           LIMITS           LOWEST    HIGHEST\n"
        "nct6775-isa-0290\n"
        "  CPU?[2J            77.0 °C  ▕████████████▏  critical 100    41.5 °C    55.0 °C\n"
        "\n"
        "FAN                               SPEED  RANGE               LOWEST    HIGHEST\n"
        "old\n"
        "  Rear                          900 rpm                           -          -\n");
}

TEST(SensorsPanel, SaysThatThereIsNothingAndWhy)
{
    PanelOnPaper none(makeSensorsPanel(), [](const PanelQuestion&) { return json(R"({"sensors":[],"more":false})"); });
    EXPECT_EQ(none.text(40, 8), "no sensors on this machine\n");
    PanelOnPaper old(
        makeSensorsPanel(), [](const PanelQuestion&) { return unexpected(ErrorCode::NotFound, "no such method"); });
    EXPECT_EQ(old.text(40, 8), "no such method\n");
}

constexpr const char* diskAnswer = R"({"disks":[
    {"attributes":[{"current":200.0,"id":5,"meaning":"spare sectors run out; copy the data while it can be read",
      "name":"Reallocated sectors","predictsFailure":true,"raw":12,"status":"failing","threshold":140.0,"value":12,"worst":90.0}],
     "bsd":"sda","healthy":true,"key":"WD-WX1","kind":"ata","model":"WDC WD40EFRX-68N32N0","powerOn":26280000.0,
     "problems":["Reallocated sectors 12: spare sectors run out"],"serial":"WD-WX1","spins":true,"state":"awake",
     "temperature":34,"time":1700000000.0},
    {"bsd":"nvme0n1","healthy":true,"key":"S5GX","kind":"nvme","model":"FAST\u001b[2J 1000","problems":[],"serial":"S5GX","state":"awake",
     "temperature":41,"wear":3,"log":{"availableSpare":100,"spareThreshold":10,"mediaErrors":0}}],"more":false})";

Result<Value> askedOfDisks(const PanelQuestion& question)
{
    if (question.method == method::machineState) {
        return json(
            R"({"disks":[{"busy":96.5,"name":"sda","queue":1.25,"readbytes":1550210.7,"readtime":11.6,"writtenbytes":0.0}]})");
    }
    if (question.method == method::momentsAt) {
        return Value{{"time", question.parameters.at("time")},
            {"disks",
                json(
                    R"([{"busy":0.27,"disk":"vda","queue":0.02,"readbytes":682.6,"writetime":7.3,"writtenbytes":4686097.0}])")}};
    }
    return question.method == method::disksList ? json(diskAnswer) : Value();
}

TEST(DisksPanel, ListsThemAndOpensTheChosenOne)
{
    PanelOnPaper panel(makeDisksPanel(), askedOfDisks);
    EXPECT_EQ(panel.text(80, 20),
        "DISK      MODEL                KIND     TEMP   WEAR   POWERED ON  HEALTH\n"
        "sda       WDC WD40EFRX-68N32N0 HDD     34 °C      -    304 d 4 h  has problems\n"
        "  Reallocated sectors 12: spare sectors run out\n"
        "nvme0n1   FAST?[2J 1000        NVMe    41 °C    3 %            -  fine\n"
        "\n"
        "DISK               READS      WRITES   BUSY  READ TAKES WRITE TAKES  QUEUE\n"
        "sda           1.48 MiB/s       0 B/s   96 %     11.6 ms           -    1.2\n");
    EXPECT_EQ(panel.text(40, 8),
        "DISK      MODEL        TEMP HEALTH\n"
        "sda       WDC WD40E…  34 °C has problems\n"
        "  Reallocated sectors 12: spare sectors\n"
        "  run out\n"
        "nvme0n1   FAST?[2J …  41 °C fine\n"
        "\n"
        "DISK           READS      WRITES   BUSY\n"
        "sda       1.48 MiB/s       0 B/s   96 %\n");
    panel.press(Key::Kind::Down);
    EXPECT_EQ((*panel).lines(panel.view).back().front().style, Style::Plain);
    panel.press(Key::Kind::Enter);
    EXPECT_EQ(panel.text(40, 8),
        "DISK      MODEL           TEMP HEALTH\n"
        "nvme0n1   FAST?[2J 1000  41 °C fine\n"
        "  Spare memory      100 %, at least 10 %\n"
        "  Data written      -\n"
        "  Data read         -\n"
        "  Commands          --\n"
        "  Busy              -\n"
        "  Too warm          -, critically hot -\n"
        "  Power cycles      -\n"
        "  Unsafe shutdowns  -\n"
        "  Errors of its me… 0\n"
        "  Entries in its e… -\n");
    EXPECT_FALSE(panel.press(Key::Kind::Down)) << "what is open is scrolled by the frame";
    panel.press(Key::Kind::Escape);
    panel.type(U"h");
    EXPECT_EQ(std::get<OpenWish>(panel.wish).argument, (Value{{"series", "throughput/nvme0n1"}}));
    panel.press({.kind = Key::Kind::Click, .row = 1});
    panel.press({.kind = Key::Kind::Click, .row = 1});
    EXPECT_THAT(panel.text(80, 20), AllOf(HasSubstr("Reallocated sectors"), Not(HasSubstr("S5GX"))));
    panel.showMoment(1.7e9);
    EXPECT_EQ(panel.text(80, 20),
        "DISK               READS      WRITES   BUSY  READ TAKES WRITE TAKES  QUEUE\n"
        "vda              683 B/s  4.47 MiB/s    0 %           -      7.3 ms    0.0\n");
    PanelOnPaper none(makeDisksPanel(), [](const PanelQuestion& question) -> Result<Value> {
        return question.method == method::disksList ? json(R"({"disks":[],"more":false})") : Value();
    });
    EXPECT_EQ(none.text(), "no disk with health data (SMART or NVMe) on this machine\n");
    EXPECT_FALSE(none.press(Key::Kind::Enter));
}

Result<Value> askedOfBattery(const PanelQuestion& question)
{
    if (question.method == method::batteryState) {
        return json(
            R"({"batteries":[{"key":"B 7","name":"Battery","type":0,"percentage":18.0,"state":2,"time":95,"source":0,
            "awakeOnSource":3725.0,"power":-18.0,"health":87.46}],
            "peripherals":[{"key":"peripheral aa","name":"Mouse\u001b","percentage":40.0,"state":2,"type":3}]})");
    }
    if (question.method == method::batteryHistory) {
        return json(
            R"({"rows":[{"key":"B 7","row":8,"time":1795000000.0,"value":87.0},{"key":"B 7","row":1,"time":1785000000.0,"value":99.0}]})");
    }
    if (question.method == method::momentsAt) {
        return Value{{"time", question.parameters.at("time")},
            {"battery", json(R"([{"key":"B 7","source":1,"since":1699990000.0}])")},
            {"others", json(R"([{"series":"battery/charge","name":"Charge","unit":"%","value":71.5}])")}};
    }
    Value samples = Value::array();
    for (int sample = 0; sample < 400; ++sample) {
        samples.push_back({{"time", 1'795'413'600 - (400 - sample) * 144}, {"values", {100 - sample / 5}}});
    }
    return Value{{"interval", 144}, {"resolution", "day"}, {"unit", "%"}, {"values", {"charge"}}, {"samples", samples}};
}

TEST(BatteryPanel, ShowsHowTheChargeWent)
{
    ::setenv("TZ", "UTC", 1);
    PanelOnPaper panel(makeBatteryPanel(), askedOfBattery);
    EXPECT_THAT(panel.text(80, 22),
        AllOf(StartsWith("charge       18 %, on battery\ntime left    1 h 35 min\n"),
            HasSubstr("Mouse?                        40 %\n\nCharge, last day  %\n100 ┤")));
    EXPECT_THAT(panel.text(40, 8),
        AllOf(HasSubstr("source       battery for 1 h 2 min, not\n             counting sleep\n"),
            EndsWith("          Sun 12:00        Mon 00:00\nmin 21 %   avg 60 %   max 100 %\n")));
    panel.type(U"h");
    EXPECT_THAT(panel.text(80, 22), AllOf(HasSubstr("Health  %"), HasSubstr("max 99.0 %")));
    panel.showMoment(1.7e9);
    EXPECT_EQ(panel.text(40, 8),
        "battery      B 7: on AC power since Tue\n"
        "             2023-11-14 19:26:40\n"
        "then         Charge 71.5 %\n");
    PanelOnPaper none(
        makeBatteryPanel(), [](const PanelQuestion&) { return json(R"({"batteries":[],"peripherals":[]})"); });
    EXPECT_EQ(none.text(40, 8), "This machine has no battery.\n");
    EXPECT_EQ(none.asked, 1U) << "what is not there has no course";
}

} // namespace
} // namespace meridal
