#include "daemon/MachineService.h"
#include "daemon/HistoryQuestions.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Watches.h"
#include "database/HistoryDatabaseController.h"
#include "tests/support/FakeClient.h"
#include "tests/support/FakeHost.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

constexpr std::uint64_t second = 1'000'000'000; // ns

/// Counters with a figure of its own for each column, as they stand after 0 or 6 seconds.
struct MachineCountersAt {
    FakeMachineCounters& fake;

    void set(std::uint64_t turn) const
    {
        const auto ns = [turn](std::uint64_t tenths) { return turn * tenths * second / 10; };
        fake.processor = ProcessorReading{.all = {.userNs = ns(10),
                                              .niceNs = ns(5),
                                              .systemNs = ns(20),
                                              .idleNs = ns(40),
                                              .ioWaitNs = ns(15),
                                              .interruptNs = ns(2),
                                              .stealNs = ns(8)},
            .load1Minute = 1,
            .load5Minutes = 2,
            .load15Minutes = 3,
            .runnableTasks = 4,
            .blockedTasks = 5,
            .contextSwitches = turn * 360,
            .interrupts = turn * 420,
            .forks = turn * 480};
        fake.ram = MemoryReading{.total = 100,
            .available = 60,
            .free = 1,
            .buffers = 2,
            .cached = 3,
            .shared = 4,
            .slabReclaimable = 5,
            .slabUnreclaimable = 6,
            .dirty = 7,
            .writeback = 8,
            .wired = 10,
            .compressed = 9,
            .hugePages = 13,
            .swapTotal = 50,
            .swapUsed = 12,
            .swappedIn = turn * 12,
            .swappedOut = turn * 18,
            .outOfMemoryKills = 14};
        fake.stalls = PressureReading{Stall{ns(6), {}}, Stall{ns(12), ns(3)}, Stall{ns(30), ns(15)}};
        fake.disks = {{.name = "sda",
            .reads = turn * 6,
            .readBytes = turn * 600,
            .readNs = ns(30),
            .writes = turn * 12,
            .writtenBytes = turn * 1200,
            .writeNs = ns(30),
            .busyNs = ns(18)}};
    }
};

/// A machine that is half busy, with a daemon's record of it in real files.
struct MachineServiceTest : testing::Test {
    struct Daemon {
        explicit Daemon(FakeMachine& machine)
            : databases(machine.context)
            , service((machine.context.databases = &databases, machine.context))
            , methods(machine.runtime.mainQueue())
            , watches(machine.runtime, methods)
            , questions(catalogue)
        {
            service.addTo(methods, catalogue);
            service.addTo(watches);
            questions.addTo(methods);
            service.start();
        }
        ~Daemon() { databases.closeAll(); }
        HistoryDatabaseController databases;
        HistoryCatalogue catalogue;
        MachineService service;
        MeridalHistory methods;
        Watches watches;
        HistoryQuestions questions;
    };

    MachineServiceTest()
    {
        machine.counters().processor = ProcessorReading{.load1Minute = 1.5, .contextSwitches = 0};
        machine.counters().ram = MemoryReading{.total = 1000, .available = 400, .free = 100, .dirty = 7};
        machine.counters().disks = {
            {.name = "sda", .identity = 1}, {.name = "sda1", .kind = BlockDeviceKind::Partition}};
    }
    ~MachineServiceTest() override { machine.context.databases = nullptr; }

    void start()
    {
        daemon.reset();
        daemon = std::make_unique<Daemon>(machine);
        machine.runtime.runDue();
    }
    void live(int seconds)
    {
        for (int passed = 0; passed < seconds; ++passed) {
            machine.counters().processor->all.userNs += second;
            machine.counters().processor->all.idleNs += second;
            *machine.counters().processor->contextSwitches += 500;
            machine.counters().disks->front().reads += 10;
            machine.runtime.advance(1);
        }
    }
    Value ask(const std::string& method, const Value& parameters, const std::shared_ptr<ClientLink>& client = nullptr)
    {
        Value answer;
        daemon->methods.call(method, parameters, {Peer{}, client},
            [&answer](const Result<Value>& result) { answer = result ? *result : Value(result.error().message); });
        machine.runtime.runDue();
        return answer;
    }

    static Value json(const char* text) { return parseUntrusted(text).value(); }

    FakeMachine machine;
    std::unique_ptr<Daemon> daemon;
};

