// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/processes/MacAdapters.h"
#include "simulated/mac/SimulatedMac.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <set>
#include <string>

namespace meridal {
namespace {

// Names as on a Mac with Safari open; figures are invented.
class MacProcessesTest : public testing::Test {
protected:
    MacProcessesTest()
    {
        add(0, {.command = "kernel_task", .parent = 0, .threads = 600, .running = 8});
        add(1, {.command = "launchd", .name = "launchd", .path = "/sbin/launchd"});
        add(402, {.command = "com.apple.WebKit.WebContent", .name = "com.apple.WebKit.WebContent", .user = 501});
        mac.kernel.processes[402].nice = -5;
        mac.kernel.processes[402].start = {1'700'000'000, 123'456};
        mac.kernel.set("hw.tbfrequency", std::int64_t{24'000'000});
    }

    void add(std::int32_t pid, test::SimulatedProcess process) { mac.kernel.processes[pid] = std::move(process); }

    ProcessSource& source()
    {
        made = made ? std::move(made) : makeLibprocProcessSource(release, limitations);
        return *made;
    }
    /// What a pass has of a process; one with pid -1 where it has nothing.
    ProcessRecord row(std::int32_t pid, ProcessFields wanted = ProcessFields::All)
    {
        for (const ProcessRecord& each : source().readProcesses(wanted)) {
            if (each.pid == pid) {
                return each;
            }
        }
        ProcessRecord none;
        none.pid = -1;
        return none;
    }
    /// Once, after the next answer to that.
    void then(const std::string& call, std::function<void()> happens)
    {
        mac.kernel.meanwhile = [this, call, happens](const std::string& answered) {
            if (answered == call) {
                mac.kernel.meanwhile = nullptr;
                happens();
            }
        };
    }

