// SPDX-License-Identifier: Apache-2.0
#include "daemon/MachineService.h"
#include "daemon/HistoryQuestions.h"
#include "daemon/MachineDescription.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Watches.h"
#include "database/HistoryDatabaseController.h"
#include "platform/PlatformController.h"
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
            .compressedContents = 15,
            .ramDisks = 16,
            .ramDiskContents = 17,
            .hugePages = 13,
            .hugePagesFree = 18,
            .pressureLevel = MemoryPressureLevel::Warning,
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
    state = ask("machine.state", {{"all", true}});
    ASSERT_EQ(state["disks"].size(), 2U);
    EXPECT_EQ(state["disks"][1]["name"], "sda1");
    EXPECT_EQ(state["disks"][1]["kind"], "partition");
    EXPECT_EQ(state["disks"][0]["reads"], 10);
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
        "swapin":2.0,"swapout":3.0,"hugepages":13,"oomkills":14,"slabreclaimable":5,"slabunreclaimable":6,
        "compressedcontents":15,"ramdisks":16,"ramdiskcontents":17,"hugepagesfree":18,"pressurelevel":"warning"})"));
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

TEST_F(MachineServiceTest, TheNetworkIsRecordedByInterfaceAsItIsRead)
{
    const auto readNetwork = [this](std::uint64_t sent, std::uint64_t received) {
        machine.runtime.advance(2);
        machine.network().transfer("eth0", sent, received);
        machine.network().transfer("lo", 10, 10);
        machine.network().read();
        daemon->service.networkWasRead();
    };
    machine.network().interface("lo").kind = InterfaceKind::Loopback;
    start();
    EXPECT_TRUE(ask("machine.state", nullptr)["network"].is_null()) << "not read yet";
    for (int turn = 0; turn < 10; ++turn) {
        readNetwork(200, 400);
    }
    Value state = ask("machine.state", nullptr);
    EXPECT_EQ(state["network"], json(R"({"eth0":{"received":200.0,"sent":100.0,"receivedPackets":0.0,"sentPackets":0.0,
        "errors":0.0,"dropped":0.0},"lo":{"received":5.0,"sent":5.0,"receivedPackets":0.0,"sentPackets":0.0,
        "errors":0.0,"dropped":0.0}})"));
    EXPECT_EQ(ask("history.samples", {{"series", "network/eth0"}})["samples"].back()["values"], json("[200.0,100.0]"));
    EXPECT_TRUE(ask("history.samples", {{"series", "networkfaults/lo"}}).is_string());
    machine.network().interface("eth0").bytesSent = 0; // its driver was loaded again
    readNetwork(7, 0);
    machine.runtime.advance(1);
    EXPECT_EQ(ask("machine.state", nullptr)["network"]["eth0"], json("{}"));
    machine.network().remove("eth0");
    readNetwork(0, 0); // one of that name comes, under another number
    machine.runtime.advance(1);
    EXPECT_EQ(ask("machine.state", nullptr)["network"]["eth0"], json("{}"));
}

TEST_F(MachineServiceTest, GraphicsThatSleepAreAbsentAndNotIdle)
{
    machine.graphics().units = {{.name = "card0", .driver = "i915", .asleepNs = 0, .frequencyHz = 5},
        {.name = "card1", .driver = "", .busyPercent = 12.5, .memoryUsed = 3, .memoryTotal = 4}};
    start();
    machine.graphics().units[0].asleepNs = 4'500'000'000;
    machine.runtime.advance(6);
    EXPECT_EQ(ask("machine.state", nullptr)["gpus"],
        json(
            R"({"card0":{"driver":"i915","busy":25.0,"frequency":5},"card1":{"busy":12.5,"memoryUsed":3,"memoryTotal":4}})"));
    machine.graphics().units[1] = {.name = "card1", .driver = "", .memoryTotal = 4};
    machine.runtime.advance(60);
    EXPECT_EQ(ask("machine.state", nullptr)["gpus"]["card1"], json(R"({"memoryTotal":4})"));
    EXPECT_EQ(ask("history.samples", {{"series", "graphics/card1"}})["samples"].size(), 1U);
}

