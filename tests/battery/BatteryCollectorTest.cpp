#include "collectors/battery/BatteryStatCollectorMac.h"
#include "daemon/BatteryKeeper.h"
#include "daemon/CollectorPorts.h"
#include "daemon/ZAVPowerManager.h"
#include "database/HistoryDatabaseController.h"
#include "tests/support/FakeHost.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace meridal::test {
namespace {

using enum PowerSupplyState;

/// A laptop, with what the daemon has of its battery, in real files.
struct BatteryCollectorTest : testing::Test {
    struct Daemon {
        explicit Daemon(FakeMachine& machine) : databases(machine.context), power(machine.context)
        {
            machine.context.databases = &databases;
            collector = std::make_unique<BatteryStatCollectorMac>(machine.context);
            keeper = std::make_unique<BatteryKeeper>(machine.context, *collector, power);
            keeper->plugInto(ports);
            ports.prepareBattery();
            machine.runtime.runDue();
        }
        HistoryDatabaseController databases;
        ZAVPowerManager power;
        CollectorPorts ports;
        std::unique_ptr<BatteryStatCollectorMac> collector;
        std::unique_ptr<BatteryKeeper> keeper;
    };

    BatteryCollectorTest() { describe(Battery); }
    ~BatteryCollectorTest() override
    {
        daemon.reset();
        machine.context.databases = nullptr;
    }

    void describe(PowerSupplyState supply, int full = 4500, int cycles = 100)
    {
        pack.supply = supply;
        pack.controller->chargeFullMah = full;
        pack.controller->cycles = cycles;
        sources().change({pack});
    }
    void start()
    {
        daemon.reset();
        machine.runtime.advance(60);
        daemon = std::make_unique<Daemon>(machine);
    }
    void update()
    {
        daemon->ports.updateBattery();
        machine.runtime.runDue();
    }
    void sleepFor(double seconds)
    {
        machine.powerMessages().send(PowerMessage::SystemWillSleep);
        machine.runtime.sleepMachine(seconds);
        machine.powerMessages().send(PowerMessage::SystemHasPoweredOn);
    }
    FakePowerSources& sources() { return machine.powerSources(); }

    Result<Value> ask(void (BatteryKeeper::*question)(const Value&, std::function<void(Result<Value>)>),
        const Value& parameters = nullptr)
    {
        std::optional<Result<Value>> answer;
        (daemon->keeper.get()->*question)(parameters, [&answer](Result<Value> result) { answer = std::move(result); });
        machine.runtime.runDue();
        return answer ? *answer : Result<Value>(unexpected(ErrorCode::Internal, "no reply"));
    }
    Value state() { return ask(&BatteryKeeper::state).value(); }
    /// What was recorded of a figure, oldest first.
    std::vector<double> recorded(const std::string& figure)
    {
        std::vector<double> values;
        const auto answer = ask(&BatteryKeeper::history, {{"figure", figure}});
        for (const Value& row : answer ? (*answer)["rows"] : Value::array()) {
            EXPECT_EQ(row["key"], "InternalBattery-0 D1");
            values.insert(values.begin(), row["value"].get<double>());
        }
        return values;
    }

