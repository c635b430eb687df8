// SPDX-License-Identifier: Apache-2.0
// What was at a moment, answered from the files of a daemon with all its services.

#include "daemon/MomentService.h"
#include "daemon/MeridalHistory.h"
#include "tests/daemon/DaemonFixture.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <tuple>

namespace meridal::test {
namespace {

using testing::HasSubstr;

constexpr std::uint64_t aSecond = 1'000'000'000; // ns
constexpr std::uint64_t aMegabyte = 1'000'000;

/// A machine that idles, works or sleeps as a test tells it, recorded into real files.
class MomentServiceTest : public DaemonTest {
protected:
    MomentServiceTest()
    {
        machine.counters().processor = ProcessorReading{.load1Minute = 0.5};
        machine.counters().ram = MemoryReading{.total = 8'000'000'000, .available = 6'000'000'000};
        machine.counters().disks = {{.name = "sda", .identity = 1}};
        machine.sensors().change(
            {sensorOf("TC0P", "coretemp", "Package"), sensorOf("F0Ac", "nct", "Fan", SensorKind::Fan),
                sensorOf("PC0C", "rapl", "Package power", SensorKind::Power)});
        machine.sensors().values = {{"TC0P", 40}, {"F0Ac", 1000}, {"PC0C", 5.0625}};
        house.figures.addTo(methods, house.catalogue);
        house.disks.addTo(methods, house.catalogue);
        house.moments.addTo(methods);
        start();
    }
    /// So many seconds, busy by a share.
    void live(double seconds, double busy)
    {
        constexpr int turn = 6; // s
        for (int passed = 0; passed < seconds; passed += turn) {
            auto& times = machine.counters().processor->all;
            times.userNs += static_cast<std::uint64_t>(busy * turn * aSecond);
            times.idleNs += static_cast<std::uint64_t>((1 - busy) * turn * aSecond);
            auto& disk = machine.counters().disks->front();
            disk.writes += 10;
            disk.writtenBytes += busy > 0.5 ? turn * 50 * aMegabyte : 0;
            machine.sensors().values["TC0P"] = busy > 0.5 ? 80 : 40;
            machine.sensors().values["F0Ac"] = busy > 0.5 ? 3000 : 1000;
            machine.runtime.advance(turn);
        }
    }
    void sleepFor(double seconds)
    {
        machine.powerMessages().send(PowerMessage::SystemWillSleep);
        machine.runtime.runDue();
        machine.runtime.sleepMachine(seconds);
        machine.powerMessages().send(PowerMessage::SystemHasPoweredOn);
        machine.runtime.runDue();
    }
    double now() { return machine.runtime.wallTime(); }
    Result<Value> ask(const Value& parameters, const Peer& peer = user(0))
    {
        Result<Value> answer = unexpected(ErrorCode::Internal, "no reply");
        methods.call("moments.at", parameters, peer, [&](Result<Value> reply) { answer = std::move(reply); });
        machine.runtime.runDue();
        return answer;
    }
    Value at(double time, const Peer& peer = user(0)) { return ask({{"time", time}}, peer).value(); }
    static std::string whyUnknown(const Value& answer, const std::string& what)
    {
        for (const Value& each : answer["unknown"]) {
            if (each["what"] == what) {
                return each["why"];
            }
        }
        return "";
    }
    static Value change(const Value& answer, const std::string& what)
    {
        for (const Value& each : answer["changes"]) {
            if (each["what"] == what) {
                return each;
            }
        }
        return {};
    }