TEST_F(MachineServiceTest, WhoWasKilledForWantOfMemoryIsRecordedOnce)
{
    const double booted = machine.runtime.wallTime() - machine.runtime.monotonicTime();
    const MemoryKill first{
        .number = 7, .monotonicTime = 900, .pid = 41, .name = "early", .uid = 0, .cgroup = "/a", .bytes = 9};
    machine.counters().ram->outOfMemoryKills = 1;
    machine.counters().kills = {first};
    start();
    machine.runtime.advance(10);
    const Value told = {
        {"time", booted + 900}, {"pid", 41}, {"name", "early"}, {"user", 0}, {"cgroup", "/a"}, {"bytes", 9}};
    EXPECT_EQ(ask("machine.state", nullptr)["memoryKills"], Value::array({told})) << "before the start";
    machine.counters().kills = {
        {.number = 8, .monotonicTime = machine.runtime.monotonicTime(), .pid = 42, .name = "late"}};
    machine.runtime.advance(40);
    EXPECT_EQ(machine.counters().kills.size(), 1U) << "the count has not moved";
    machine.counters().ram->outOfMemoryKills = 2;
    machine.runtime.advance(40);
    EXPECT_EQ(ask("machine.state", nullptr)["memoryKills"].size(), 2U);
    machine.counters().kills = {first, {.number = 9, .monotonicTime = 1, .pid = 43, .name = "new"}};
    start();
    machine.runtime.advance(10);
    const Value kills = ask("machine.state", nullptr)["memoryKills"];
    ASSERT_EQ(kills.size(), 3U) << kills;
    EXPECT_EQ(kills[0], told);
    EXPECT_EQ(kills[1]["name"], "late");
    EXPECT_EQ(kills[2]["name"], "new");

    machine.counters().ram->outOfMemoryKills = 5;
    machine.runtime.advance(12);
    machine.counters().kills = {{.number = 10, .monotonicTime = 2, .pid = 44, .name = "behind"}};
    machine.runtime.advance(20);
    EXPECT_EQ(ask("machine.state", nullptr)["memoryKills"][3]["name"], "behind") << "the log was behind the count";
    machine.runtime.advance(600);
    const int questions = machine.counters().killQuestions;
    machine.runtime.advance(600);
    EXPECT_EQ(machine.counters().killQuestions, questions) << "what never comes is not asked for without end";
}

TEST_F(MachineServiceTest, WhatTheMachineIsIsToldWithTheSerialNumberForRootAlone)
{
    start();
    const PlatformController platform(machine.context);
    addMachineDescription(daemon->methods, machine.context, platform);
    machine.machine().virtualMachine = "kvm";
    const Value expected =
        json(R"({"model":"MacBookPro18,3","modelIdentifier":"MacBookPro18,3","vendor":"Fake Inc.","portable":true,
        "firmware":"F1","cpu":{"model":"Fake CPU","packages":1,"cores":4,"threads":8,"frequency":2000000000,
        "maximumFrequency":3000000000},"memory":16000000000,"system":"Fake OS","kernel":"1.2.3","architecture":"x86_64",
        "virtualisation":"kvm","hostName":"fake","bootTime":1699990000.0})");
    EXPECT_EQ(ask("machine.info", nullptr), expected);
    EXPECT_EQ(describeMachine(machine.context, platform, {.uid = 0, .known = true})["serial"], "C02ABCDEFGHJ");
    EXPECT_FALSE(describeMachine(machine.context, platform, {.uid = 0, .known = false}).contains("serial"));
    EXPECT_TRUE(ask("machine.info", 7).is_string());
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

TEST_F(MachineServiceTest, WhoAsksPassivelyIsAnsweredFromWhatIsRead)
{
    const Value passive = {{"passive", true}};
    start();
    live(20);
    machine.counters().reads = 0;
    for (int question = 0; question < 12; ++question) {
        EXPECT_EQ(ask("machine.state", passive)["cpu"]["user"], 50);
        live(5);
    }
    EXPECT_EQ(machine.counters().reads, 10) << "those of the record";
    daemon->service.setRecording(false);
    live(60);
    machine.counters().reads = 0;
    for (int question = 0; question < 4; ++question) {
        EXPECT_EQ(ask("machine.state", passive)["cpu"]["user"], 50) << "of the time since the one before";
        EXPECT_EQ(ask("machine.state", passive)["cpu"]["user"], 50);
        live(15);
    }
    EXPECT_EQ(machine.counters().reads, 4) << "once each, as nobody else reads";
}

} // namespace
} // namespace meridal::test