TEST_F(MachineServiceTest, TheStateIsASecondOldAtMostAndSaysWhatIsAbsent)
{
    machine.fileSystems().mounted = {
        {.mount = "/", .device = "/dev/sda1", .type = "ext4", .room = FileSystemRoom{9, 4, 3}},
        {.mount = "/far", .device = "server:/far", .type = "nfs"}};
    start();
    Value state = ask("machine.state", nullptr);
    EXPECT_EQ(state["cpu"], json(R"({"load1":1.5,"processors":[]})")) << "of one reading";
    EXPECT_TRUE(state["pressure"].is_null());
    live(3);
    state = ask("machine.state", Value::array());
    EXPECT_EQ(state["cpu"]["user"], 50);
    EXPECT_EQ(state["cpu"]["busy"], 50);
    EXPECT_FALSE(state["cpu"].contains("steal"));
    ASSERT_EQ(state["disks"].size(), 1U) << "whole ones";
    EXPECT_EQ(state["disks"][0]["reads"], 10);
    EXPECT_FALSE(state["disks"][0].contains("writetime")) << "none was written";
    EXPECT_EQ(state["fileSystems"],
        json(R"([{"mount":"/","device":"/dev/sda1","type":"ext4","readOnly":false,"total":9,"used":4,"available":3},
            {"mount":"/far","device":"server:/far","type":"nfs","readOnly":false}])"))
        << "one does not answer";
    machine.counters().processor.reset();
    const auto disks = std::exchange(machine.counters().disks, std::nullopt);
    machine.runtime.advance(2);
    state = ask("machine.state", nullptr);
    EXPECT_TRUE(state["cpu"].is_null() && state["disks"].is_null());
    machine.counters().disks = disks;
    machine.counters().disks->front().reads += 30;
    machine.runtime.advance(1);
    EXPECT_EQ(ask("machine.state", nullptr)["disks"][0]["reads"], 10) << "of the three seconds";
    EXPECT_TRUE(ask("machine.state", 7).is_string());
}

TEST_F(MachineServiceTest, EveryFigureStandsUnderItsName)
{
    MachineCountersAt counters{machine.counters()};
    counters.set(0);
    start();
    counters.set(1);
    machine.runtime.advance(MachineService::recordInterval);
    const Value state = ask("machine.state", nullptr);
    EXPECT_EQ(state["cpu"],
        json(R"({"user":10.0,"nice":5.0,"system":20.0,"idle":40.0,"iowait":15.0,"interrupt":2.0,"steal":8.0,
        "busy":45.0,"load1":1.0,"load5":2.0,"load15":3.0,"runnable":4.0,"blocked":5.0,"switches":60.0,"interrupts":70.0,
        "forks":80.0,"processors":[]})"));
    EXPECT_EQ(state["memory"],
        json(R"({"used":40.0,"available":60.0,"free":1.0,"buffers":2.0,"cached":3.0,"shared":4.0,"slab":11.0,
        "dirty":7.0,"writeback":8.0,"compressed":9.0,"wired":10.0,"total":100,"swaptotal":50,"swapused":12,
        "swapin":2.0,"swapout":3.0,"hugepages":13,"oomkills":14})"));
    EXPECT_EQ(
        state["pressure"], json(R"({"cpusome":10.0,"memorysome":20.0,"memoryfull":5.0,"iosome":50.0,"iofull":25.0})"));
    EXPECT_EQ(state["disks"][0], json(R"({"name":"sda","readbytes":100.0,"writtenbytes":200.0,"reads":1.0,"writes":2.0,
        "readtime":500.0,"writetime":250.0,"busy":30.0,"queue":1.0})"));
}

TEST_F(MachineServiceTest, FiguresAreRecordedWhoeverAsksAndSurviveTheDaemon)
{
    start();
    live(120);
    const auto samples = [this](const char* series) {
        const Value answer = ask("history.samples", {{"series", series}, {"resolution", "hour"}});
        machine.runtime.advance(0.1);
        return answer["samples"];
    };
    ASSERT_GE(samples("processors").size(), 18U);
    EXPECT_EQ(samples("processors").back()["values"][0], 50) << "user";
    EXPECT_EQ(samples("processors").back()["values"][6], nullptr) << "steal is not told here";
    EXPECT_EQ(samples("load").back()["values"][0], 1.5);
    EXPECT_EQ(samples("kernel").back()["values"][0], 500);
    EXPECT_EQ(samples("memory").back()["values"][0], 600);
    EXPECT_EQ(samples("requests/sda").back()["values"][0], 10);
    EXPECT_EQ(ask("history.samples", {{"series", "requests/sda1"}}), "there is no such series; see history.series");
    EXPECT_TRUE(samples("pressure").empty()) << "a system without that account";
    const auto recorded = samples("processors").size();
    machine.runtime.advance(31);
    start();
    EXPECT_GE(samples("processors").size(), recorded);
}

TEST_F(MachineServiceTest, ItIsReadEverySecondOnlyWhileSomebodyAsks)
{
    start();
    machine.runtime.advance(60);
    const auto readsIn = [this](double seconds) {
        machine.counters().reads = 0;
        machine.runtime.advance(seconds);
        return machine.counters().reads;
    };
    EXPECT_EQ(readsIn(60), 10);
    ask("machine.state", nullptr);
    EXPECT_GE(readsIn(50), 49);
    readsIn(30);
    EXPECT_LE(readsIn(60), 10) << "a minute after the last question";

    auto client = std::make_shared<FakeClient>();
    EXPECT_EQ(ask("machine.watch", {{"interval", 2}}, client)["cpu"]["load1"], 1.5);
    auto another = std::make_shared<FakeClient>();
    ask("machine.watch", {{"interval", 2}}, another);
    EXPECT_NEAR(readsIn(60), 30, 1) << "at the cadence of the watchers, once for all of them";
    client->received.clear();
    live(4);
    ASSERT_EQ(client->received.size(), 1U);
    EXPECT_EQ(client->received[0]->method(), "machine.watch");
    EXPECT_EQ(client->received[0]->dictionary()["cpu"]["user"], 50);
    EXPECT_FALSE(client->received[0]->dictionary().contains("memory")) << "as it was";
    client.reset();
    another.reset();
    EXPECT_LE(readsIn(60), 11);
}

} // namespace
} // namespace meridal::test
