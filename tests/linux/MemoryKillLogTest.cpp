// SPDX-License-Identifier: Apache-2.0
// Whom the kernel killed for want of memory, from records as Linux 6.18 wrote them and as journalctl of systemd 252 gave them.

#include "platform/linux/machine/MemoryKillLog.h"
#include "platform/linux/machine/JournalExport.h"
#include "tests/support/TemporaryTree.h"
#include "tests/support/VirtualRuntime.h"

#include <gtest/gtest.h>

#include <vector>

namespace meridal {
namespace {

using namespace std::string_literals;

constexpr const char* firstCursor = "s=8439f528bdfd4a9a8f917084b6a5ecad;i=aef;b=a237c25bc6154adc951040d943698a81;m="
                                    "10a10011af;t=660e5c1c60f33;x=d45a58b5";
constexpr const char* secondCursor = "s=8439f528bdfd4a9a8f917084b6a5ecad;i=af0;b=a237c25bc6154adc951040d943698a81;m="
                                     "10a10011be;t=660e5c1c60f42;x=569e0fef";

/// A process of that name (a backslash, UTF-8, a byte that is none, a new line) outgrew the 30 MiB of its control group.
const char* const kernelLines[] = {
    "6,2743,71420609152,-;oom-kill:constraint=CONSTRAINT_MEMCG,nodemask=(null),cpuset=/,"
    "mems_allowed=0,oom_memcg=/m_unit_test,task_memcg=/m_unit_test,task=h\\x5cu\\xc3\\xbcn"
    "\\xff\\x0a) x,pid=12807,uid=0\n",
    "3,2744,71420609172,-;Memory cgroup out of memory: Killed process 12807 (h\\x5cu\\xc3\\xbcn\\xff\\x0a) x) "
    "total-vm:47728kB, anon-rss:37424kB, file-rss:4088kB, shmem-rss:0kB, UID:0 pgtables:132kB oom_score_adj:0\n"};

/// The same records.
std::string journal()
{
    return "__CURSOR="s + firstCursor
        + "\n__REALTIME_TIMESTAMP=1795389775023923\n__MONOTONIC_TIMESTAMP=71420613039\n"
          "_BOOT_ID=a237c25bc6154adc951040d943698a81\n_SOURCE_MONOTONIC_TIMESTAMP=71420609152\nMESSAGE\n"
        + "\x9c\0\0\0\0\0\0\0"s
        + "oom-kill:constraint=CONSTRAINT_MEMCG,nodemask=(null),cpuset=/,mems_allowed=0,oom_memcg=/m_unit_test,"
          "task_memcg=/m_unit_test,task=h\\u\xc3\xbcn\xff\n) x,pid=12807,uid=0\n\n"
        + "__CURSOR=" + secondCursor
        + "\n__REALTIME_TIMESTAMP=1795389775023938\n__MONOTONIC_TIMESTAMP=71420613054\n"
          "_BOOT_ID=a237c25bc6154adc951040d943698a81\n_SOURCE_MONOTONIC_TIMESTAMP=71420609172\nMESSAGE\n"
        + "\xa8\0\0\0\0\0\0\0"s
        + "Memory cgroup out of memory: Killed process 12807 (h\\u\xc3\xbcn\xff\n) x) total-vm:47728kB, "
          "anon-rss:37424kB, file-rss:4088kB, shmem-rss:0kB, UID:0 pgtables:132kB oom_score_adj:0\n\n";
}

MemoryKill killed()
{
    return {.number = 71420609172,
        .monotonicTime = 71420.609172,
        .pid = 12807,
        .name = "h\\u\xc3\xbcn\xef\xbf\xbd\n) x",
        .uid = 0,
        .cgroup = "/m_unit_test",
        .bytes = 41512 * 1024};
}

struct MemoryKillLogTest : testing::Test {
    std::vector<MemoryKill> ask()
    {
        std::optional<std::vector<MemoryKill>> found;
        log.read([&](std::vector<MemoryKill> kills) { found = std::move(kills); });
        runtime.runDue();
        EXPECT_TRUE(found);
        return found.value_or(std::vector<MemoryKill>());
    }
    /// A journalctl that notes how it is called, and says what the file has.
    void installJournal(const std::string& says, const char* end = "exit 0")
    {
        tree.write("journal", says);
        tree.write(MemoryKillLog::programFile,
            "#!/bin/sh\necho \"$*\" >> " + tree.path("asked") + "\ncat " + tree.path("journal") + "\n" + end + "\n");
        std::filesystem::permissions(tree.root() / MemoryKillLog::programFile, std::filesystem::perms::owner_all);
    }

