#include "base/Value.h"
#include "daemon/MeridalHistory.h"
#include "daemon/StatusReport.h"
#include "tests/daemon/DaemonFixture.h"

#include <gmock/gmock.h>

namespace meridal::test {
namespace {

TEST_F(DaemonTest, QuestionsWithoutTheirCollectorGetWhatNothingThereIs)
{
    start();
    EXPECT_EQ(answer(&DaemonProtocol::sensors, json(R"([{"key":"TC0P"},{"name":"keyless"},17])")),
        json(R"([{"key":"TC0P","value":0.0},{"key":null,"value":0.0}])"));
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
    machine.powerSources().change({FakePowerSources::internal("Battery Power", false)});
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
    int reads = 0;
    int loads = 0;
    std::vector<Task> asking;
    CollectorPorts ports;
    ports.refreshDisks = [&](Task done) { asking.push_back(std::move(done)); };
    ports.loadDisks = [&] { ++loads; };
    ports.updateDisks = [&](const std::function<void()>& done) {
        ++reads;
        done();
    };
    ports.diskStatus = [] { return Value::array({{{"key", "disk0"}}}); };
    start(std::move(ports));
    machine.runtime.advance(100);
    EXPECT_EQ(loads, 0);

    Client client = connect();
    call(client, &DaemonProtocol::startSMARTStatus);
    EXPECT_EQ(loads, 1);
    EXPECT_EQ(client.link->count(64), 0) << "not before the disks have answered";
    const auto answer = [&] {
        for (const Task& done : std::exchange(asking, {})) {
            done();
        }
    };
    answer();
    EXPECT_EQ(client.link->count(64), 1);
    machine.runtime.advance(61);
    EXPECT_EQ(reads, 2) << "every 30 s";
    EXPECT_EQ(client.link->count(64), 3);
    client.daemon->stopSMARTStatus();
    machine.runtime.advance(300);
    EXPECT_EQ(reads, 2);
    EXPECT_TRUE(daemon->smartNeedsUpdate());
    client.daemon->startSMARTTemps();
    machine.runtime.advance(31);
    EXPECT_EQ(reads, 3) << "the schedule went on, idle";
    EXPECT_EQ(loads, 1);

    client.daemon->smartTemps();
    client.daemon->startSMARTStatus();
    client.daemon->stopSMARTStatus();
    call(client, &DaemonProtocol::stopSMARTTemps);
    const auto before = client.link->received.size();
    answer();
    EXPECT_EQ(client.link->received.size(), before + 1) << "the one that was asked for once";
    call(client, &DaemonProtocol::smartTemps);
    disconnect(client);
    answer(); // nobody is there any more
}

TEST_F(DaemonTest, SleepIsRecordedOnlyWhenItsBeginningIsKnown)
{
    std::vector<std::pair<double, double>> sleeps;
    std::vector<std::pair<Farewell, double>> farewells;
    CollectorPorts ports;
    ports.saveSleep = [&](double from, double until) { sleeps.emplace_back(from, until); };
    ports.saveShutdownTime = [&](Farewell why, double time, const Task& written) {
        farewells.emplace_back(why, time);
        EXPECT_EQ(written != nullptr, why == Farewell::Sleep) << "only the end waits";
        if (written) {
            written();
        }
    };
    start(std::move(ports));
    machine.powerMessages().send(PowerMessage::SystemHasPoweredOn);
    EXPECT_TRUE(sleeps.empty());
    const double before = machine.runtime.wallTime();
    machine.powerMessages().send(PowerMessage::SystemWillSleep);
    EXPECT_EQ(farewells, (std::vector{std::pair(Farewell::Sleep, before)}));
    machine.runtime.sleepMachine(3600);
    machine.powerMessages().send(PowerMessage::SystemHasPoweredOn);
    machine.powerMessages().send(PowerMessage::SystemHasPoweredOn);
    EXPECT_EQ(sleeps, (std::vector{std::pair(before, before + 3600)}));
    daemon->finalize();
    EXPECT_EQ(farewells.back(), std::pair(Farewell::Shutdown, before + 3600));
}

TEST_F(DaemonTest, TheMachineSleepsWhenEverythingIsWritten)
{
    const TemporaryTree folder(TemporaryTree::Place::Memory);
    HistoryDatabaseController databases(machine.context);
    machine.context.databases = &databases;
    const auto record = databases.databaseWithPath(folder.root() / "record.db");
    record->declareTable({.table = "rows", .create = "CREATE TABLE %@ (row INTEGER)"});
    const auto add = [&record] {
        record->addItem({.table = "rows", .format = "INSERT INTO %@ VALUES (1)", .args = {}});
    };
    Task bandwidthWritten;
    Task shutdownWritten;
    CollectorPorts ports;
    ports.saveShutdownTime = [&](Farewell, double, Task written) { shutdownWritten = std::move(written); };
    ports.saveBandwidth = [&](Task written) { bandwidthWritten = std::move(written); };
    start(std::move(ports));
    add();
    const auto sleep = machine.powerMessages().send(PowerMessage::SystemWillSleep);
    EXPECT_EQ(record->statistics().rowsWritten, 0U) << "not on the main queue's time";
    machine.runtime.advance(1);
    EXPECT_EQ(record->statistics().rowsWritten, 1U);
    shutdownWritten();
    shutdownWritten(); // an answer too many is not the other's
    EXPECT_TRUE(machine.powerMessages().allowed.empty());
    bandwidthWritten();
    EXPECT_EQ(machine.powerMessages().allowed, std::vector{sleep});

    record->queryDatabaseAsync([&](SQLiteConnection&) {
        machine.runtime.advance(2.5);
        shutdownWritten();
        bandwidthWritten();
        EXPECT_EQ(machine.powerMessages().allowed.size(), 1U) << "the record hangs on its disk";
    });
    machine.powerMessages().send(PowerMessage::SystemWillSleep);
    machine.runtime.runDue();
    EXPECT_EQ(machine.powerMessages().allowed.size(), 2U);
    add();
    daemon->finalize();
    EXPECT_EQ(record->statistics().rowsWritten, 2U);
    daemon.reset();
    machine.context.databases = nullptr;
}

TEST_F(DaemonTest, OnlyWhoOwnsTheMachineMayChangeItsNetwork)
{
    std::vector<std::string> refreshed;
    CollectorPorts ports;
    ports.refreshDHCP = [&](const std::string& name) {
        refreshed.push_back(name);
        return Result<void>();
    };
    start(std::move(ports));
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

} // namespace
} // namespace meridal::test
