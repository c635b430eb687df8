// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/ProcParsers.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <string>

namespace meridal::proc {
namespace {

using namespace std::string_literals;

std::string statLine(const std::string& name)
{
    return "812 (" + name
        + ") S 7 812 812 0 -1 4194560 1200 0 3 0 250 130 -5 6 20 -7 3 0 5500 170000000 2600 18446744073709551615 1\n";
}

TEST(ParseStat, ReadsItsFields)
{
    EXPECT_EQ(parseStat(statLine("cat")),
        (Stat{.name = "cat",
            .state = 'S',
            .parentPid = 7,
            .flags = 4194560,
            .cpuTicks = 380,
            .userTicks = 250,
            .childTicks = 6,
            .childUserTicks = 0, // told below 0
            .nice = -7,
            .threads = 3,
            .startTicks = 5500}));
}

TEST(ParseStat, AnyNameLeavesTheFiguresAlone)
{
    for (const std::string& name : {"a b"s, ") R 1 1 1"s, "((("s, "x)\n(y"s, ""s, "\xFF\x80\x01"s}) {
        const std::string line = statLine(name);
        const auto stat = parseStat(line);
        ASSERT_TRUE(stat) << name;
        EXPECT_EQ(stat->name, name);
        EXPECT_EQ(stat->startTicks, 5500U);
    }
    const bool holds = rc::check("any bytes as a name", [](const std::string& name) {
        const std::string line = statLine(name);
        const auto stat = parseStat(line);
        RC_ASSERT(stat && stat->name == name && stat->parentPid == 7 && stat->cpuTicks == 380U);
    });
    EXPECT_TRUE(holds);
}

TEST(ParseStat, ACutFileIsNoFile)
{
    const std::string line = statLine("cat");
    const std::size_t enough = line.find("5500 ") + 5;
    for (std::size_t size = 0; size < enough; ++size) {
        EXPECT_FALSE(parseStat(std::string_view(line).substr(0, size))) << size;
    }
    EXPECT_TRUE(parseStat(std::string_view(line).substr(0, enough)));
    EXPECT_FALSE(parseStat(") 1 ("));
    EXPECT_FALSE(parseStat("1 (x) S 99999999999 1 1 0 -1 0 0 0 0 0 1 1 0 0 20 0 1 0 5 ")) << "parent of 2^36";
    EXPECT_FALSE(parseStat("1 (x) S 1 1 1 0 -1 0 0 0 0 0 99999999999999999999 1 0 0 20 0 1 0 5 ")) << "above 64 bits";
}

TEST(ParseStat, TellsWhatLasts)
{
    constexpr std::uint64_t worker = 0x4208060; // as in /proc of Linux 6.18
    constexpr std::uint64_t program = 0x400000;
    const std::tuple<std::string_view, std::uint64_t, std::string_view> names[] = {
        {"kworker/0:1-events", worker, "kworker/0:1"}, {"kworker/1:0H+kblockd", worker, "kworker/1:0H"},
        {"kworker/u8:2-ext4-rsv-conversion", worker, "kworker/u8:2"}, {"kworker/u9:0", worker, "kworker/u9:0"},
        {"kworker/R-ext4-rsv-conversion", worker, "kworker/R-ext4-rsv-conversion"},
        {"kworker/0:1-evi", program, "kworker/0:1-evi"}, {"my-worker", worker, "my-worker"}};
    for (const auto& [name, flags, lasting] : names) {
        EXPECT_EQ(lastingName(name, flags), lasting);
    }
    for (const auto& [state, threads, ended] :
        {std::tuple('S', 1U, false), {'Z', 1U, true}, {'Z', 2U, false}, {'X', 2U, true}}) {
        Stat stat;
        stat.state = state;
        stat.threads = threads;
        EXPECT_EQ(hasEnded(stat), ended) << state << threads;
        EXPECT_EQ(hasLostMainThread(stat), state == 'Z' && !ended);
    }
    EXPECT_EQ(threadGroupOf("Name:\tTgid:\t5\nState:\tS\nTgid:\t42\nPid:\t43\n"), 42);
    EXPECT_EQ(threadGroupOf("Name:\tx\nTgid:\t99999999999\n"), 0);
    EXPECT_EQ(threadGroupOf(""), 0);
}

TEST(ParseStatus, TellsMemoryFromItsAbsence)
{
    const auto process = parseStatus(
        "Name:\tVmRSS:\\n9\nState:\tS\nUid:\t7\t1000\t7\t7\nVmHWM:\t 9 kB\nVmRSS:\t 100 kB\nRssAnon:\t 60 kB\n"
        "RssFile:\t 30 kB\nRssShmem:\t 10 kB\nVmSwap:\t 5 kB\n"
        "voluntary_ctxt_switches:\t77\nnonvoluntary_ctxt_switches:\t5\n");
    EXPECT_EQ(process,
        (Status{.hasMemory = true,
            .hasParts = true,
            .residentBytes = 102400,
            .anonymousBytes = 61440,
            .sharedMemoryBytes = 10240,
            .swapBytes = 5120,
            .voluntarySwitches = 77,
            .user = 1000}));
    const auto thread = parseStatus("Name:\tkthreadd\nThreads:\t1\nvoluntary_ctxt_switches:\t3\n");
    ASSERT_TRUE(thread);
    EXPECT_FALSE(thread->hasMemory);
    EXPECT_FALSE(parseStatus("Name:\tx\nVmRSS:\t 100 kB\nvoluntary_ctxt_switches:\t7")) << "the number may be cut";
    EXPECT_FALSE(parseStatus(""));
}

TEST(ParseIo, NeedsAllThree)
{
    const auto io = parseIo("rchar: 1\nwchar: 2\nsyscr: 3\nsyscw: 4\nread_bytes: 5\nwrite_bytes: 6\n"
                            "cancelled_write_bytes: 7\n");
    EXPECT_EQ(io, (Io{.readBytes = 5, .writeBytes = 6, .cancelledWriteBytes = 7}));
    EXPECT_FALSE(parseIo("read_bytes: 5\ncancelled_write_bytes: 7\n"));
    EXPECT_FALSE(parseIo("read_bytes: 5\nwrite_bytes: 6\ncancelled_write_bytes: 7"));
    EXPECT_FALSE(parseIo("read_bytes: -5\nwrite_bytes: 6\ncancelled_write_bytes: 7\n"));
}

TEST(ParseSchedstat, NeedsAWholeLine)
{
    EXPECT_EQ(parseSchedstat("10 20 30\n"), (Schedstat{.runTime = 10, .waitTime = 20, .slices = 30}));
    EXPECT_FALSE(parseSchedstat("10 20 30"));
    EXPECT_FALSE(parseSchedstat("10 20\n"));
    EXPECT_FALSE(parseSchedstat(""));
}

TEST(ParseCmdline, FindsTheArgumentThatTheNameBegan)
{
    constexpr std::size_t limit = 15;
    EXPECT_EQ(parseCmdline("/usr/bin/python3\0/usr/bin/a-very-long-script\0"s, "a-very-long-scr", limit),
        "/usr/bin/a-very-long-script");
    EXPECT_EQ(parseCmdline("/bin/cat\0file\0"s, "cat", limit), "/bin/cat");
    EXPECT_EQ(parseCmdline("/bin/catalogue\0"s, "cat", limit), "") << "a short name is not cut";
    EXPECT_EQ(parseCmdline("a-very-long-server: worker\0"s, "a-very-long-ser", limit), "") << "a title";
    EXPECT_EQ(parseCmdline("/opt/my apps/a very long program\0"s, "a very long pro", limit),
        "/opt/my apps/a very long program");
    EXPECT_EQ(parseCmdline("/bin/sh\0-c\0"s, "", limit), "/bin/sh");
    EXPECT_EQ(parseCmdline("", "", limit), "");
    EXPECT_EQ(parseCmdline("\0\0\0"s, "x", limit), "");
}

} // namespace
} // namespace meridal::proc
