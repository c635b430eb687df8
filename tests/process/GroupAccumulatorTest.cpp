// SPDX-License-Identifier: Apache-2.0
// What every application has used: growth of counters by group, who has ended, the bound, and that nothing is counted twice.

#include "collectors/process/GroupAccumulator.h"
#include "tests/process/ProcessFixture.h"

#include <rapidcheck/gtest.h>

#include <fmt/format.h>

#include <numeric>

namespace meridal::test {
namespace {

using testing::Contains;
using testing::DoubleNear;
using testing::ElementsAre;
using testing::Field;
using testing::UnorderedElementsAre;

/// J that a test puts there.
struct FakePackageEnergy final : PackageEnergy {
    std::optional<double> joules() override { return told; }
    std::optional<double> told;
};

/// Clients that a test puts there.
struct FakeGraphicsClients final : GraphicsClients {
    std::span<const GraphicsClient> read(std::span<const std::int32_t> candidates, double) override
    {
        asked.assign(candidates.begin(), candidates.end());
        return clients;
    }
    std::vector<std::int32_t> asked;
    std::vector<GraphicsClient> clients;
};

class Groups : public ProcessFixture {
protected:
    Groups()
    {
        collector();
        set(1, 0, "init");
        source().bundles[1] = "/usr/sbin/init";
    }
    void program(std::int32_t pid, std::int32_t parent, const std::string& name)
    {
        set(pid, parent, name);
        source().bundles[pid] = "/usr/bin/" + name;
    }
    GroupAccumulator& groups()
    {
        if (!groups_) {
            groups_.emplace(machine.context, collector());
        }
        return *groups_;
    }
    void feed(double seconds = 10)
    {
        groups(); // before the pass, as it is what asks for the ended ones
        updateAfter(seconds);
        groups().update();
    }
    const GroupTotals& group(std::string_view identity)
    {
        for (const GroupTotals& each : groups().totals()) {
            if (each.identity == identity) {
                return each;
            }
        }
        throw std::runtime_error("no group " + std::string(identity));
    }
    double cpu(std::string_view identity) { return group(identity).sums.cpuSeconds(); }
    double cpuOfAll()
    {
        const auto all = groups().totals();
        return std::accumulate(all.begin(), all.end(), 0.0,
            [](double sum, const GroupTotals& each) { return sum + each.sums.cpuSeconds(); });
    }
    std::vector<std::string> identities()
    {
        std::vector<std::string> all;
        for (const GroupTotals& each : groups().totals()) {
            all.push_back(each.identity);
        }
        return all;
    }
    static EndedRecord ended(std::int32_t known, double cpu, std::array<std::string_view, 4> names = {})
    {
        EndedRecord record;
        record.known = known;
        record.knownStart = static_cast<std::uint64_t>(known);
        record.isItself = names[0].empty();
        record.names = names;
        record.processes = 1;
        record.user = 1000;
        record.cpuTime = static_cast<std::uint64_t>(cpu * 1e9);
        return record;
    }
    /// Of one that the latest pass may have met.
    static EndedRecord youngEnded(std::int32_t own, std::uint64_t start, double cpu)
    {
        EndedRecord record = ended(10, cpu, {"cc1"});
        record.own = own;
        record.ownStart = start;
        return record;
    }

private:
    std::optional<GroupAccumulator> groups_;
};

TEST_F(Groups, CountFromTheirStartOrTheDaemons)
{
    program(10, 1, "old");
    source().work(10, {.cpu = 100, .read = 7, .written = 8, .wakeups = 9});
    feed();
    EXPECT_EQ(cpu("exe:/usr/bin/old"), 0);
    program(20, 1, "new");
    source().work(20, {.cpu = 2, .read = 5});
    row(20).cpuUser = 500'000'000;
    source().work(10, {.cpu = 1, .read = 1, .written = 2, .wakeups = 40});
    row(10).residentSize = 4096;
    row(10).physFootprint = 100;
    feed();
    const GroupTotals& old = group("exe:/usr/bin/old");
    EXPECT_DOUBLE_EQ(old.sums.cpuSystemSeconds, 1);
    EXPECT_EQ(old.sums.bytesRead, 1U);
    EXPECT_EQ(old.sums.bytesWritten, 2U);
    EXPECT_EQ(old.sums.wakeups, 40U);
    EXPECT_DOUBLE_EQ(old.sums.energyScore, 100 + 40 * 0.05);
    EXPECT_EQ(old.sums.processesStarted, 0U);
    EXPECT_EQ(old.now.residentBytes, 4096U);
    EXPECT_EQ(old.now.footprintBytes, 100U);
    EXPECT_DOUBLE_EQ(group("exe:/usr/bin/new").sums.cpuUserSeconds, 0.5);
    EXPECT_DOUBLE_EQ(group("exe:/usr/bin/new").sums.cpuSystemSeconds, 1.5);
    EXPECT_EQ(group("exe:/usr/bin/new").sums.processesStarted, 1U);

    row(10).cpuTime -= 900'000'000; // told less exactly
    row(10).physFootprint = 50;
    feed();
    EXPECT_DOUBLE_EQ(cpu("exe:/usr/bin/old"), 1);
    source().work(10, {.cpu = 1});
    source().remove(20);
    feed();
    EXPECT_DOUBLE_EQ(cpu("exe:/usr/bin/old"), 1.1);
    EXPECT_EQ(group("exe:/usr/bin/old").peak.footprintBytes, 100U);
    EXPECT_EQ(group("exe:/usr/bin/new").sums.processesEnded, 1U);
    EXPECT_EQ(group("exe:/usr/bin/new").now.processes, 0U);
    EXPECT_EQ(group("exe:/usr/bin/new").peak.processes, 1U);
}

TEST_F(Groups, AreKnownByWhatLasts)
{
    source().unitIdentities = {{5, "unit:getty@.service"}, {6, "app:firefox"}, {7, "container:web"}};
    source().unitNames[7] = "web";
    program(10, 1, "agetty");
    row(10).unit = {5, ProcessUnitKind::Application};
    program(11, 10, "sh"); // stands alone, and is of the service all the same
    row(11).unit = {5, ProcessUnitKind::Application};
    program(12, 1, "firefox");
    program(13, 12, "sh"); // of an application only the first
    row(12).unit = row(13).unit = {6, ProcessUnitKind::Application};
    program(14, 1, "anything");
    row(14).unit = {7, ProcessUnitKind::Container};
    program(15, 1, "backup"); // a script
    source().bundles[15] = "/usr/bin/python3.11";
    source().paths[15] = "/usr/local/bin/backup";
    set(16, 1, "Editor");
    source().bundles[16] = "/Applications/Editor.app";
    set(17, 1, "nameless");
    set(2, 0, "kthreadd");
    set(18, 2, "kworker/0:1");
    row(2).isKernelThread = row(18).isKernelThread = true;
    machine.visibility().owners = {{10, 0}, {11, 1000}, {12, 1000}};
    feed();
    EXPECT_THAT(identities(),
        UnorderedElementsAre("other", "kernel", "exe:/usr/sbin/init", "unit:getty@.service", "unit:getty@.service",
            "app:firefox", "exe:/usr/bin/sh", "container:web", "exe:/usr/local/bin/backup",
            "bundle:/Applications/Editor.app", "name:nameless"));
    EXPECT_EQ(group("kernel").now.processes, 2U);
    EXPECT_EQ(group("unit:getty@.service").name, "getty@");
    EXPECT_EQ(group("container:web").name, "web");
    EXPECT_EQ(group("app:firefox").owner, 1000U);
    EXPECT_EQ(group("name:nameless").owner, std::nullopt);

    row(17).name = "exec'd";
    source().bundles[17] = "/opt/exec'd";
    machine.visibility().owners[10] = 7; // it only started as root
    feed();
    feed();
    EXPECT_EQ(group("exe:/opt/exec'd").now.processes, 1U);
    EXPECT_EQ(group("name:nameless").now.processes, 0U);
    EXPECT_THAT(groups().totals(), Contains(Field(&GroupTotals::owner, 7U)));
}

TEST_F(Groups, GetWhatWasUsedBetweenPasses)
{
    program(10, 1, "make");
    program(11, 1, "bash");
    program(12, 10, "cc1");
    feed();
    source().work(12, {.cpu = 3});
    feed();
    source().remove(12);
    source().usualPaths["true"] = "/usr/bin/true";
    source().ended = {ended(12, 3.25), // the rest of one that was met
        ended(10, 1, {"as", "gcc"}), ended(11, 2, {"true"}), ended(11, 4, {"cc1", "gcc"}),
        ended(10, 8, {"ld", "sh"}), // what a shell starts is its own
        ended(99, 16)};             // nobody was ever charged for the beginning
    source().ended.push_back(ended(11, 32, {"x"}));
    source().ended.back().isRest = true;
    source().ended.push_back(ended(2, 64, {"kworker"}));
    source().ended.back().isKernelThread = true;
    feed();
    EXPECT_DOUBLE_EQ(cpu("exe:/usr/bin/make"), 3.25 + 1);
    EXPECT_DOUBLE_EQ(cpu("exe:/usr/bin/true"), 2);
    EXPECT_EQ(group("exe:/usr/bin/true").owner, 1000U);
    EXPECT_DOUBLE_EQ(cpu("name:gcc"), 4);
    EXPECT_DOUBLE_EQ(cpu("name:ld"), 8);
    EXPECT_DOUBLE_EQ(cpu("other"), 32);
    EXPECT_DOUBLE_EQ(cpu("kernel"), 64);
    EXPECT_EQ(group("exe:/usr/bin/true").sums.processesStarted, 1U);
    EXPECT_EQ(group("exe:/usr/bin/true").sums.processesEnded, 1U);
    EXPECT_DOUBLE_EQ(cpu("exe:/usr/bin/bash"), 0);

    source().unitIdentities[5] = "unit:cron.service";
    source().ended = {ended(1, 1, {"job"}), ended(1, 2, {"stray"}), ended(12, 3.5)};
    source().ended[0].unit = ProcessUnit{5, ProcessUnitKind::Application};
    feed();
    EXPECT_DOUBLE_EQ(cpu("unit:cron.service"), 1);
    EXPECT_DOUBLE_EQ(cpu("name:stray"), 2) << "whose parent had gone";
    EXPECT_DOUBLE_EQ(cpu("exe:/usr/bin/make"), 3.5 + 1) << "what is told late is not told twice";
}

/// Whom a pass has met tells its table, not the host: they are counted once, however many of them there are.
TEST_F(Groups, CountTheYoungThatEndOnce)
{
    constexpr int passes = 20;
    constexpr int inPass = 500;
    program(10, 1, "make");
    feed();
    for (int pass = 0; pass < passes; ++pass) {
        const int first = 1000 + pass * 2 * inPass;
        for (int pid = first; pid < first + inPass; ++pid) {
            set(pid, 10, "cc1");
            source().work(pid, {.cpu = 1});
        }
        feed();
        for (int pid = first; pid < first + inPass; ++pid) {
            source().remove(pid);
            source().ended.push_back(youngEnded(pid, static_cast<std::uint64_t>(pid), 1.5));
            source().ended.push_back(youngEnded(pid + inPass, static_cast<std::uint64_t>(pid + inPass), 1.5));
        }
    }
    feed();
    const GroupSums& sums = group("exe:/usr/bin/make").sums;
    EXPECT_NEAR(sums.cpuSeconds(), passes * inPass * 2 * 1.5, 1e-3);
    EXPECT_EQ(sums.processesStarted, static_cast<std::uint64_t>(passes * inPass * 2));
    EXPECT_EQ(sums.processesEnded, sums.processesStarted);
}

TEST_F(Groups, GetWhatParentsTellWhereOnlyTheyDo)
{
    source().tellsEnded = false;
    program(10, 1, "make");
    program(11, 10, "cc1");
    row(10).childCpuTime = 50'000'000'000; // before the daemon
    feed();
    source().work(11, {.cpu = 3});
    feed();
    source().remove(11);
    row(10).childCpuTime += 3'500'000'000 + 2'000'000'000; // with the rest of that one, and one that nobody met
    row(10).childCpuUser += 1'000'000'000;
    feed();
    EXPECT_DOUBLE_EQ(cpu("exe:/usr/bin/make"), 3 + 0.5 + 2);
    row(10).childCpuTime += 1'000'000'000;
    feed();
    EXPECT_DOUBLE_EQ(cpu("exe:/usr/bin/make"), 6.5);
}

TEST_F(Groups, AccountWhatMovedInAPassThatTheyWereNotShown)
{
    program(10, 1, "make");
    feed();
    feed();
    source().work(10, {.cpu = 3});
    updateAfter(10);
    feed(); // in which it did not move
    EXPECT_DOUBLE_EQ(cpu("exe:/usr/bin/make"), 3);
}

TEST_F(Groups, KeepThoseWhoHaveUsedMostWhereThereAreTooMany)
{
    constexpr int programs = 600;
    for (int i = 0; i < programs; ++i) {
        program(100 + i, 1, fmt::format("p{}", i * 7 % programs));
        row(100 + i).cpuTime = static_cast<std::uint64_t>(i * 7 % programs) * 1'000'000'000;
    }
    feed();
    for (int used = programs - 500; used < programs; ++used) {
        EXPECT_THAT(identities(), Contains(fmt::format("exe:/usr/bin/p{}", used)));
    }
}

TEST_F(Groups, CloseTheirSumsWithinTheirBound)
{
    feed();
    for (int i = 0; i < 600; ++i) {
        program(100 + i, 1, fmt::format("p{}", i));
        source().work(100 + i, {.cpu = 1});
    }
    feed();
    EXPECT_EQ(groups().totals().size(), GroupTable::mostGroups + 2);
    EXPECT_NEAR(cpuOfAll(), 600, 1e-6);
    EXPECT_GT(cpu("other"), 80);
    for (int i = 0; i < 300; ++i) {
        source().remove(100 + i);
    }
    const double before = cpu("other");
    program(900, 1, "late");
    source().work(900, {.cpu = 5});
    feed();
    EXPECT_DOUBLE_EQ(cpu("exe:/usr/bin/late"), 5);
    EXPECT_GE(cpu("other"), before);
    EXPECT_NEAR(cpuOfAll(), 605, 1e-6);
    const std::uint32_t number = group("exe:/usr/bin/late").number;
    for (int i = 0; i < 1000; ++i) { // made-up names, which have used little
        source().ended.push_back(ended(1, 0.001, {"made-up"}));
        feed(1000);
    }
    EXPECT_EQ(group("exe:/usr/bin/late").number, number);
    EXPECT_NEAR(cpuOfAll(), 606, 1e-6);
}

TEST_F(Groups, ShareTheEnergyOfThePackage)
{
    auto energy = std::make_unique<FakePackageEnergy>();
    FakePackageEnergy& package = *energy;
    machine.host.packageEnergy = std::move(energy);
    program(10, 1, "busy");
    program(11, 1, "calm");
    feed();
    EXPECT_EQ(groups().idleJoules(), std::nullopt);
    package.told = 1000;
    feed();
    package.told = 1020; // 2 W, and nobody works
    feed();
    EXPECT_DOUBLE_EQ(*groups().idleJoules(), 20);
    EXPECT_EQ(group("exe:/usr/bin/busy").sums.joules, std::nullopt);
    source().work(10, {.cpu = 0.3});
    source().work(11, {.cpu = 0.1});
    package.told = 1120;
    feed();
    EXPECT_DOUBLE_EQ(*groups().idleJoules(), 40);
    EXPECT_DOUBLE_EQ(*group("exe:/usr/bin/busy").sums.joules, 60);
    EXPECT_DOUBLE_EQ(*group("exe:/usr/bin/calm").sums.joules, 20);
}

TEST_F(Groups, TakeTrafficOfTheLivingAndTheDead)
{
    program(10, 1, "live");
    program(11, 1, "dead");
    feed();
    source().remove(11);
    feed();
    collector().clearBandwidth();
    const_cast<ProcessStatCollectorItem&>(item(10)).addTraffic(100, 10);
    collector().endedProcess({11, 11}, "dead", {})->addTraffic(200, 20);
    collector().endedProcess({77, 77}, "short", {})->addTraffic(300, 30);
    groups().addTraffic(collector().table(), 5, 6);
    const auto bytes = [this](std::string_view identity) {
        return std::pair(group(identity).sums.bytesReceived, group(identity).sums.bytesSent);
    };
    EXPECT_EQ(bytes("exe:/usr/bin/live"), std::pair(std::uint64_t{100}, std::uint64_t{10}));
    EXPECT_EQ(bytes("exe:/usr/bin/dead"), std::pair(std::uint64_t{200}, std::uint64_t{20}));
    EXPECT_EQ(bytes("name:short"), std::pair(std::uint64_t{300}, std::uint64_t{30}));
    EXPECT_EQ(bytes("kernel"), std::pair(std::uint64_t{5}, std::uint64_t{6}));
}

TEST_F(Groups, TellTheLargestOfEachMinute)
{
    for (int i = 0; i < 60; ++i) {
        program(100 + i, 1, fmt::format("p{}", i));
        row(100 + i).physFootprint = static_cast<std::uint64_t>(i);
    }
    feed();
    for (int i = 0; i < 60; ++i) {
        source().work(100 + i, {.cpu = 60.0 - i, .written = i == 30 ? 4096U : 0U});
    }
    feed();
    source().remove(101);
    feed();
    const auto minute = groups().takeMinute();
    EXPECT_EQ(minute.size(), 10U + 10 + 1) << "ten by CPU, ten by memory, one that wrote";
    EXPECT_THAT(minute, Contains(Field(&ProcessMinute::pid, 101))) << "though it has gone";
    for (const ProcessMinute& each : minute) {
        EXPECT_EQ(each.name, fmt::format("p{}", each.pid - 100));
        EXPECT_EQ(each.startTime, each.pid);
        EXPECT_NEAR(each.cpuSeconds, 60 - (each.pid - 100), 1e-4);
    }
    EXPECT_EQ(groups().takeMinute().size(), 10U) << "memory alone";
}

/// Whoever comes, goes, works and moves: each nanosecond after the first pass is in one group, once.
RC_GTEST_FIXTURE_PROP(Groups, LoseNothing, ())
{
    feed();
    double worked = 0;
    for (int pass = 0; pass < 20; ++pass) {
        for (int step = *rc::gen::inRange(0, 12); step > 0; --step) {
            const int pid = 10 + *rc::gen::inRange(0, 8);
            const bool isThere = collector().processForPid(pid) != nullptr
                && std::any_of(source().rows.begin(), source().rows.end(), [&](auto& each) { return each.pid == pid; });
            switch (*rc::gen::inRange(0, 4)) {
            case 0:
                if (isThere && row(pid).startIdentity == item(pid).startIdentity) { // works until its end
                    EndedRecord last = ended(pid, 0);
                    last.knownStart = row(pid).startIdentity;
                    if (*rc::gen::arbitrary<bool>()) {
                        last = youngEnded(pid, last.knownStart, 0);
                    }
                    last.cpuTime = row(pid).cpuTime + 1'000'000'000;
                    worked += 1;
                    source().ended.push_back(last);
                    source().remove(pid);
                }
                break;
            case 1:
                if (!isThere) {
                    ProcessRecord fresh = FakeProcessSource::process(pid, *rc::gen::element(1, 10, 11), "worker");
                    fresh.startIdentity = static_cast<std::uint64_t>(1000 + pass * 100 + pid);
                    source().set(fresh);
                }
                break;
            case 2:
                source().ended.push_back(ended(*rc::gen::element(1, 10, 999), 1, {"child", "sh"}));
                source().ended.push_back(youngEnded(pid, 1, 1)); // of that pid, but before it
                worked += 2;
                break;
            default:
                if (isThere) {
                    source().work(pid, {.cpu = 1});
                    worked += 1;
                }
            }
        }
        feed();
        RC_ASSERT(std::abs(cpuOfAll() - worked) < 1e-6);
    }
}

TEST_F(Groups, HaveWhatTheirProcessesDoorsToGraphicsDo)
{
    auto owned = std::make_unique<FakeGraphicsClients>();
    FakeGraphicsClients& graphics = *owned;
    machine.host.graphicsClients = std::move(owned);
    const auto seconds = [this](std::string_view identity) { return group(identity).sums.graphicsSeconds; };
    program(10, 1, "server");
    program(11, 1, "idle");
    graphics.clients = {{.pid = 10, .device = 1, .client = 1, .busyNs = 70'000'000'000, .memoryBytes = 5}};
    feed();
    EXPECT_THAT(graphics.asked, UnorderedElementsAre(1, 10, 11));
    EXPECT_EQ(seconds("exe:/usr/bin/server"), 0.0) << "from before";
    EXPECT_EQ(seconds("exe:/usr/bin/idle"), std::nullopt);

    program(20, 1, "game"); // the server has opened its door and still holds it
    graphics.clients = {{.pid = 10, .device = 1, .client = 1, .busyNs = 71'000'000'000, .memoryBytes = 5},
        {.pid = 10, .device = 1, .client = 2, .busyNs = 3'000'000'000, .memoryBytes = 100},
        {.pid = 20, .device = 1, .client = 2, .busyNs = 3'000'000'000, .memoryBytes = 100},
        {.pid = 999, .device = 1, .client = 3, .busyNs = 9'000'000'000}};
    feed();
    EXPECT_DOUBLE_EQ(*seconds("exe:/usr/bin/server"), 1);
    EXPECT_DOUBLE_EQ(*seconds("exe:/usr/bin/game"), 3);
    EXPECT_EQ(group("exe:/usr/bin/game").now.graphicsBytes, 100U);
    EXPECT_EQ(group("exe:/usr/bin/server").now.graphicsBytes, 5U);

    const auto told = std::exchange(graphics.clients, {});
    feed(); // it could not be read
    EXPECT_EQ(group("exe:/usr/bin/game").now.graphicsBytes, std::nullopt);
    graphics.clients = told;
    graphics.clients[2].busyNs -= 1'000'000'000; // not always monotonic
    feed();
    EXPECT_DOUBLE_EQ(*seconds("exe:/usr/bin/game"), 3);
}

} // namespace
} // namespace meridal::test