    MeridalHistory methods{machine.runtime.mainQueue()};
};

TEST_F(MomentServiceTest, TellsWhatWasMeasuredAndWhatChanged)
{
    live(600, 0.1);
    const double turn = now();
    live(600, 0.9);
    Value answer = at(turn + 60);
    EXPECT_EQ(answer["boot"]["on"], true);
    EXPECT_EQ(answer["boot"]["asleep"], false);
    EXPECT_EQ(answer["cpu"]["resolution"], "hour");
    EXPECT_NEAR(answer["cpu"]["busy"].get<double>(), 90, 0.1);
    EXPECT_LE(answer["cpu"]["from"], turn + 60);
    EXPECT_GE(answer["cpu"]["until"], turn + 60);
    EXPECT_EQ(answer["memory"]["used"], 2e9);
    EXPECT_EQ(answer["load"]["load1"], 0.5);
    EXPECT_EQ(answer["disks"][0]["disk"], "sda");
    EXPECT_NEAR(answer["disks"][0]["writtenbytes"].get<double>(), 50e6, 1e6);
    EXPECT_EQ(answer["temperatures"][0]["value"], 80);
    EXPECT_EQ(answer["temperatures"][0]["series"], "sensors/TC0P");
    EXPECT_EQ(answer["fans"][0]["value"], 3000);
    EXPECT_EQ(answer["power"][0]["value"], 5.0625);
    EXPECT_EQ(at(turn + 60, user(1000))["power"][0]["value"], 5.1) << "as history tells others than root";
    const Value busy = change(answer, "CPU use");
    EXPECT_NEAR(busy["from"].get<double>(), 10, 2);
    EXPECT_NEAR(busy["to"].get<double>(), 90, 2);
    EXPECT_NEAR(busy["time"].get<double>(), turn, 7);
    EXPECT_NEAR(change(answer, "Package: temperature")["to"].get<double>(), 80, 2);
    EXPECT_NEAR(change(answer, "sda: writing")["to"].get<double>(), 50e6, 3e6);
    EXPECT_EQ(at(turn - 310)["changes"], Value::array()) << "more than five minutes before";
    EXPECT_EQ(whyUnknown(answer, "pressure"), "not measured then");
    EXPECT_EQ(whyUnknown(answer, "applications"), "applications are not recorded");
    EXPECT_EQ(whyUnknown(answer, "figures"), "");
    EXPECT_FALSE(at(now()).value("cpu", Value()).is_null()) << "the latest period speaks for now";
}

TEST_F(MomentServiceTest, OldMomentsAreToldInTheFinestResolutionThatIsLeft)
{
    live(900, 0.5);
    const double then = now() - 450;
    for (const auto& [until, resolution, length] : {std::tuple(600, "hour", 6.0), std::tuple(5400, "day", 144.0)}) {
        live(then + until - now(), 0.1);
        Value cpu = at(then)["cpu"];
        EXPECT_EQ(cpu["resolution"], resolution);
        EXPECT_DOUBLE_EQ(cpu["until"].get<double>() - cpu["from"].get<double>(), length);
        EXPECT_NEAR(cpu["busy"].get<double>(), 50, 1) << resolution;
    }
}

TEST_F(MomentServiceTest, SaysPlainlyWhyNothingIsKnown)
{
    live(600, 0.1);
    const double fellAsleep = now();
    sleepFor(7200);
    live(600, 0.1);
    const Value asleep = at(fellAsleep + 3600);
    EXPECT_EQ(asleep["boot"]["on"], true);
    EXPECT_EQ(asleep["boot"]["asleep"], true);
    EXPECT_NEAR(asleep["boot"]["since"].get<double>(), fellAsleep, 1);
    EXPECT_EQ(whyUnknown(asleep, "figures"), "the machine was asleep");
    EXPECT_FALSE(asleep.contains("cpu"));
    const Value woken = at(fellAsleep + 7230);
    EXPECT_EQ(woken["boot"]["asleep"], false);
    EXPECT_NEAR(woken["boot"]["since"].get<double>(), fellAsleep + 7200, 1);
    EXPECT_FALSE(change(woken, "the machine woke").is_null());
    EXPECT_TRUE(change(woken, "the machine fell asleep").is_null());

    const Value before = at(86'400);
    EXPECT_EQ(before["boot"]["on"], Value());
    EXPECT_EQ(whyUnknown(before, "figures"), "it was before the first start of the machine that is recorded");
    machine.counters().processor.reset();
    machine.counters().ram.reset();
    machine.runtime.advance(600);
    EXPECT_EQ(whyUnknown(at(now() - 120), "figures"), "the daemon did not run, or could not measure");
    EXPECT_EQ(whyUnknown(asleep, "fans"), "");
}

TEST_F(MomentServiceTest, ApplicationsAreTheLargestForTheViewer)
{
    const auto group = [](const std::string& name, GroupKind kind, double cpu) {
        RecordedGroup one;
        one.identity = name;
        one.name = name;
        one.kind = kind;
        one.sums.cpuUserSeconds = cpu;
        return one;
    };
    const auto process = [](const std::string& name, double cpu) {
        RecordedProcess one;
        one.name = name;
        one.cpuSeconds = cpu;
        return one;
    };
    double turn = 0;
    house.moments.setApplications(
        [&](double time, MomentService::Viewer viewer, const auto& reply) {
            RecordedMoment moment;
            if (time >= turn - 3600) {
                moment.from = time - 30;
                moment.until = time + 30;
                moment.groups = {group("other", GroupKind::Other, 50), group("kernel", GroupKind::Kernel, 1),
                    group("make", GroupKind::Application, time > turn ? 60 : 3)};
                for (int number = 0; number < 200; ++number) {
                    moment.groups.push_back(group(fmt::format("small {}", number), GroupKind::Application, 0.001));
                }
                moment.processes = {process("worker", 4), process("cc1", 5)};
            }
            reply(viewer ? std::nullopt : std::optional(moment));
        },
        [](const Peer& peer) { return peer.uid == 0 ? MomentService::Viewer() : peer.uid; });
    live(1200, 0.1);
    turn = now() - 590;
    Value answer = at(turn);
    const Value& applications = answer["applications"];
    EXPECT_EQ(applications[0]["name"], "make");
    EXPECT_EQ(applications[0]["cpuUser"], 3);
    EXPECT_LE(applications.size(), 52U);
    EXPECT_EQ(applications.back()["name"], "kernel");
    EXPECT_EQ(answer["processes"][0]["name"], "cc1");
    const Value grown = change(answer, "make: CPU use of one core");
    EXPECT_EQ(grown["from"], 5);
    EXPECT_EQ(grown["to"], 100);
    EXPECT_EQ(at(turn - 7200)["applications"], Value::array());
    EXPECT_EQ(whyUnknown(at(turn, user(1000)), "applications"), "the record cannot be read now");
}

TEST_F(MomentServiceTest, NonsenseIsRefusedInWords)
{
    for (const Value& wrong : {Value(), Value{{"time", "noon"}}, Value{{"time", -1}}, Value{{"time", now() + 3600}},
             Value{{"time", 1e300}}, Value("now")}) {
        const auto answer = ask(wrong);
        ASSERT_FALSE(answer) << wrong;
        EXPECT_EQ(answer.error().code, ErrorCode::InvalidArgument);
    }
    EXPECT_THAT(ask({{"time", now() + 3600}}).error().message, HasSubstr("future"));
    EXPECT_TRUE(ask({{"time", 0}}));
}

} // namespace
} // namespace meridal::test
