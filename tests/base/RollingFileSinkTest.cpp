// SPDX-License-Identifier: Apache-2.0
#include "base/RollingFileSink.h"

#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <limits>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace meridal {
namespace {

namespace fs = std::filesystem;

class RollingFileSinkTest : public testing::Test {
protected:
    static constexpr double start = 1'795'247'100; // 2026-11-21T07:45:00Z
    static constexpr double day = 86'400;

    RollingFileSinkTest() { open(); }

    /// As after a restart of the daemon.
    void open() { sink.emplace(folder, "meridald", policy); }

    using Names = std::vector<std::string>;
    Names names() const
    {
        Names result;
        std::error_code missing;
        for (const auto& entry : fs::directory_iterator(folder, missing)) {
            result.push_back(entry.path().filename());
        }
        std::sort(result.begin(), result.end());
        return result;
    }

    test::TemporaryTree tree;
    const fs::path folder = tree.root() / "log";
    LogPolicy policy{.maximumAge = 30 * day, .maximumFileSize = 100, .maximumFiles = 3};
    std::optional<RollingFileSink> sink;
};

TEST_F(RollingFileSinkTest, NamesItsFileAfterTheFirstLineAndHidesItFromStrangers)
{
    EXPECT_FALSE(fs::exists(folder)) << "no line, no file";
    sink->write("Daemon started\n", start);
    EXPECT_EQ(names(), (Names{"meridald-20261121T074500.log"}));
    EXPECT_EQ(tree.read("log/" + names()[0]), "Daemon started\n");
    EXPECT_EQ(fs::status(folder / names()[0]).permissions(), fs::perms(0640));
}

TEST_F(RollingFileSinkTest, RollsBySizeAndByAgeAndKeepsTheNewest)
{
    const std::string line(60, 'x');
    sink->write(line, start);
    sink->write(line, start); // beyond 100 bytes, in the same second
    EXPECT_EQ(names(), (Names{"meridald-20261121T074500.log", "meridald-20261121T074501.log"}));
    sink->write("young\n", start + 29 * day);
    EXPECT_EQ(names().size(), 2U);
    sink->write("old\n", start + 30 * day);
    sink->write("old again\n", start + 60 * day);
    EXPECT_EQ(names(),
        (Names{"meridald-20261121T074501.log", "meridald-20261221T074500.log", "meridald-20270120T074500.log"}));
}

TEST_F(RollingFileSinkTest, RestartContinuesTheNewestFileAndItsAge)
{
    sink->write("one\n", start);
    open();
    sink->write("two\n", start + 20 * day);
    EXPECT_EQ(tree.read("log/meridald-20261121T074500.log"), "one\ntwo\n");
    open();
    sink->write("three\n", start + 30 * day); // a month after the first line, not after the restart
    EXPECT_EQ(names().size(), 2U);
}

TEST_F(RollingFileSinkTest, FilesOfOthersAreLeftAlone)
{
    fs::create_directories(folder);
    for (const char* name : {"mas-daemon.log", "meridald-99999999T999999.log", "meridald-20261121T074500.log.gz",
             "other-20200101T000000.log"}) {
        std::ofstream(folder / name) << "theirs";
    }
    for (int i = 0; i < 5; ++i) {
        sink->write(std::string(90, 'x'), start + i);
    }
    EXPECT_EQ(names().size(), 4U + 3U);
}

TEST_F(RollingFileSinkTest, ClockThatStepsBackNeitherRollsNorKeepsAFileForEver)
{
    sink->write("right\n", start);
    sink->write("clock wrong by two months\n", start + 60 * day);
    EXPECT_EQ(names().size(), 2U);
    for (int i = 0; i < 4; ++i) {
        sink->write("right again\n", start + i);
        open();
    }
    EXPECT_EQ(names().size(), 2U);
    open();
    sink->write("a\n", start + 5);
    sink->write("b\n", start + 36 * day); // old by the clock that holds now, though its name lies ahead
    EXPECT_EQ(names(),
        (Names{"meridald-20261121T074500.log", "meridald-20270120T074500.log", "meridald-20270120T074501.log"}));
}

TEST_F(RollingFileSinkTest, FolderThatGoesAwayComesBackWithTheNextLine)
{
    sink->write("one\n", start);
    fs::remove_all(folder);
    sink->write("two\n", start + 60);
    EXPECT_EQ(tree.read("log/meridald-20261121T074600.log"), "two\n");
    fs::remove_all(folder);
    std::ofstream(folder) << "a file in its place";
    sink->write("three\n", start + 120);
    sink->write("four\n", start + 120);
    EXPECT_EQ(sink->droppedLines(), 2U);
}

/// Lets this process write files up to a size only; more fails as on a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : signal_(std::signal(SIGXFSZ, SIG_IGN))
    {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, signal_);
    }

private:
    rlimit before_{};
    void (*signal_)(int);
};

TEST_F(RollingFileSinkTest, FullDiskCostsLinesAndTheNextWholeLineStartsAfresh)
{
    sink->write("first\n", start);
    {
        const FileSizeLimit limit(10);
        sink->write("second\n", start);
        sink->write("third\n", start);
    }
    sink->write("fourth\n", start);
    EXPECT_EQ(sink->droppedLines(), 2U);
    EXPECT_EQ(tree.read("log/" + names()[0]), "first\nseco\nfourth\n");
}

RC_GTEST_FIXTURE_PROP(RollingFileSinkTest, StaysWithinItsBoundsWhateverTheClockSays, ())
{
    const auto steps = *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 8));
    double now = start;
    for (const int step : steps) {
        constexpr double never = std::numeric_limits<double>::quiet_NaN();
        const double moves[] = {0, 1, day, 31 * day, -1, -31 * day, 1e300, never};
        const double moved = now + moves[step];
        sink->write(std::string(40, 'x') + '\n', moved);
        now = step < 6 ? moved : now; // a clock gone mad comes back
        if (step == 2) {
            open();
        }
    }
    RC_ASSERT(sink->droppedLines() == 0U);
    RC_ASSERT(names().size() <= 3U);
    for (const auto& name : names()) {
        RC_ASSERT(fs::file_size(folder / name) <= 100U);
    }
}

} // namespace
} // namespace meridal
