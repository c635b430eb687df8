// SPDX-License-Identifier: Apache-2.0
#include "collectors/battery/BatteryStatCollectorMac.h"
#include "daemon/BatteryService.h"
#include "daemon/HistoryQuestions.h"
#include "daemon/MeridalHistory.h"
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
        explicit Daemon(FakeMachine& machine)
            : databases(machine.context), power(machine.context), methods(machine.runtime.mainQueue())
        {
            machine.context.databases = &databases;
            collector = std::make_unique<BatteryStatCollectorMac>(machine.context);
            service = std::make_unique<BatteryService>(machine.context, *collector, power);
            service->prepare();
            service->addTo(methods, catalogue);
            machine.runtime.runDue();
        }
        HistoryDatabaseController databases;
        ZAVPowerManager power;
        std::unique_ptr<BatteryStatCollectorMac> collector;
        std::unique_ptr<BatteryService> service;
        MeridalHistory methods;
        HistoryCatalogue catalogue;
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
        daemon->service->update();
        machine.runtime.runDue();
    }
    void sleepFor(double seconds)
    {
        machine.powerMessages().send(PowerMessage::SystemWillSleep);
        machine.runtime.sleepMachine(seconds);
        machine.powerMessages().send(PowerMessage::SystemHasPoweredOn);
    }
    FakePowerSources& sources() { return machine.powerSources(); }

    Result<Value> ask(void (BatteryService::*question)(const Value&, std::function<void(Result<Value>)>),
        const Value& parameters = nullptr)
    {
        std::optional<Result<Value>> answer;
        (daemon->service.get()->*question)(parameters, [&answer](Result<Value> result) { answer = std::move(result); });
        machine.runtime.runDue();
        return answer ? *answer : Result<Value>(unexpected(ErrorCode::Internal, "no reply"));
    }
    Value state() { return ask(&BatteryService::state).value(); }
    /// What was recorded of a figure, oldest first.
    std::vector<double> recorded(const std::string& figure)
    {
        std::vector<double> values;
        const auto answer = ask(&BatteryService::history, {{"figure", figure}});
        for (const Value& row : answer ? (*answer)["rows"] : Value::array()) {
            EXPECT_EQ(row["key"], "InternalBattery-0 D1");
            values.insert(values.begin(), row["value"].get<double>());
        }
        return values;
    }

    /// Adds this to what the pack holds, of 45 Wh, and says so.
    void charge(int milliwattHours)
    {
        constexpr int full = 45'000;
        const std::int64_t now = pack.controller->energyNowMwh.value_or(full) + milliwattHours;
        pack.controller->energyNowMwh = now;
        pack.controller->chargeNowMah = now / 10;
        pack.chargePercent = static_cast<int>(now * 100 / full);
        sources().records = {pack};
    }
    std::vector<double> ratesOf(const Value& parameters)
    {
        std::vector<double> rates;
        Value question = parameters;
        for (bool more = true; more;) {
            const Value page = ask(&BatteryService::sleeps, question).value();
            for (const Value& sleep : page["sleeps"]) {
                rates.push_back(number(sleep, "percentPerHour").value_or(-1));
            }
            more = page["more"].get<bool>();
            question["after"] = more ? page["next"] : Value();
        }
        return rates;
    }
    /// Series and their newest value in the finest resolution that is stored.
    std::map<std::string, std::optional<double>> series()
    {
        const HistoryQuestions questions(daemon->catalogue);
        std::map<std::string, std::optional<double>> latest;
        const Value listed = questions.series(nullptr).value();
        for (const Value& one : listed["series"]) {
            const std::string name = one["series"];
            questions.samples({{"series", name}}, {}, [&](const Result<Value>& page) {
                const Value& samples = (*page)["samples"];
                latest[name] = samples.empty() || samples.back()["values"][0].is_null()
                    ? std::nullopt
                    : std::optional(samples.back()["values"][0].get<double>());
            });
            machine.runtime.runDue();
        }
        return latest;
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
        const auto page = ask(&BatteryService::history, Value::array({parameters}));
        ASSERT_TRUE(page) << page.error().message;
        for (const Value& row : (*page)["rows"]) {
            values.push_back(row["value"].get<double>());
            parameters["before"] = row["row"];
        }
        more = (*page)["more"].get<bool>();
    }
    EXPECT_EQ(values, Figures({107, 106, 105, 104, 103, 102, 101, 100}));
    const double now = machine.runtime.wallTime();
    const auto late = ask(&BatteryService::history, {{"figure", "cycles"}, {"from", now - 61}, {"until", now}});
    EXPECT_EQ((*late)["rows"].size(), 1U);
    for (const char* wrong : {R"({"limit":0})", R"({"limit":501})", R"({"limit":"x"})", R"({"figure":"charge"})",
             R"({"key":1})", R"({"before":"x"})", R"({"from":"x"})", R"({"until":[]})", R"([1,2])", "7"}) {
        const auto refused = ask(&BatteryService::history, parseUntrusted(wrong).value());
        EXPECT_TRUE(!refused && refused.error().code == ErrorCode::InvalidArgument) << wrong;
    }
}

