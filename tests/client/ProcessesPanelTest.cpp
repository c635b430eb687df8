// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "client/commands/ProcessActions.h"
#include "client/panels/Panels.h"
#include "client/panels/ProcessFilter.h"
#include "client/panels/ProcessRows.h"
#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

#include <csignal>
#include <unistd.h>
#include <variant>

namespace meridal {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* threeProcesses = R"({"total":3,"processes":[
    {"pid":20,"start":1700000020.5,"parent":10,"name":"cc1\u001b[2J","user":"anna","cpu":99.5,"footprint":1048576,"nice":5},
    {"pid":1,"start":1700000000.0,"parent":0,"name":"init","user":"root","cpu":0.5,"footprint":2048},
    {"pid":10,"start":1700000010.0,"parent":1,"name":"make","user":"anna","cpu":0.0,"footprint":4096}]})";

std::string namesOf(const std::vector<ShownProcess>& shown)
{
    std::string names;
    for (const ShownProcess& each : shown) {
        names += text(each.row, "name").value_or("") + '\n';
    }
    return names;
}

TEST(ProcessRows, ChangesGoIntoWhatIsKnown)
{
    ProcessRows rows;
    EXPECT_FALSE(rows.isKnown());
    rows.take(json(threeProcesses), false);
    rows.take(
        json(R"({"gone":[20,99],"order":[10,1,20,77],"total":2,"processes":[{"pid":10,"name":"gmake","cpu":7.0}]})"),
        true);
    EXPECT_EQ(namesOf(rows.shown(ProcessRows::Shape::Flat, {})), "gmake\ninit\n");
    EXPECT_EQ(rows.total(), 2);
    rows.take(json(R"({"processes":5,"order":"x","gone":[null]})"), true); // of no use, and no harm
    EXPECT_EQ(rows.shown(ProcessRows::Shape::Flat, {}).size(), 2U);
}

TEST(ProcessRows, StandAsATreeThatClosesAndBelowTheirApplications)
{
    ProcessRows rows;
    rows.take(json(threeProcesses), false);
    EXPECT_EQ(namesOf(rows.shown(ProcessRows::Shape::Tree, {})), "▾ init\n  ▾ make\n      cc1?[2J\n");
    EXPECT_EQ(namesOf(rows.shown(ProcessRows::Shape::Tree, {"10:1700000010.00"})), "▾ init\n  ▸ make\n");
    rows.take(json(R"({"processes":[{"pid":1,"parent":2,"name":"a"},{"pid":2,"parent":1,"name":"b"}]})"), false);
    EXPECT_EQ(rows.shown(ProcessRows::Shape::Tree, {}).size(), 0U); // nobody is at the root; nobody goes round for ever
    rows.take(json(R"({"processes":[{"pid":10,"start":1.0,"name":"make","processes":2}]})"), false);
    EXPECT_EQ(namesOf(rows.shown(ProcessRows::Shape::Groups, {})), "▸ make\n");
    rows.takeMembers(10, json(R"({"processes":[{"pid":10,"name":"make"},{"pid":20,"name":"cc1"}]})"));
    EXPECT_EQ(namesOf(rows.shown(ProcessRows::Shape::Groups, {"10:1.00"})), "▾ make\n    make\n    cc1\n");
}

TEST(ProcessFilter, WordsWithAFieldGoByIt)
{
    EXPECT_EQ(processFilterFrom(""), Value::object());
    EXPECT_EQ(processFilterFrom("user:anna  python x:y"), json(R"({"user":"anna","text":"python x:y"})"));
    EXPECT_EQ(processFilterFrom("pid:4711 unit:ssh"), json(R"({"pid":4711,"unit":"ssh"})"));
    EXPECT_EQ(processFilterFrom("pid:47x"), json(R"({"text":"pid:47x"})"));
    EXPECT_EQ(processFilterFrom("/^k.*/"), json(R"({"text":"^k.*","regex":true})"));
}