    FakeMachine machine;
    PowerSourceRecord pack{.name = "InternalBattery-0",
        .serial = "D1",
        .chargePercent = 60,
        .controller = BatteryControllerRecord{.chargeDesignMah = 5000, .voltageMv = 12000, .currentMa = -500}};
    std::unique_ptr<Daemon> daemon;
};

using Figures = std::vector<double>;

TEST_F(BatteryCollectorTest, OnlyWhatChangedIsRecordedAcrossRestarts)
{
    start();
    EXPECT_EQ(recorded("health"), Figures({90}));
    EXPECT_EQ(recorded("cycles"), Figures({100}));
    EXPECT_EQ(recorded("source"), Figures({0}));
    for (const int maximum : {4500, 4526, 4524, 4526}) { // 90.52 and 90.48 %: the edge of two whole figures
        describe(Battery, maximum);
        update();
    }
    EXPECT_EQ(recorded("health"), Figures({90}));
    machine.runtime.advance(60);
    describe(AC, 4400, 101);
    update();
    start();
    start();
    EXPECT_EQ(recorded("health"), Figures({90, 88}));
    EXPECT_EQ(recorded("cycles"), Figures({100, 101}));
    EXPECT_EQ(recorded("source"), Figures({0, 1}));
    describe(AC, 4400, 102);
    update();
    const auto file = daemon->databases.databaseWithPath(daemon->collector->dbpath());
    file->queryDatabase([&](SQLiteConnection& connection) {
        const auto found = connection.rows("SELECT typeof(time) AS t, uuid, typeof(cycles) AS c FROM battery_cycles");
        ASSERT_TRUE(found && found->size() == 3U);
        EXPECT_EQ(found->at(2), (Dictionary{{"t", "real"}, {"uuid", "InternalBattery-0 D1"}, {"c", "integer"}}));
    });
}

TEST_F(BatteryCollectorTest, HistoryComesInBoundedPages)
{
    start();
    for (int cycles = 101; cycles <= 107; ++cycles) {
        machine.runtime.advance(60);
        describe(Battery, 4500, cycles);
        update();
    }
    Value parameters = {{"figure", "cycles"}, {"limit", 3}, {"key", "InternalBattery-0 D1"}};
    Figures values;
    for (bool more = true; more;) {
        const auto page = ask(&BatteryKeeper::history, Value::array({parameters}));
        ASSERT_TRUE(page) << page.error().message;
        for (const Value& row : (*page)["rows"]) {
            values.push_back(row["value"].get<double>());
            parameters["before"] = row["row"];
        }
        more = (*page)["more"].get<bool>();
    }
    EXPECT_EQ(values, Figures({107, 106, 105, 104, 103, 102, 101, 100}));
    const double now = machine.runtime.wallTime();
    const auto late = ask(&BatteryKeeper::history, {{"figure", "cycles"}, {"from", now - 61}, {"until", now}});
    EXPECT_EQ((*late)["rows"].size(), 1U);
    for (const char* wrong : {R"({"limit":0})", R"({"limit":501})", R"({"limit":"x"})", R"({"figure":"charge"})",
             R"({"key":1})", R"({"before":"x"})", R"({"from":"x"})", R"({"until":[]})", R"([1,2])", "7"}) {
        const auto refused = ask(&BatteryKeeper::history, parseUntrusted(wrong).value());
        EXPECT_TRUE(!refused && refused.error().code == ErrorCode::InvalidArgument) << wrong;
    }
}

TEST_F(BatteryCollectorTest, AFileThatCannotBeReadIsAskedAgainAndLosesNothing)
{
    const auto path = machine.context.paths.support;
    std::filesystem::remove_all(path);
    std::ofstream(path) << "no folder"; // nothing can be opened there, and nothing moved out of the way
    start();
    EXPECT_FALSE(ask(&BatteryKeeper::history));
    EXPECT_TRUE(ask(&BatteryKeeper::state)) << "which needs no file";
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    update();
    EXPECT_EQ(recorded("cycles"), Figures({100}));
}

TEST_F(BatteryCollectorTest, TheDaemonsPortsTellTheSourceOfTheMachinesOwnBattery)
{
    sources().records.clear();
    start();
    EXPECT_FALSE(daemon->ports.internalBattery());
    EXPECT_FALSE(daemon->collector->primaryBattery());
    describe(Battery);
    update();
    const double changed = machine.runtime.wallTime();
    sleepFor(500);
    EXPECT_EQ(daemon->ports.internalBattery(),
        (Dictionary{{"key", "InternalBattery-0 D1"}, {"source", 0}, {"time", changed}, {"sleep", 500.0}}));
    machine.runtime.advance(70);
    EXPECT_NEAR(state()["batteries"][0]["awakeOnSource"].get<double>(), 70, 0.01);

    // Full on the same source: the collector learns it without anybody asking.
    pack.charging = true;
    describe(AC);
    update();
    pack.charging = false;
    pack.charged = true;
    describe(AC);
    EXPECT_EQ(daemon->collector->internalBattery()->state(), BatteryState::Charged);
}

TEST_F(BatteryCollectorTest, SeveralBatteriesAndAUPSAreKeptApart)
{
    PowerSourceRecord first{.name = "01AV4", .serial = "0000", .supply = Battery, .chargePercent = 10};
    PowerSourceRecord second = first;
    second.chargePercent = 90;
    first.controller = BatteryControllerRecord{.cycles = 1};
    const PowerSourceRecord ups{.kind = PowerSourceKind::UPS, .name = " Smart-UPS", .supply = AC, .chargePercent = 100};
    sources().records = {ups, first, {.name = "bay", .present = false}, second};
    struct Witness final : StatCollectorDelegate {
        void collectorChildrenChanged(StatCollector&) override { ++changes; }
        int changes = 0;
    } witness;
    start();
    daemon->collector->addDelegate(witness);
    update();
    EXPECT_EQ(witness.changes, 0);
    const auto& items = daemon->collector->items();
    ASSERT_EQ(items.size(), 3U);
    const auto battery = [&](std::size_t place) -> const BatteryStatCollectorItemMac& {
        return static_cast<const BatteryStatCollectorItemMac&>(*items[place]);
    };
    EXPECT_EQ(battery(0).key(), "01AV4 0000");
    EXPECT_EQ(battery(1).key(), "01AV4 0000 #2") << "makers number carelessly";
    EXPECT_EQ(battery(0).cycles(), 1);
    EXPECT_FALSE(battery(1).cycles());
    EXPECT_EQ(battery(2).name(), "Smart-UPS");
    EXPECT_EQ(daemon->collector->internalBattery(), items[1]) << "the last one speaks";
    EXPECT_EQ(daemon->collector->primaryBattery(), items[1]);
    EXPECT_EQ(state()["total"]["percentage"], 50) << "without the UPS";

    sources().records = {ups};
    update();
    EXPECT_EQ(items.size(), 1U);
    EXPECT_EQ(witness.changes, 1);
    EXPECT_FALSE(daemon->collector->internalBattery());
    EXPECT_EQ(daemon->collector->primaryBattery(), items[0]);
    EXPECT_FALSE(state().contains("total"));
    daemon->collector->removeDelegate(witness);
}

TEST_F(BatteryCollectorTest, AUPSThatChangesByItselfIsRecordedAndTimedByItself)
{
    const auto describeBoth = [this](PowerSupplyState own, PowerSupplyState other) {
        sources().change(
            {{.name = "Pack", .supply = own}, {.kind = PowerSourceKind::UPS, .name = "UPS", .supply = other}});
        machine.runtime.runDue();
    };
    start();
    describeBoth(AC, AC);
    machine.runtime.advance(100);
    sleepFor(1000);
    describeBoth(AC, Battery);
    const auto rows = ask(&BatteryKeeper::history, {{"figure", "source"}, {"key", "UPS"}}).value()["rows"];
    ASSERT_EQ(rows.size(), 2U) << "without anybody asking";
    EXPECT_EQ(rows[0]["value"], 0);
    machine.runtime.advance(50);
    describeBoth(Battery, Battery);
    sleepFor(1000);
    machine.runtime.advance(30);
    const Value batteries = state()["batteries"];
    EXPECT_NEAR(batteries[0]["awakeOnSource"].get<double>(), 30, 0.01);
    EXPECT_NEAR(batteries[1]["awakeOnSource"].get<double>(), 80, 0.01) << "its own sleep, and no other's";
}

TEST_F(BatteryCollectorTest, PeripheralsAreReadOnlyForWhoAsksAndNotTooOften)
{
    FakePeripheralBatteries& devices = machine.peripherals();
    devices.wireless = {
        {.key = "aa:bb:cc:dd:ee:ff", .name = "Headset", .kind = PeripheralKind::Headset, .percent = 140}};
    devices.receiver = {{.key = "7", .name = "Mouse", .kind = PeripheralKind::Mouse, .level = "Low", .charging = true}};
    start();
    machine.runtime.advance(3600);
    update();
    EXPECT_EQ(devices.asked, 0);

    devices.slow = true;
    std::vector<Value> answers;
    for (int i = 0; i < 3; ++i) {
        daemon->keeper->state({}, [&](Result<Value> result) { answers.push_back(result.value()); });
    }
    machine.runtime.advance(2);
    EXPECT_TRUE(answers.empty()) << "they wait for the devices";
    devices.answer();
    ASSERT_EQ(answers.size(), 3U);
    EXPECT_EQ(devices.asked, 1);
    EXPECT_EQ(answers[0]["peripherals"],
        parseUntrusted(
            R"([{"key":"peripheral aa:bb:cc:dd:ee:ff","name":"Headset","type":5,"percentage":100.0,"state":2},
            {"key":"peripheral 7","name":"Mouse","type":3,"level":"Low","state":1}])")
            .value());
    EXPECT_EQ(answers[0]["batteries"].size(), 1U);
    EXPECT_EQ(answers[0]["primary"], "InternalBattery-0 D1");

    devices.slow = false;
    devices.receiver.clear();
    EXPECT_EQ(state()["peripherals"].size(), 2U) << "as they were";
    machine.runtime.advance(10);
    update();
    EXPECT_EQ(state()["peripherals"].size(), 1U);
    EXPECT_EQ(devices.asked, 2);
    EXPECT_EQ(daemon->collector->itemWithKey("peripheral 7"), nullptr);
    EXPECT_FALSE(ask(&BatteryKeeper::state, {1}));
}

} // namespace
} // namespace meridal::test
