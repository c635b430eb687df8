// SPDX-License-Identifier: Apache-2.0
#include "base/Value.h"
#include "daemon/MeridalHistory.h"
#include "daemon/StatusReport.h"
#include "tests/daemon/DaemonFixture.h"
#include "tests/support/SMARTPageBuilder.h"

#include <gmock/gmock.h>

namespace meridal::test {
namespace {

TEST_F(DaemonTest, QuestionsAboutWhatAMachineLacksGetWhatNothingThereIs)
{
    start();
    EXPECT_EQ(answer(&DaemonProtocol::sensors, json(R"([{"key":"TC0P"},{"name":"keyless"},17])")),
        json(R"([{"key":"TC0P","value":-1.0},{"value":-1.0}])"));
    EXPECT_EQ(answer(&DaemonProtocol::supportedSensors, Value()), json(R"({"sensors":[],"fans":[]})"));
    EXPECT_EQ(answer(&DaemonProtocol::armSensors, Value()), Value::array());
    EXPECT_EQ(answer(&DaemonProtocol::supportedFans, Value()), Value::array());
    for (const auto method :
        {&DaemonProtocol::stopT2Fans, &DaemonProtocol::startT2Fans, &DaemonProtocol::finalizeT2Fans}) {
        EXPECT_EQ(answer(method), (Value{{"result", 1}}));
    }
    Client client = connect();
    request(client, 128);
    ASSERT_EQ(client.link->count(128), 1);
    EXPECT_EQ(client.link->received[0]->dictionary(), (Value{{"type", "128"}}));
    Client other = connect();
    machine.powerSources().change({{.supply = PowerSupplyState::Battery}});
    machine.runtime.advance(10);
    EXPECT_EQ(client.link->count(128), 2) << "when the source changes";
    EXPECT_EQ(other.link->count(128), 0) << "who did not ask";
    client.daemon->smartTemps();
    call(client, &DaemonProtocol::startSMARTStatus);
    EXPECT_EQ(client.link->count(32), 1);
    EXPECT_EQ(client.link->count(64), 1);
    EXPECT_EQ(maskOf(client), 128 + 64) << "asking for the temperatures once adds no bit";
}

TEST_F(DaemonTest, FrameRatesThatTakeTwoLooksAreAnsweredAfterTheSecond)
{
    start();
    const Client client = connect();
    std::vector<double> told;
    const auto ask = [&] { call(client, &DaemonProtocol::fps, [&told](double rate) { told.push_back(rate); }); };
    ask();
    ask();
    EXPECT_TRUE(told.empty());
    machine.display().rate = 60;
    machine.runtime.advance(FrameRate::span);
    ask();
    EXPECT_EQ(told, std::vector<double>({60, 60, 60}));
    machine.display().rate.reset();
    ask();
    machine.runtime.advance(FrameRate::span);
    EXPECT_EQ(told.back(), 0) << "no display";
}

TEST_F(DaemonTest, WhereTheHostHidesProcessesClientsSeeTheirOwn)
{
    for (const std::int32_t pid : {50, 51, 52}) { // theirs, root's again, theirs in a group
        machine.processes().set(FakeProcessSource::process(pid, pid == 50 ? 42 : 50, "theirs"));
    }
    machine.visibility().owners = {{50, 1000}, {52, 1000}, {42, 1001}};
    start();
    using Pids = std::vector<int>;
    const auto pids = [this](const Peer& peer, bool grouped) {
        Pids found;
        const EnvelopePtr list = daemon->processList(RequestKey::Memory, grouped, peer);
        for (const Value& entry : list->dictionary()["processes"]) {
            found.push_back(std::stoi(entry["key"].get<std::string>()));
        }
        std::sort(found.begin(), found.end());
        return found;
    };
    const Pids all = {1, 42, 50, 51, 52};
    machine.runtime.advance(60);
    EXPECT_EQ(machine.visibility().rulesAsked, 0) << "while nobody looks";
    EXPECT_EQ(pids(user(1000), false), all);
    EXPECT_EQ(daemon->processList(RequestKey::Cpu, false, user(1000)),
        daemon->processList(RequestKey::Cpu, false, user(1001)))
        << "one for everybody";
    EXPECT_EQ(machine.visibility().asked, 0) << "and it costs nothing";

    machine.visibility().rule = ProcessRestriction{.exemptGroup = 4};
    machine.runtime.advance(ProcessViews::checkInterval + 3);
    EXPECT_EQ(pids(user(1000), false), (Pids{50, 52}));
    EXPECT_EQ(pids(user(1000), true), Pids{50}) << "what headed their group is not theirs";
    EXPECT_EQ(pids(user(1001), true), Pids{42});
    EXPECT_EQ(pids(Peer(), false), Pids());
    EXPECT_EQ(pids(user(0), false), all);
    EXPECT_EQ(pids(user(1002, {24, 4}), false), all);
    EXPECT_EQ(machine.visibility().asked, 5) << "once a process and pass";
    for (const std::int32_t pid : {60, 61}) { // since the latest pass
        machine.processes().set({.pid = pid, .parentPid = 1, .name = "young"});
    }
    machine.visibility().owners.insert({{60, 1000}, {61, 1001}});
    EXPECT_EQ(answer(&DaemonProtocol::infoForPids, Value::array({42, 50, 60, 61})),
        json(R"([{"name":"theirs","pid":50},{"name":"young","pid":60}])"));
    machine.processes().remove(60);
    machine.processes().remove(61);
    machine.visibility().rule = ProcessRestriction{.exemptGroup = std::nullopt};
    machine.runtime.advance(ProcessViews::checkInterval + 3);
    EXPECT_EQ(pids(user(1002, {24, 4}), false), Pids());
}

TEST_F(DaemonTest, ClientsReadDisksWhileTheyWantThem)
{
    const auto disk = std::make_shared<FakeDisk>();
    disk->health = healthPage({});
    disk->controller = controllerPage("S5GX", "FAST 1000", "2B2Q");
    disk->record = {.path = "root/pci/nvme0", .kind = SMARTKind::NVMe, .serial = "S5GX"};
    machine.disks().plugged.push_back(disk);
    start();
    Client client = connect();
    const auto held = [&] { return client.link->count(64); };
    disk->beforeAnswer = [&] { EXPECT_EQ(held(), 0) << "not before the disks have answered"; };
    call(client, &DaemonProtocol::startSMARTStatus);
    disk->beforeAnswer = {};
    EXPECT_EQ(held(), 1);
    machine.runtime.advance(61);
    EXPECT_EQ(held(), 3) << "every 30 s";
    call(client, &DaemonProtocol::stopSMARTStatus);
    machine.runtime.advance(300);
    EXPECT_EQ(held(), 3);
    EXPECT_TRUE(daemon->smartNeedsUpdate());
    call(client, &DaemonProtocol::startSMARTTemps);
    machine.runtime.advance(31);
    EXPECT_EQ(client.link->count(32), 2) << "the schedule went on, idle";
    call(client, &DaemonProtocol::stopSMARTTemps);
    machine.runtime.advance(40);

    const auto before = client.link->received.size();
    client.daemon->smartTemps();
    client.daemon->startSMARTStatus();
    call(client, &DaemonProtocol::stopSMARTStatus);
    EXPECT_EQ(client.link->received.size(), before + 1) << "the one that was asked for once";
    machine.runtime.advance(40);
    client.daemon->smartTemps();
    disconnect(client); // nobody is there any more when the disk answers
}

TEST_F(DaemonTest, SleepIsRecordedOnlyWhenItsBeginningIsKnown)
{
    start();
    const auto lastBoot = [this] {
        Value boot;
        house.uptime.boots({}, [&boot](const Result<Value>& answer) { boot = answer.value()["boots"][0]; });
        machine.runtime.runDue();
        return boot;
    };
    machine.powerMessages().send(PowerMessage::SystemHasPoweredOn);
    EXPECT_EQ(lastBoot()["asleep"], 0);
    machine.powerMessages().send(PowerMessage::SystemWillSleep);
    machine.runtime.sleepMachine(3600);
    machine.powerMessages().send(PowerMessage::SystemHasPoweredOn);
    machine.powerMessages().send(PowerMessage::SystemHasPoweredOn);
    EXPECT_EQ(lastBoot()["asleep"], 3600);
}

TEST_F(DaemonTest, TheMachineSleepsWhenEverythingIsWritten)
{
    const auto record = house.databases.databaseWithPath(machine.files.root() / "record.db");
    record->declareTable({.table = "rows", .create = "CREATE TABLE %@ (row INTEGER)"});
    const auto add = [&record] {
        record->addItem({.table = "rows", .format = "INSERT INTO %@ VALUES (1)", .args = {}});
    };
    start();
    machine.runtime.advance(1);
    add();
    const auto sleep = machine.powerMessages().send(PowerMessage::SystemWillSleep);
    EXPECT_EQ(record->statistics().rowsWritten, 0U) << "not on the main queue's time";
    EXPECT_TRUE(machine.powerMessages().allowed.empty());
    machine.runtime.advance(1);
    EXPECT_EQ(record->statistics().rowsWritten, 1U);
    EXPECT_EQ(machine.powerMessages().allowed, std::vector{sleep});

    record->queryDatabaseAsync([&](SQLiteConnection&) {
        machine.runtime.advance(2.5);
        EXPECT_EQ(machine.powerMessages().allowed.size(), 1U) << "the record hangs on its disk";
    });
    machine.powerMessages().send(PowerMessage::SystemWillSleep);
    machine.runtime.runDue();
    EXPECT_EQ(machine.powerMessages().allowed.size(), 2U);
    add();
    daemon->finalize();
    EXPECT_EQ(record->statistics().rowsWritten, 2U);
}

TEST_F(DaemonTest, OnlyWhoOwnsTheMachineMayChangeItsNetwork)
{
    const auto& refreshed = machine.networkConfiguration().refreshed;
    start();
    std::string logged;
    machine.log.addListener([&](LogLevel, std::string_view line) { logged += line; });
    const auto outcome = [&](const Peer& peer, const std::string& name = "eth0") {
        std::optional<ErrorCode> error;
        call(connect(peer), &DaemonProtocol::refreshDHCP, name,
            [&](Result<void> result) { error = result ? std::nullopt : std::optional(result.error().code); });
        return error;
    };
    EXPECT_EQ(outcome(user(1001)), ErrorCode::NotPermitted);
    EXPECT_EQ(outcome({.uid = 0, .gid = 0, .known = false}), ErrorCode::NotPermitted) << "0 is only a default here";
    EXPECT_TRUE(refreshed.empty());
    EXPECT_EQ(outcome(user(0)), std::nullopt);
    EXPECT_EQ(outcome(user(1000)), std::nullopt) << "sits at the machine";
    EXPECT_EQ(refreshed.size(), 2U);
    EXPECT_THAT(logged, testing::HasSubstr(R"(refreshDHCP: "eth0" refused to uid 1001)"));
    EXPECT_THAT(logged, testing::HasSubstr(R"(refreshDHCP: "eth0" by uid 0: done)"));
    outcome(user(1001), "eth0\" by uid 0: done" + std::string(5000, 'x'));
    EXPECT_THAT(logged, testing::HasSubstr(R"("eth0\" by uid 0: done)")) << "a client's words stay in their quotes";
    EXPECT_THAT(logged, testing::HasSubstr(R"(x" refused to uid 1001)"));
}

TEST_F(DaemonTest, StatusTellsTheCostAndWhatIsMissing)
{
    machine.host.limitations->set("disk", "needs root");
    machine.selfUsage().reading.cpuSeconds = 0.0;
    machine.selfUsage().reading.wakeups = 0;
    start();
    StatusReport report(*daemon, [] {
        ListenerStatistics figures;
        figures.openConnections = 3;
        return figures;
    });
    machine.runtime.advance(5);
    machine.selfUsage().reading.cpuSeconds = 1.0;
    machine.selfUsage().reading.wakeups = 20;
    machine.runtime.advance(5);
    Dictionary status = report.build();
    EXPECT_DOUBLE_EQ(status["usage"]["cpuPercent"], 10.0);
    EXPECT_DOUBLE_EQ(status["usage"]["wakeupsPerSecond"], 2.0);
    EXPECT_FALSE(status["usage"].contains("bytesWritten")) << "absent, not zero";
    EXPECT_EQ(status["limitations"]["disk"], "needs root");
    EXPECT_EQ(status["transport"]["openConnections"], 3);
    EXPECT_EQ(status["passes"]["count"], 6);
    EXPECT_EQ(status["passes"]["processes"], 2);

    machine.runtime.advance(100); // idle; it is asked twice in a row, the second question at a price
    report.build();
    machine.selfUsage().reading.cpuSeconds = 1.3;
    status = report.build();
    EXPECT_NEAR(status["usage"]["cpuPercent"], 0.3 / 60 * 100, 0.1)
        << "of a minute, not of the time since the question";
    EXPECT_NEAR(status["usage"]["period"], 60, 10);
    EXPECT_DOUBLE_EQ(status["usage"]["cpuPercentSinceStart"], 1.3 / 110 * 100);
    EXPECT_EQ(status["usage"]["wakeupsPerSecond"], 0);
}

TEST_F(DaemonTest, PassiveQuestionsAreAnsweredFromWhatIsKnown)
{
    machine.powerSources().records = {{.supply = PowerSupplyState::Battery}};
    machine.selfUsage().reading.cpuSeconds = 1;
    machine.selfUsage().reading.residentBytes = 10;
    start();
    StatusReport report(*daemon, [] { return ListenerStatistics(); });
    MeridalHistory methods(machine.runtime.mainQueue());
    report.addTo(methods);
    house.battery.addTo(methods, house.catalogue);
    const auto ask = [&](const char* method, const Value& parameters) {
        Value answer;
        methods.call(method, parameters, {}, [&answer](const Result<Value>& result) { answer = result.value(); });
        machine.runtime.runDue();
        return answer;
    };
    const Value passive = {{"passive", true}};
    EXPECT_EQ(ask("status", passive)["usage"]["residentBytes"], 10);
    machine.selfUsage().reading.cpuSeconds = 2;
    machine.selfUsage().reading.residentBytes = 20;
    machine.runtime.advance(10);
    EXPECT_EQ(ask("status", passive)["usage"]["residentBytes"], 10) << "dear to look up";
    EXPECT_EQ(ask("status", passive)["usage"]["cpuSeconds"], 2);
    EXPECT_EQ(ask("status", nullptr)["usage"]["residentBytes"], 20);
    machine.selfUsage().reading.residentBytes = 30;
    machine.runtime.advance(StatusReport::passiveAge);
    EXPECT_EQ(ask("status", passive)["usage"]["residentBytes"], 30);

    ask("battery.state", nullptr);
    const int asked = machine.powerSources().asked;
    for (int question = 0; question < 10; ++question) {
        machine.runtime.advance(2);
        EXPECT_EQ(ask("battery.state", passive)["batteries"].size(), 1U);
    }
    EXPECT_EQ(machine.powerSources().asked, asked);
    ask("battery.state", nullptr);
    EXPECT_GT(machine.powerSources().asked, asked);
}

} // namespace
} // namespace meridal::test