TEST_F(BatteryCollectorTest, AFileThatCannotBeReadIsAskedAgainAndLosesNothing)
{
    const auto path = machine.context.paths.support;
    std::filesystem::remove_all(path);
    std::ofstream(path) << "no folder"; // nothing can be opened there, and nothing moved out of the way
    start();
    EXPECT_FALSE(ask(&BatteryService::history));
    EXPECT_TRUE(ask(&BatteryService::state)) << "which needs no file";
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    update();
    EXPECT_EQ(recorded("cycles"), Figures({100}));
}

TEST_F(BatteryCollectorTest, TheDaemonsPortsTellTheSourceOfTheMachinesOwnBattery)
{
    sources().records.clear();
    start();
    EXPECT_FALSE(daemon->service->internalBattery());
    EXPECT_FALSE(daemon->collector->primaryBattery());
    describe(Battery);
    update();
    const double changed = machine.runtime.wallTime();
    sleepFor(500);
    EXPECT_EQ(daemon->service->internalBattery(),
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
    const auto rows = ask(&BatteryService::history, {{"figure", "source"}, {"key", "UPS"}}).value()["rows"];
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

TEST_F(BatteryCollectorTest, ChargeAndPowerAreRecordedWithAReadingAMinute)
{
    sources().records.clear();
    start();
    machine.runtime.advance(600);
    EXPECT_TRUE(series().empty());
    EXPECT_FALSE(std::filesystem::exists(machine.context.paths.support / "battery-history-long.db"));
    describe(Battery);
    const auto readings = [this](double seconds) {
        const int before = sources().asked;
        machine.runtime.advance(seconds);
        return sources().asked - before;
    };
    EXPECT_NEAR(readings(600), 10, 1);
    using Series = std::map<std::string, std::optional<double>>;
    EXPECT_EQ(series(), (Series{{"battery/charge", 60}, {"battery/power", -6}})) << "12 V at -500 mA";
    pack.controller->currentMa = 0;
    pack.charged = true;
    describe(AC);
    EXPECT_LE(readings(600), 2) << "nothing moves";
    EXPECT_EQ(series().at("battery/power"), 0);

    PowerSourceRecord second = pack;
    second.serial = "D2";
    second.chargePercent = 80;
    sources().change({pack, second});
    machine.runtime.advance(60);
    EXPECT_EQ(series(),
        (Series{{"battery/charge", 70}, {"battery/power", 0}, {"battery/charge/InternalBattery-0 D1", 60},
            {"battery/power/InternalBattery-0 D1", 0}, {"battery/charge/InternalBattery-0 D2", 80},
            {"battery/power/InternalBattery-0 D2", 0}}));
    daemon->service->setRecording(false);
    EXPECT_LE(readings(600), 0);
    sources().records.clear();
    start();
    EXPECT_EQ(series().size(), 6U) << "what was recorded can be read without its battery";
}

TEST_F(BatteryCollectorTest, ASleepIsKeptWithWhatItTook)
{
    pack.controller->chargeFullMah = 4500;
    charge(0);
    start();
    constexpr double hour = 3600;
    const auto sleepWith = [this](double seconds, int milliwattHours) {
        machine.powerMessages().send(PowerMessage::SystemWillSleep);
        machine.runtime.sleepMachine(seconds);
        machine.powerMessages().send(PowerMessage::SystemHasPoweredOn);
        machine.runtime.advance(1);
        charge(milliwattHours); // which knows it only now
        machine.runtime.advance(60);
    };
    sleepWith(8 * hour, -3600); // 8 %
    sleepWith(2 * hour, -4500); // 10 %
    sleepWith(0, 0);            // called off
    sleepWith(hour / 2, -4500);
    sleepWith(4 * hour, -450);
    pack.supply = AC;
    charge(0);
    sleepWith(8 * hour, 0); // plugged in before
    charge(9000);
    pack.supply = Battery;
    charge(0);
    sleepWith(3 * hour, -100);
    const Value newest = ask(&BatteryService::sleeps).value();
    ASSERT_EQ(newest["sleeps"].size(), 6U);
    Value first = newest["sleeps"][5];
    EXPECT_NEAR(first["end"].get<double>() - first["start"].get<double>(), 8 * hour, 1e-3);
    for (const char* changing : {"row", "start", "end"}) {
        first.erase(changing);
    }
    EXPECT_EQ(first,
        (Value{{"onBattery", true}, {"chargeBefore", 100.0}, {"chargeAfter", 92.0}, {"energyBefore", 45000.0},
            {"energyAfter", 41400.0}, {"percentPerHour", 1.0}, {"power", -0.45}}));
    const Figures byTime = {0.07, -1, 0.25, 20, 5, 1};
    EXPECT_EQ(ratesOf(nullptr), byTime);
    EXPECT_EQ(ratesOf({{"limit", 2}}), byTime);
    for (const std::size_t limit : {1U, 3U, 50U}) {
        EXPECT_EQ(ratesOf({{"worst", true}, {"limit", limit}}), Figures({5, 1, 0.25, 0.07})) << limit;
    }
    EXPECT_EQ(ratesOf({{"from", newest["sleeps"][1]["start"]}}), Figures({0.07, -1}));
    sleepFor(hour);
    pack.supply = AC; // with the lid open
    charge(500);
    sleepFor(hour); // again at once
    const Figures withBoth = {-1, 0, 0.07, -1, 0.25, 20, 5, 1};
    machine.powerMessages().send(PowerMessage::SystemWillSleep);
    EXPECT_EQ(ratesOf(nullptr), withBoth);
    machine.runtime.sleepMachine(hour);
    sources().records = {{.name = "another pack", .supply = Battery, .chargePercent = 50}};
    machine.powerMessages().send(PowerMessage::SystemHasPoweredOn);
    start();
    EXPECT_EQ(ratesOf(nullptr), withBoth) << "nobody knows what that took";
    for (const char* wrong : {R"({"limit":501})", R"({"worst":1})", R"({"after":"x"})", R"({"from":[]})"}) {
        const auto refused = ask(&BatteryService::sleeps, parseUntrusted(wrong).value());
        EXPECT_TRUE(!refused && refused.error().code == ErrorCode::InvalidArgument) << wrong;
    }
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
        daemon->service->state({}, [&](Result<Value> result) { answers.push_back(result.value()); });
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
    EXPECT_FALSE(ask(&BatteryService::state, {1}));
}

} // namespace
} // namespace meridal::test
