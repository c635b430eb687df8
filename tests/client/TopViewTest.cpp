// SPDX-License-Identifier: Apache-2.0
#include "client/views/TopView.h"

#include "base/Text.h"
#include "client/screen/WallClock.h"
#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace meridal {
namespace {

using testing::HasSubstr;

TopFrame frameOf(RequestKey list, const Dictionary& envelope)
{
    TopFrame frame;
    frame.list = list;
    frame.table = readTopTable(list, envelope, 2);
    return frame;
}

const Dictionary cpuList = {{"type", "1"},
    {"processes",
        {{{"key", "7"}, {"name", "spinner"}, {"c", "150.00"}}, {{"key", "1"}, {"name", "init"}, {"c", "0.25"}}}}};

TEST(TopView, RowsKeepTheDaemonsRankingOrThatOfTheirSums)
{
    TopFrame cpu = frameOf(RequestKey::Cpu, cpuList);
    cpu.cores = 4;
    Dictionary memory = {{"type", "2"}, {"processes", {{{"key", "5"}, {"name", "a"}, {"m", "1048576"}}}},
        {"processes-footprint",
            {{{"key", "6"}, {"name", "b"}, {"m", "2048"}}, {{"key", "5"}, {"name", "a"}, {"m", "1024"}}}}};
    const Dictionary disk = {{"type", "4"},
        {"read",
            {{{"key", "1"}, {"name", "reader"}, {"r", 4096.0}, {"w", 0}},
                {{"key", "2"}, {"name", "both"}, {"r", 2048}, {"w", 8192}}}},
        {"write",
            {{{"key", "2"}, {"name", "both"}, {"r", 2048}, {"w", 8192}},
                {{"key", "3"}, {"name", "writer"}, {"w", 1}, {"t", 12}}}}};
    const std::pair<TopFrame, const char*> tables[] = {
        {cpu,
            "CPU  2 processes listed use 150.2 % of one core, 37.6 % of all 4\n"
            "     PID       CPU %  NAME\n"
            "       7       150.0  spinner\n"
            "       1         0.2  init\n"},
        {frameOf(RequestKey::Memory, memory),
            "MEMORY  2 processes listed hold 1.00 MiB\n"
            "     PID      MEMORY   FOOTPRINT  NAME\n"
            "       5    1.00 MiB    1.00 KiB  a\n"
            "       6           -    2.00 KiB  b\n"},
        {frameOf(RequestKey::Disk, disk),
            "DISK  3 processes listed read 6.00 KiB/s, write 8.00 KiB/s\n"
            "     PID        READ       WRITE  NAME\n"
            "       2  2.00 KiB/s  8.00 KiB/s  both\n"
            "       1  4.00 KiB/s       0 B/s  reader\n"
            "       3           -       1 B/s  writer\n"}};
    for (const auto& [frame, text] : tables) {
        EXPECT_EQ(textOf(tableLines(frame, 20, 0)), text);
    }
    EXPECT_EQ(tableLines(cpu, 1, 0).size(), 3U) << "the sum is of what the daemon lists, the rows as many as asked";
    memory.erase("processes-footprint");
    EXPECT_EQ(plainText(tableLines(frameOf(RequestKey::Memory, memory), 20, 0)[1]), "     PID      MEMORY  NAME");
}

TEST(TopView, NetworkShowsWhatIsNobodys)
{
    Dictionary envelope = {{"type", "8"}, {"download", {{{"key", "5"}, {"name", "a"}, {"d", 3072.0}, {"u", 0.0}}}},
        {"upload", Value::array()}, {"attributed", {{"d", 3072.0}, {"u", 0.0}}}, {"kernel", {{"d", 0.0}, {"u", 512.0}}},
        {"unattributed", {{"d", 512.0}, {"u", 0.0}}}};
    EXPECT_EQ(plainText(tableLines(frameOf(RequestKey::Network, envelope), 20, 0).at(1)),
        "kernel 256 B/s, unattributed 256 B/s (12.5 %)");
    envelope["source"] = "capture";
    EXPECT_EQ(plainText(tableLines(frameOf(RequestKey::Network, envelope), 20, 0).at(1)),
        "counted from captured packets; kernel 256 B/s, unattributed 256 B/s (12.5 %)");
    EXPECT_EQ(tableAsJson(readTopTable(RequestKey::Network, envelope, 2), 20)["source"], "capture");
    EXPECT_EQ(tableAsJson(readTopTable(RequestKey::Network, envelope, 2), 20)["unattributedBytesPerSecond"], 256);
    EXPECT_FALSE(readTopTable(RequestKey::Network, envelope).traffic) << "bytes of no time are no rate";
    envelope["unattributed"] = "none of your business";
    EXPECT_FALSE(readTopTable(RequestKey::Network, envelope, 2).traffic);
}

TEST(TopView, JsonHasFiguresAsNumbersAndLeavesOutWhatIsAbsent)
{
    const Dictionary envelope = {{"download", {{{"key", "9"}, {"name", "curl"}, {"d", 12}}}}, {"upload", "none"}};
    EXPECT_EQ(tableAsJson(readTopTable(RequestKey::Network, envelope, 2.0004, 1.7e9), 20),
        (Dictionary{{"list", "network"}, {"seconds", 2.0}, {"time", isoTime(1.7e9)},
            {"processes", {{{"pid", 9}, {"name", "curl"}, {"receivedBytesPerSecond", 6.0}}}}}));
    EXPECT_EQ(readTopTable(RequestKey::Network, envelope).rows.at(0).figures[0], std::nullopt) << "of no time";
    const Dictionary idle = {{"processes", {{{"key", "7"}, {"name", "spinner"}, {"c", "0.00"}}}}};
    EXPECT_EQ(plainText(tableLines(frameOf(RequestKey::Cpu, idle), 20, 0)[0]), "CPU  no processes at work");
    EXPECT_EQ(tableAsJson(readTopTable(RequestKey::Cpu, cpuList), 1).at("processes").at(0),
        (Dictionary{{"pid", 7}, {"name", "spinner"}, {"cpuPercent", 150.0}}));
}

TEST(TopView, NothingInAnEnvelopeCanBreakTheView)
{
    const std::string evil = "evil\x1B]0;owned\x07\n\xC2\x9B"
                             "2J\xFF";
    const std::vector<Value> oddities = {nullptr, 1, -1, 1e308, "", "nan", "1e999", "[[[[", evil,
        std::string(5000, 'x'), Value::array(), Value::object(), true, Value::array({1, evil, nullptr})};
    for (const RequestKey list : allTopLists) {
        for (const Value& oddity : oddities) {
            Value entries = Value::array({oddity});
            for (const char* entry : {"key", "name", "c", "m", "r", "w", "d", "u", "score"}) {
                entries.push_back({{"key", "1"}, {entry, oddity}});
                entries.push_back({{entry, oddity}});
            }
            for (const Value& lists : {entries, oddity}) {
                Dictionary envelope;
                for (const char* name : {"processes", "processes-footprint", "read", "write", "download", "upload"}) {
                    envelope[name] = lists;
                }
                TopFrame frame = frameOf(list, envelope);
                frame.status = oddity;
                for (const Line& line : screenLines(frame, 100, 30, 60)) {
                    const std::string shown = plainText(line);
                    EXPECT_EQ(shown, printable(shown));
                    EXPECT_LE(displayWidth(shown), 60);
                }
                EXPECT_EQ(tableAsJson(*frame.table, 100).at("list"), listName(list));
            }
        }
        EXPECT_TRUE(readTopTable(list, nullptr).rows.empty());
    }
}

TEST(TopView, AScreenIsNeverLargerThanTheTerminal)
{
    TopFrame frame = frameOf(RequestKey::Cpu, cpuList);
    frame.status = {{"release", "0.1.0"}, {"version", 6.6}, {"host", "linux"}, {"passes", {{"processes", 180}}}};
    for (const int rows : {0, 1, 2, 3, 4, 5, 24}) {
        for (const int columns : {1, 7, 80}) {
            const Lines lines = screenLines(frame, 100, rows, columns);
            EXPECT_LE(lines.size(), static_cast<std::size_t>(rows));
            for (const Line& line : lines) {
                EXPECT_LE(displayWidth(plainText(line)), columns);
            }
        }
    }
    const Lines screen = screenLines(frame, 100, 24, 80);
    ASSERT_EQ(screen.size(), 24U);
    EXPECT_EQ(plainText(screen.front()), "meridald 0.1.0 on linux   180 processes");
    EXPECT_THAT(plainText(screen.back()), HasSubstr("q quit"));
    EXPECT_EQ(plainText(screenLines(frame, 100, 5, 80)[3]), "       7       150.0  spinner") << "rows give way first";
    frame.connected = false;
    EXPECT_THAT(plainText(screenLines(frame, 100, 24, 100)[0]), HasSubstr("waiting for the daemon"));
    EXPECT_THAT(plainText(screenLines(frame, 100, 24, 100)[3]), HasSubstr("spinner")) << "the last rows stay";
}

TEST(StyledText, ColoursEndWhereTheyShould)
{
    const Line line = {{Style::High, "99"}, {Style::Plain, " name  "}};
    EXPECT_EQ(colouredText(line), "\x1B[1;31m99\x1B[0m name  ");
    EXPECT_EQ(plainText(line), "99 name");
}

} // namespace
} // namespace meridal