    test::TemporaryTree tree;
    VirtualRuntime runtime;
    MemoryKillLog log{runtime, tree.root()};
};

TEST(MemoryKillRecords, OnlyWhatTheKernelItselfSaysCounts)
{
    MemoryKillRecords records;
    EXPECT_FALSE(records.takeRecord(kernelLines[0])) << "before its own record";
    EXPECT_EQ(records.takeRecord(kernelLines[1]), killed());
    auto again = killed();
    ++again.number;
    EXPECT_EQ(records.takeRecord(kernelLines[1]), again) << "two of one moment have two numbers";
    records = {};
    EXPECT_EQ(records.takeRecord(
                  "3,9,5000000,-;Out of memory: Killed process 7 (x) total-vm:8kB, anon-rss:4kB\n SUBSYSTEM=y\n"),
        (MemoryKill{.number = 5000000, .monotonicTime = 5, .pid = 7, .name = "x", .bytes = 4096}))
        << "an older kernel's, and no group is told";
    for (const char* other : {"12,9,5,-;Out of memory: Killed process 7 (x) total-vm:8kB\n", // a program wrote it
             "3,9,5,-;Out of memory: Killed process", "3,9;Out of memory: Killed process 7 (x) total-vm:8kB", "", ";",
             "3,9,5,-;Killed process 7 (x) total-vm:8kB",
             "3,9,5,-;Out of memory: Killed process 99999999999 (x) total-vm:"}) {
        EXPECT_FALSE(records.takeRecord(other)) << other;
    }
}

TEST_F(MemoryKillLogTest, TheKernelsOwnLogIsReadWhereItMayBe)
{
    installJournal(journal());
    tree.write("dev/kmsg", kernelLines[1]);
    EXPECT_EQ(ask().size(), 1U);
    EXPECT_TRUE(ask().empty()) << "once";
    EXPECT_EQ(tree.read("asked"), "");
}

TEST_F(MemoryKillLogTest, ElseTheJournalSaysTheSame)
{
    tree.write("dev/kmsg", ""); // as systemd hides it
    EXPECT_TRUE(ask().empty()) << "there is neither";
    EXPECT_FALSE(canReadKernelLog(RootFolder(tree.root())));
    installJournal(journal());
    EXPECT_FALSE(canReadKernelLog(RootFolder(tree.root()))) << "no journal is kept (Storage=none)";
    tree.write("run/log/journal/11112222333344445555666677778888/system.journal", "");
    EXPECT_TRUE(canReadKernelLog(RootFolder(tree.root())));
    EXPECT_EQ(ask(), std::vector{killed()});
    const std::string asked = tree.read("asked");
    EXPECT_NE(asked.find("--lines=10000 SYSLOG_FACILITY=0\n"), asked.npos) << asked;
    installJournal("");
    EXPECT_TRUE(ask().empty());
    EXPECT_TRUE(ask().empty());
    EXPECT_NE(tree.read("asked").rfind("--after-cursor="s + secondCursor), std::string::npos)
        << "it goes on from there";
    installJournal(journal().substr(0, journal().size() - 3), "kill -9 $$");
    EXPECT_TRUE(ask().empty()) << "cut off";
    installJournal("nonsense\n12345678\xff\xff\xff\xff", "exec cat /dev/zero");
    EXPECT_TRUE(ask().empty()) << "ended, as no sense can be made of it";
}

TEST(JournalExport, IsTakenInAnyPieces)
{
    const std::string whole = journal();
    for (const std::size_t length : {std::size_t{1}, std::size_t{7}, whole.size()}) {
        std::vector<std::string> cursors;
        JournalExport taken([&](const JournalExport::Entry& entry) { cursors.push_back(entry.at("__CURSOR")); });
        for (std::size_t at = 0; at < whole.size(); at += length) {
            ASSERT_TRUE(taken.add(std::string_view(whole).substr(at, length)));
        }
        EXPECT_EQ(cursors, (std::vector<std::string>{firstCursor, secondCursor})) << length;
    }
    JournalExport endless([](const JournalExport::Entry&) { FAIL(); });
    const std::string line(JournalExport::largestField, 'x');
    EXPECT_TRUE(endless.add(line));
    EXPECT_TRUE(endless.add(line));
    EXPECT_FALSE(endless.add(line)) << "a line without end";
}

} // namespace
} // namespace meridal