TEST(ProcessesPanel, ListsFiltersAndAsksBeforeASignal)
{
    const auto panel = makeProcessesPanel();
    const PanelView view{.rows = 12, .columns = 60};
    EXPECT_TRUE(panel->lines(view).empty());
    panel->take({.name = panel->questions(view).front().name, .result = json(threeProcesses)});
    EXPECT_EQ(textOf(panel->lines(view)),
        "3 processes, by cpu\n"
        " PID USER   CPU %    MEMORY     WRITTEN NAME       COMMAND\n"
        "  20 anna    99.5  1.00 MiB           - cc1?[2J    [cc1?[2J]\n"
        "   1 root     0.5  2.00 KiB           - init       [init]\n"
        "  10 anna     0.0  4.00 KiB           - make       [make]\n");
    panel->press(Key::of(Key::Kind::Down), view);
    const auto wish = std::get<SignalWish>(panel->press(Key::of('k'), view).wish);
    EXPECT_EQ(wish.processes.front().pid, 1);
    EXPECT_EQ(wish.processes.front().started, 1700000000.0);
    const auto parameters = [&] { return panel->questions(view).front().parameters; };
    panel->press({.kind = Key::Kind::Click, .row = 1, .column = 25}, view); // MEMORY
    EXPECT_EQ(parameters()["sort"], "footprint");
    panel->press(Key::of('/'), view);
    EXPECT_TRUE(panel->takesText());
    panel->press(Key::of('q'), view);
    panel->press(Key::of(Key::Kind::Enter), view);
    EXPECT_EQ(parameters()["filter"], json(R"({"text":"q"})"));
    panel->press(Key::of('t'), view);
    EXPECT_EQ(parameters()["limit"], 1000);
    panel->take({.name = "processes", .result = unexpected(ErrorCode::InvalidArgument, "no such pattern")});
    EXPECT_THAT(textOf(panel->lines(view)), HasSubstr("no such pattern"));
}

TEST(ProcessesPanel, ShowsEverythingOfOneAndNotOfALaterOneOfItsNumber)
{
    const auto panel = makeProcessesPanel();
    const PanelView view;
    panel->take({.name = "processes", .result = json(threeProcesses)});
    panel->lines(view);
    panel->press(Key::of(Key::Kind::Enter), view);
    const PanelQuestion question = panel->questions(view).front();
    EXPECT_EQ(question.parameters, json(R"({"pid":20})"));
    panel->take(
        {.name = question.name, .result = json(R"({"pid":20,"start":1700000020.5,"name":"cc1","command":"cc1 -O2"})")});
    panel->take(
        {.name = question.name, .result = json(R"({"pid":20,"start":1700000099.5,"name":"rm","command":"rm -r"})")});
    const std::string shown = textOf(panel->lines(view));
    EXPECT_THAT(shown, testing::AllOf(HasSubstr("cc1 -O2"), HasSubstr("has ended"), Not(HasSubstr("rm -r"))));
    EXPECT_EQ(std::get<SignalWish>(panel->press(Key::of('k'), view).wish).processes.front().started, 1700000020.5);
    EXPECT_FALSE(panel->press(Key::of(Key::Kind::Down), view).isTaken); // the frame scrolls
    panel->press(Key::of(Key::Kind::Escape), view);
    EXPECT_THAT(textOf(panel->lines(view)), HasSubstr("3 processes"));
}

TEST(ProcessesPanel, FitsTheSmallestTerminal)
{
    const auto panel = makeProcessesPanel();
    const PanelView view{.rows = 7, .columns = 40};
    panel->take({.name = "processes", .result = json(threeProcesses)});
    const Lines lines = panel->lines(view);
    EXPECT_EQ(lines.size(), 4U); // no line is spared for the headline
    for (const Line& line : lines) {
        EXPECT_LE(displayWidth(plainText(line)), 40);
    }
    EXPECT_THAT(textOf(lines), HasSubstr("make"));
}

TEST(ProcessActions, LeaveAloneWhoIsNotTheOneThatWasSeen)
{
    const auto ours = static_cast<std::int64_t>(::getpid());
    EXPECT_THAT(sendSignal({{.pid = ours, .started = 1000000000, .name = "old"}}, SIGKILL), HasSubstr("another's now"));
    EXPECT_THAT(sendSignal({{.pid = ours, .started = 0, .name = "old"}}, SIGKILL), HasSubstr("left alone"));
    EXPECT_THAT(sendSignal({{.pid = -1, .started = 5, .name = "all"}}, SIGKILL), HasSubstr("is no process"));
    EXPECT_THAT(sendSignal({{.pid = 0, .started = 5, .name = "group"}}, SIGKILL), HasSubstr("is no process"));
    EXPECT_THAT(setNice({.pid = ours, .started = 1000000000, .name = "old"}, 19), HasSubstr("another's now"));
}

} // namespace
} // namespace meridal
