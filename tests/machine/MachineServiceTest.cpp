#include "daemon/MachineService.h"
#include "daemon/HistoryQuestions.h"
#include "daemon/MeridalHistory.h"
#include "database/HistoryDatabaseController.h"
#include "tests/support/FakeHost.h"
#include "wire/Link.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

constexpr std::uint64_t second = 1'000'000'000; // ns

/// A machine that is half busy, with a daemon's record of it in real files.
struct MachineServiceTest : testing::Test {
    struct Daemon {
        explicit Daemon(FakeMachine& machine)
            : databases(machine.context)
            , service((machine.context.databases = &databases, machine.context))
            , methods(machine.runtime.mainQueue())
            , questions(catalogue)
        {
            service.addTo(methods, catalogue);
            questions.addTo(methods);
            service.start();
        }
        ~Daemon() { databases.closeAll(); }
        HistoryDatabaseController databases;
        HistoryCatalogue catalogue;
        MachineService service;
        MeridalHistory methods;
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
    Value ask(const std::string& method, const Value& parameters)
    {
        Value answer;
        daemon->methods.call(method, parameters, Peer{},
            [&answer](const Result<Value>& result) { answer = result ? *result : Value(result.error().message); });
        machine.runtime.runDue();
        return answer;
    }

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
    EXPECT_FALSE(state["cpu"].contains("user")) << "of one reading";
    EXPECT_EQ(state["cpu"]["load1"], 1.5);
    EXPECT_TRUE(state["pressure"].is_null());
    live(3);
    state = ask("machine.state", Value::array());
    EXPECT_EQ(state["cpu"]["user"], 50);
    EXPECT_EQ(state["cpu"]["busy"], 50);
    EXPECT_EQ(state["cpu"]["switches"], 500);
    EXPECT_FALSE(state["cpu"].contains("steal"));
    EXPECT_EQ(state["memory"]["used"], 600);
    EXPECT_EQ(state["memory"]["dirty"], 7);
    EXPECT_FALSE(state["memory"].contains("buffers"));
    ASSERT_EQ(state["disks"].size(), 1U) << "whole ones";
    EXPECT_EQ(state["disks"][0]["reads"], 10);
    EXPECT_FALSE(state["disks"][0].contains("writetime")) << "none was written";
    EXPECT_EQ(state["fileSystems"][0]["available"], 3);
    EXPECT_FALSE(state["fileSystems"][1].contains("total")) << "it does not answer";
    machine.counters().processor.reset();
    machine.runtime.advance(2);
    EXPECT_TRUE(ask("machine.state", nullptr)["cpu"].is_null());
    EXPECT_TRUE(ask("machine.state", 7).is_string());
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
}

} // namespace
} // namespace meridal::test