    test::SimulatedMac mac;
    Limitations limitations;
    SystemRelease release{.major = 14, .minor = 0};
    std::unique_ptr<ProcessSource> made;
};

TEST_F(MacProcessesTest, TheTableIsReadWholeHoweverItGrows)
{
    EXPECT_EQ(source().readProcesses(ProcessFields::None).size(), 3U);
    int born = 1000;
    const auto bear = [&](int count) {
        for (const int end = born + count; born < end; ++born) {
            add(born, {.command = "worker" + std::to_string(born)});
        }
    };
    for (const int more : {6, 7, 100}) { // the kernel allows for five, and the reader for one
        then("size of the table", [&] { bear(more); });
        const auto rows = source().readProcesses(ProcessFields::None);
        ASSERT_EQ(rows.size(), mac.kernel.processes.size()) << more;
        for (const ProcessRecord& each : rows) {
            EXPECT_EQ(each.name, mac.kernel.processes[each.pid].command.substr(0, 27)) << "of " << each.pid;
        }
    }
    int calls = mac.ledger.calls("table");
    mac.ledger.fail("table", ENOMEM, 7);
    EXPECT_FALSE(source().readProcesses(ProcessFields::None).empty());
    EXPECT_EQ(mac.ledger.calls("table") - calls, 8);
    mac.ledger.fail("table", ENOMEM, 1000);
    EXPECT_TRUE(source().readProcesses(ProcessFields::None).empty()) << "who does not win gives up";
    EXPECT_EQ(mac.ledger.calls("table") - calls, 16);
    EXPECT_LT(mac.kernel.roomForTable, (mac.kernel.processes.size() + 200) * sizeof(kinfo_proc))
        << "nor takes all memory";
    calls = mac.ledger.calls("table");
    mac.ledger.fail("table", EPERM, 1000);
    EXPECT_TRUE(source().readProcesses(ProcessFields::None).empty());
    EXPECT_EQ(mac.ledger.calls("table") - calls, 1) << "another error is no race";
    mac.ledger.fail("size of the table", EPERM);
    EXPECT_TRUE(source().readProcesses(ProcessFields::None).empty());
}

TEST_F(MacProcessesTest, WhatIsRefusedIsAbsentAndNotZero)
{
    mac.kernel.user = 501;
    const ProcessRecord other = row(1);
    EXPECT_EQ(other.pid, 1) << "everybody may know that it runs";
    EXPECT_EQ(other.present, ProcessFields::None);
    EXPECT_EQ(other.user, 0U);
    EXPECT_EQ(other.state, RunState::Unknown);
    EXPECT_EQ(mac.ledger.calls("task_name_for_pid"), 1) << "what is refused is not asked for again, at a call each";

    const ProcessRecord own = row(402);
    EXPECT_EQ(own.present, ProcessFields::All);
    EXPECT_EQ(own.user, 501U);
    EXPECT_EQ(own.nice, -5);
    EXPECT_EQ(own.startIdentity, 1'700'000'000'123'456U);
    EXPECT_EQ(source().startTime(own.startIdentity), 1'700'000'000.123456);
    // A policy may refuse root, too, and one question without the other.
    mac.ledger.fail("proc_pid_rusage 3", EPERM, 1);
    EXPECT_EQ(row(402).present, ProcessFields::Memory);
    mac.ledger.fail("task_name_for_pid", KERN_FAILURE);
    EXPECT_EQ(row(402).present, ProcessFields::Cpu | ProcessFields::Disk | ProcessFields::Wakeups);
}

TEST_F(MacProcessesTest, OneThatEndsWhileItIsLookedAtTakesNothingWithIt)
{
    add(77, {.command = "gone", .status = SZOMB});
    then("table", [this] { mac.kernel.processes.erase(402); });
    EXPECT_EQ(row(402).pid, -1) << "before its details";
    EXPECT_EQ(row(77).status, ProcessStatus::Zombie);
    EXPECT_EQ(row(77).present, ProcessFields::None);
    EXPECT_EQ(row(77).name, "gone");
    EXPECT_EQ(source().commandName(77), std::nullopt) << "it has ended for all purposes but its parent's";

    for (const char* call : {"proc_pidinfo 2", "proc_pid_rusage 3", "task_name_for_pid"}) {
        const auto pid = static_cast<std::int32_t>(mac.kernel.processes.size()) + 500;
        mac.kernel.processes = {{pid, {.command = "brief"}}};
        then(call, [this] { mac.kernel.processes.clear(); });
        const ProcessRecord record = row(pid);
        EXPECT_EQ(record.pid, pid) << call;
        EXPECT_FALSE(has(record.present, ProcessFields::Memory)) << call;
        EXPECT_EQ(has(record.present, ProcessFields::Cpu), std::string(call) != "proc_pidinfo 2") << call;
    }
    EXPECT_EQ(mac.ledger.open(), std::vector<std::string>()) << "its port was given back";
}

TEST_F(MacProcessesTest, TheLongerNameIsTheBetterOne)
{
    EXPECT_EQ(row(402).name, "com.apple.WebKit.WebContent");
    EXPECT_EQ(source().commandName(402), "com.apple.WebKit.WebContent");
    // Lengths at which fields end, invented.
    for (const std::size_t length : {15U, 16U, 31U, 32U, 40U}) {
        const std::string name(length, 'n');
        add(500, {.command = name});
        EXPECT_EQ(row(500).name, name.substr(0, 16)) << "no longer one is registered";
        EXPECT_EQ(source().commandName(500), name.substr(0, 16));
        EXPECT_EQ(source().mayBeCut(row(500).name.size()), length > 15);
        add(500, {.command = name, .name = name});
        EXPECT_EQ(row(500).name, name.substr(0, 31));
        EXPECT_EQ(source().commandName(500), name.substr(0, 31));
        EXPECT_EQ(source().mayBeCut(row(500).name.size()), length > 15);
    }
    mac.kernel.user = 501;
    EXPECT_EQ(row(500).name, std::string(16, 'n')) << "another user's";
    EXPECT_EQ(source().commandName(500), std::string(16, 'n'));
    EXPECT_EQ(source().commandName(9), std::nullopt);
    mac.ledger.fail("table", EPERM);
    EXPECT_EQ(source().commandName(402), std::nullopt);
}

TEST_F(MacProcessesTest, UsageIsAskedForAsTheReleaseHasItAndOnce)
{
    auto& usage = mac.kernel.processes[402].usage;
    usage.ri_user_time = 300;
    usage.ri_system_time = 41;
    usage.ri_pkg_idle_wkups = 5;
    usage.ri_diskio_bytesread = 6;
    usage.ri_diskio_byteswritten = 7;
    for (const SystemRelease each : {SystemRelease{10, 11}, SystemRelease{10, 12}, SystemRelease{11, 0}}) {
        release = each;
        made.reset();
        const int second = mac.ledger.calls("proc_pid_rusage 2");
        const int third = mac.ledger.calls("proc_pid_rusage 3");
        const ProcessRecord record = row(402);
        EXPECT_EQ(mac.ledger.calls("proc_pid_rusage 2") - second, each.minor == 11 ? 3 : 0) << each.minor;
        EXPECT_EQ(mac.ledger.calls("proc_pid_rusage 3") - third, each.minor == 11 ? 0 : 3) << each.minor;
        EXPECT_EQ(record.cpuTime, 341U);
        EXPECT_EQ(record.cpuUser, 300U);
        EXPECT_EQ(record.idleWakeups, 5U);
        EXPECT_EQ(record.diskBytesRead, 6U);
        EXPECT_EQ(record.diskBytesWritten, 7U);
    }
    const int asked = mac.ledger.calls("proc_pid_rusage 3");
    EXPECT_EQ(row(402, ProcessFields::Memory).present, ProcessFields::Memory);
    EXPECT_EQ(mac.ledger.calls("proc_pid_rusage 3"), asked);
    EXPECT_EQ(row(402, ProcessFields::Disk).present, ProcessFields::Disk);
    EXPECT_EQ(source().alongWith(ProcessFields::Memory), ProcessFields::Memory);
    EXPECT_EQ(source().alongWith(ProcessFields::Disk | ProcessFields::Memory), ProcessFields::All);
}

TEST_F(MacProcessesTest, MemoryIsAsTheKernelCountsItAndEachPortIsGivenBack)
{
    task_vm_info& memory = mac.kernel.processes[402].memory;
    memory.resident_size = 900;
    memory.internal = 500;
    memory.purgeable_volatile_pmap = 60;
    memory.compressed = 30;
    memory.phys_footprint = 777;
    ProcessRecord record = row(402);
    EXPECT_EQ(record.physFootprint, 777U);
    EXPECT_EQ(record.anonymous, 500U);
    EXPECT_EQ(record.purgeableVolatile, 60U) << "which one of the two flavours tells";
    EXPECT_EQ(record.compressed, 30U);
    EXPECT_EQ(record.residentSize, 900U);

    mac.kernel.memoryWords = TASK_VM_INFO_REV0_COUNT;
    EXPECT_EQ(row(402).physFootprint, 470U) << "of an older kernel, from its parts";
    memory.purgeable_volatile_pmap = 501;
    EXPECT_EQ(row(402).physFootprint, 30U) << "the parts are counted one after the other";

    mac.ledger.fail("task_info 23", KERN_FAILURE, 3);
    EXPECT_FALSE(has(row(402).present, ProcessFields::Memory));
    EXPECT_EQ(row(402, ProcessFields::Cpu).present, ProcessFields::Cpu);
    EXPECT_EQ(mac.ledger.open(), std::vector<std::string>());
}

TEST_F(MacProcessesTest, StatesAndCounts)
{
    const auto stateWith = [this](char status, int running) {
        mac.kernel.processes[402].status = status;
        mac.kernel.processes[402].running = running;
        return row(402).state;
    };
    EXPECT_EQ(stateWith(SRUN, 0), RunState::Sleeping) << "the kernel says of all that they run";
    EXPECT_EQ(stateWith(SRUN, 2), RunState::Running);
    EXPECT_EQ(stateWith(SSTOP, 2), RunState::Stopped);
    mac.kernel.user = 502;
    EXPECT_EQ(stateWith(SSTOP, 0), RunState::Stopped) << "another user's";
    EXPECT_EQ(row(402).parentPid, 1);
    mac.kernel.user = 0;
    EXPECT_EQ(row(0).threads, 600U);
    EXPECT_TRUE(row(0).isKernelThread);
    EXPECT_FALSE(row(1).isKernelThread);
}

TEST_F(MacProcessesTest, ProgramsAreFoundByTheirArgumentsThenByTheirFiles)
{
    const std::string program = "/Applications/Safari.app/Contents/MacOS/Safari";
    add(600, {.command = "Safari", .user = 501, .path = program, .arguments = test::argumentArea("Safari", {"-x"})});
    EXPECT_EQ(source().executablePath(600, "Safari"), "Safari") << "as it was given to exec";
    EXPECT_EQ(source().bundleLocation(600, {}), "/Applications/Safari.app");
    mac.kernel.user = 502;
    EXPECT_EQ(source().executablePath(600, "Safari"), program) << "another user's";
    EXPECT_EQ(source().bundleLocation(1, {}), "/sbin/launchd");
    EXPECT_EQ(source().bundleLocation(9, {}), std::nullopt);
    EXPECT_EQ(source().executablePath(0, "kernel_task"), std::nullopt) << "has neither";
    mac.kernel.user = 0;
    mac.ledger.fail("sysctl", EPERM);
    EXPECT_EQ(source().executablePath(600, "Safari"), program) << "who does not know the limit does not ask";
}

std::int32_t responsibleFor(std::int32_t pid) { return pid == 402 ? 600 : -1; }

TEST_F(MacProcessesTest, WhatTheSystemDoesNotHaveIsSaid)
{
    EXPECT_EQ(source().timeBase(), 24'000'000);
    EXPECT_EQ(source().responsiblePid(402), std::nullopt);
    EXPECT_EQ(limitations.all().count("responsible-pid"), 1U);
    EXPECT_EQ(limitations.all().count("cpu"), 0U);
    auto& library = mac.kernel.libraries["/usr/lib/system/libquarantine.dylib"];
    limitations.clear("responsible-pid");
    made = makeLibprocProcessSource(release, limitations);
    EXPECT_EQ(limitations.all().count("responsible-pid"), 1U) << "a library without the function";
    library["responsibility_get_pid_responsible_for_pid"] = reinterpret_cast<void*>(responsibleFor);
    mac.kernel.settings.clear();
    Limitations ofLater;
    made = makeLibprocProcessSource(release, ofLater);
    EXPECT_EQ(source().responsiblePid(402), 600);
    EXPECT_EQ(source().responsiblePid(1), std::nullopt) << "an error";
    EXPECT_EQ(ofLater.all().size(), 1U);
    EXPECT_EQ(ofLater.all().count("cpu"), 1U);
    EXPECT_EQ(source().timeBase(), 0);
}

TEST_F(MacProcessesTest, OneProcessLookedAtCloser)
{
    const auto inspection = makeLibprocInspection();
    add(600,
        {.command = "zsh", .user = 501, .path = "/bin/zsh", .arguments = test::argumentArea("/bin/zsh", {"-zsh"})});
    mac.kernel.processes[600].workingDirectory = "/Users/ada";
    mac.kernel.processes[600].files = {0, 1, 2};
    EXPECT_EQ(inspection->arguments(600), std::string("-zsh") + '\0');
    ProcessInsight insight = inspection->inspect(600);
    EXPECT_EQ(insight.executable, "/bin/zsh");
    EXPECT_EQ(insight.workingDirectory, "/Users/ada");
    EXPECT_EQ(insight.descriptors, 3U) << "and not those that there would be room for";
    mac.kernel.processes[600].files.clear();
    EXPECT_EQ(inspection->inspect(600).descriptors, 0U);
    then("proc_pidinfo 1, size", [this] { mac.kernel.processes.erase(600); });
    EXPECT_EQ(inspection->inspect(600).descriptors, std::nullopt) << "it has ended, which is not to have none";

    mac.kernel.user = 501;
    insight = inspection->inspect(1);
    EXPECT_EQ(insight.executable, "/sbin/launchd") << "anybody may know";
    EXPECT_EQ(insight.workingDirectory, std::nullopt);
    EXPECT_EQ(insight.descriptors, std::nullopt);
    EXPECT_EQ(inspection->arguments(1), std::nullopt);
    add(601, {.command = "cc", .user = 501, .arguments = test::argumentArea("cc", {std::string(100'000, 'a')})});
    EXPECT_EQ(inspection->arguments(601)->size(), 16'384U);
}

} // namespace
} // namespace meridal
