// SPDX-License-Identifier: Apache-2.0
#include "client/views/ProcessesView.h"
#include "base/Text.h"
#include "client/views/ProcessView.h"
#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

namespace meridal {
namespace {

using testing::HasSubstr;
using testing::Not;

const Value table = json(R"({"total":3,"more":true,"processes":[
    {"pid":4711,"name":"code","user":"anna","cpu":12.34,"footprint":2048,"threads":31,"state":"sleeping","diskRead":0,
     "unit":"unit:code.service","command":"/usr/bin/code --with a very long line of arguments\u001b[2J that goes on and on"},
    {"pid":2,"name":"kthreadd","user":"root","state":"idle"}]})");
const std::vector<std::string> usual = {"pid", "user", "cpu", "footprint", "threads", "state", "command"};

TEST(ProcessesView, ShowsWhatIsKnownInItsColumns)
{
    EXPECT_EQ(textOf(processLines(table, {"pid", "user", "cpu", "footprint", "diskRead", "unit", "command"}, 0)),
        "    PID USER          CPU %    MEMORY        READ UNIT                 COMMAND\n"
        "   4711 anna           12.3  2.00 KiB           0 code.service         /usr/bin/code --with a very long line "
        "of "
        "arguments?[2J that goes on and on\n"
        "      2 root              -         -           -                      [kthreadd]\n"
        "and 1 more\n");
    EXPECT_EQ(textOf(processLines(json(R"({"total":0,"processes":[]})"), usual, 80)), "no such processes\n");
    EXPECT_STREQ(columnOfProcesses("memory"), "footprint");
    EXPECT_EQ(columnOfProcesses("age"), nullptr);
}

TEST(ProcessesView, LongCommandLinesGiveWayBeforeAnyColumn)
{
    for (const int room : {60, 80, 100}) {
        const Lines lines = processLines(table, usual, room);
        EXPECT_THAT(plainText(lines[0]), HasSubstr("COMMAND"));
        for (const Line& line : lines) {
            EXPECT_LE(displayWidth(plainText(line)), room) << plainText(line);
        }
    }
    EXPECT_THAT(plainText(processLines(table, usual, 80)[0]), HasSubstr("STATE"));
    EXPECT_THAT(plainText(processLines(table, usual, 60)[0]), Not(HasSubstr("STATE")));
}

TEST(ProcessView, TellsOnePageOfOneProcess)
{
    const Value answer = json(R"({"pid":4711,"name":"code","state":"sleeping","threads":1,"nice":5,"user":"anna",
        "command":"/usr/bin/code --open","descriptors":88,"cpu":50.0,"footprint":1048576,"diskRead":0,"time":1060,
        "group":{"pid":4711,"name":"code","processes":7},"parents":[{"pid":2100,"name":"systemd"},{"pid":1,"name":"systemd"}],
        "course":[{"time":1000,"cpu":0},{"time":1030,"cpu":100},{"time":1060,"cpu":50}],"children":[],
        "connections":[{"host":"192.0.2.7","protocol":"tcp","connections":2,"ports":[443,993],"received":2048}]})");
    const std::string page = textOf(processDetailLines(answer, 100));
    EXPECT_THAT(page, testing::StartsWith("4711 code\nstate        sleeping, 1 thread, nice 5, 88 open descriptors\n"));
    EXPECT_THAT(page, HasSubstr("application  4711 code, 7 processes\nparents      2100 systemd, 1 systemd\n"));
    EXPECT_THAT(page, HasSubstr("CPU          50.0 % of one core  "));
    EXPECT_THAT(page, HasSubstr("█"));
    EXPECT_THAT(page, HasSubstr("192.0.2.7"));
    EXPECT_THAT(page, HasSubstr("443, 993"));
    EXPECT_EQ(textOf(processDetailLines(json(R"({"pid":2,"name":"kthreadd"})"), 80)), "2 kthreadd\n");
}

} // namespace
} // namespace meridal
