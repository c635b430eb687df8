// SPDX-License-Identifier: Apache-2.0
#include "base/Log.h"
#include "base/LogWriter.h"
#include "tests/support/VirtualRuntime.h"

#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace meridal {
namespace {

namespace fs = std::filesystem;

class LogTest : public testing::Test {
protected:
    static std::vector<std::string> linesOf(const fs::path& path)
    {
        std::vector<std::string> lines;
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line);
        }
        return lines;
    }
    std::vector<std::string> fileLines() const { return linesOf(folder / "meridald-20261121T074500.log"); }

    test::TemporaryTree tree;
    const fs::path folder = tree.root() / "log";
    VirtualRuntime runtime{1'795'247'100}; // 2026-11-21T07:45:00Z
};

TEST_F(LogTest, LinesReachTheFileWithTimeAndLevelBeforeFlushReturns)
{
    Log log;
    log.addFiles(runtime, folder / "a" / "b");
    log.info("Daemon started");
    log.error("no sensors");
    log.flush();
    const auto lines = linesOf(folder / "a" / "b" / "meridald-20261121T074500.log");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(lines[0].starts_with("[2026-11-2")) << lines[0];
    EXPECT_TRUE(lines[0].ends_with("] [info] Daemon started")) << lines[0];
    EXPECT_TRUE(lines[1].ends_with("] [error] no sensors")) << lines[1];
    EXPECT_EQ(log.droppedLines(), 0U);
}

TEST_F(LogTest, LinesOfTheStartWaitForTheFiles)
{
    Log log;
    for (int i = 0; i < 1000; ++i) {
        log.warning("start " + std::to_string(i));
    }
    log.addFiles(runtime, folder);
    log.info("later");
    log.flush();
    const auto lines = linesOf(fs::directory_iterator(folder)->path());
    ASSERT_EQ(lines.size(), 129U) << "the first ones, and those since";
    EXPECT_TRUE(lines[0].ends_with("[warning] start 0"));
    EXPECT_TRUE(lines[128].ends_with("[info] later"));
}

TEST_F(LogTest, FilesAreNamedByTheClockOfTheirLines)
{
    const char* before = std::getenv("TZ");
    const std::string kept = before ? before : "";
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ::tzset();
    {
        Log log;
        log.addFiles(runtime, folder, {.maximumAge = 3600});
        log.info("one");
        log.flush();
        EXPECT_TRUE(linesOf(folder / "meridald-20261121T084500.log").at(0).starts_with("[2026-11-21 08:45:00"));
        runtime.advance(3590);
    }
    Log again;
    again.addFiles(runtime, folder, {.maximumAge = 3600});
    again.info("two");
    runtime.advance(20);
    again.info("three");
    again.flush();
    EXPECT_EQ(linesOf(folder / "meridald-20261121T084500.log").size(), 2U) << "its age is known after a restart";
    EXPECT_TRUE(fs::exists(folder / "meridald-20261121T094510.log"));
    before ? ::setenv("TZ", kept.c_str(), 1) : ::unsetenv("TZ");
    ::tzset();
}

TEST_F(LogTest, DestroyingTheLogWritesWhatWaits)
{
    {
        Log log;
        log.addFiles(runtime, folder);
        for (int i = 0; i < 200; ++i) {
            log.info("line " + std::to_string(i));
        }
    }
    const auto lines = fileLines();
    ASSERT_EQ(lines.size(), 200U);
    EXPECT_TRUE(lines.back().ends_with("line 199"));
}

TEST_F(LogTest, ListenersGetPrintableTextAtOnce)
{
    Log log;
    std::vector<std::pair<LogLevel, std::string>> got;
    log.info("before anybody listens");
    log.addListener([&](LogLevel level, std::string_view line) { got.emplace_back(level, line); });
    log.warning("name \x1B[2J\xFF\nforged line");
    EXPECT_EQ(
        got, (std::vector<std::pair<LogLevel, std::string>>{{LogLevel::Warning, "name ?[2J\xEF\xBF\xBD?forged line"}}));
    log.info(std::string(1'000'000, 'x'));
    EXPECT_LE(got.back().second.size(), 4096U);
    log.flush(); // nobody to wait for
}

TEST_F(LogTest, FolderThatCannotBeMadeLeavesTheLogAsItWas)
{
    std::ofstream(folder) << "in the way";
    Log log;
    std::vector<std::string> got;
    log.addListener([&](LogLevel, std::string_view line) { got.emplace_back(line); });
    log.addFiles(runtime, folder / "logs");
    log.info("still here");
    log.flush();
    ASSERT_EQ(got.size(), 2U);
    EXPECT_EQ(got[1], "still here");
}

TEST_F(LogTest, ThreadsMayWriteAndFlushAtOnce)
{
    Log log;
    log.addFiles(runtime, folder);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 100; ++k) {
                log.info("line");
                if (k % 20 == 0) {
                    log.flush();
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    log.flush();
    EXPECT_EQ(fileLines().size(), 300U);
}

TEST(LogWriter, OldestLineGivesWayWhileTheDiskIsSlow)
{
    std::promise<void> started;
    std::promise<void> disk;
    std::vector<std::string> written;
    LogWriter writer(3, [&, first = true](const LogWriter::Batch& batch) mutable {
        if (std::exchange(first, false)) {
            started.set_value();
            disk.get_future().wait();
        }
        for (const auto& line : batch) {
            written.push_back(line.text);
        }
    });
    writer.push({.text = "a"});
    started.get_future().wait();
    for (const char* text : {"b", "c", "d", "e", "f"}) {
        writer.push({.text = text}); // returns although the disk does not
    }
    EXPECT_EQ(writer.lostLines(), 2U);
    disk.set_value();
    writer.flush();
    EXPECT_EQ(written, (std::vector<std::string>{"a", "d", "e", "f"}));
}

} // namespace
} // namespace meridal
