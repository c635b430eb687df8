// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/SensorLimits.h"
#include "database/SQLiteConnection.h"
#include "tests/sensors/SensorsFixture.h"

#include <gmock/gmock.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <set>

namespace meridal::test {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

const char* const cpu = R"([{"key":"TC0P","name":"CPU","high":100}])";
const SensorRecord cpuSensor = sensorOf("TC0P", "chip-1", "CPU");

TEST_F(SensorsTest, TheRecordNeedsNobodyWhoAsks)
{
    SensorRecord disk = sensorOf("T0AB", "drivetemp-scsi-0-0", "temp1");
    disk.disturbs = true;
    fit({{cpuSensor, 40}, {disk, 30}});
    std::vector<std::string> warnings;
    machine.context.log.addListener([&](LogLevel level, std::string_view line) {
        if (level >= LogLevel::Warning) {
            warnings.emplace_back(line);
        }
    });
    start();
    machine.runtime.advance(2);
    EXPECT_THAT(warnings, SizeIs(0)) << "a first start, with nothing to read yet";
    const auto reads = [&](const char* key, double seconds) {
        const auto before = source().reads[key];
        machine.runtime.advance(seconds);
        return source().reads[key] - before;
    };
    EXPECT_EQ(reads("TC0P", 600), 100) << "every sixth turn";
    EXPECT_EQ(source().reads["T0AB"], 0) << "it may want to rest";
    EXPECT_GT(history({{"series", "sensors/TC0P"}}).at("samples").size(), 95U);

    measure({{"TC0P", 50}});
    machine.runtime.advance(3);
    Value sensors = list();
    EXPECT_EQ(sensors[0]["value"], 50) << "new at once";
    EXPECT_EQ(sensors[1]["value"], 30);
    EXPECT_EQ(reads("TC0P", 20), 10) << "every second turn while somebody asks";
    machine.runtime.advance(SensorsStatCollectorMac::askedFor);
    EXPECT_EQ(reads("T0AB", 60), 0);
}

TEST_F(SensorsTest, WhoAsksPassivelyIsAnsweredFromWhatIsRead)
{
    fit({{cpuSensor, 40}, {sensorOf("TXPW", "rapl-0", "package", SensorKind::Power), 10}});
    const auto passively = [this] {
        return daemon->service.list({{"passive", true}}, {}, PowerDetail::Averaged)->at("sensors");
    };
    const auto readsWhileAsked = [&](double every) {
        const auto before = source().reads;
        for (int question = 0; question < 10; ++question) {
            machine.runtime.advance(every);
            EXPECT_EQ(passively()[0]["value"], 40);
        }
        return std::pair(source().reads["TC0P"] - before.at("TC0P"), source().reads["TXPW"] - before.at("TXPW"));
    };
    start();
    EXPECT_EQ(passively()[0]["value"], 40) << "read once, if never before";
    machine.runtime.advance(60);
    EXPECT_EQ(readsWhileAsked(6), std::pair(std::ptrdiff_t{10}, std::ptrdiff_t{10})) << "those of the record";
    EXPECT_EQ(passively()[1]["value"], 10);
    daemon->service.setRecording(false);
    machine.runtime.advance(60);
    EXPECT_EQ(readsWhileAsked(15), std::pair(std::ptrdiff_t{10}, std::ptrdiff_t{0}))
        << "once each, as nobody else reads";
    EXPECT_TRUE(passively()[1]["value"].is_null()) << "no question has power read";
}

TEST_F(SensorsTest, AFailingSensorIsALineAnHourAndNoOtherIsHeldBack)
{
    fit({{cpuSensor, 40}, {sensorOf("TXAB", "chip-2", "Board"), 30}});
    std::vector<std::string> lines;
    machine.context.log.addListener([&](LogLevel level, std::string_view line) {
        if (level == LogLevel::Warning && line.starts_with("A sensor")) {
            lines.emplace_back(line);
        }
    });
    measure({{"TC0P", std::nullopt}, {"TXAB", std::nullopt}});
    source().failures["TC0P"] = "chip-1 temp1: Input/output error";
    start();
    machine.runtime.advance(600);
    const std::string failed = "A sensor cannot be read: chip-1 temp1: Input/output error";
    EXPECT_THAT(lines, ElementsAre(failed)) << "and none of one that rests";
    source().failures["TXAB"] = "chip-2 temp1: Input/output error";
    machine.runtime.advance(6); // one reading, as when a machine wakes up
    source().failures.erase("TXAB");
    machine.runtime.advance(60);
    EXPECT_THAT(lines, SizeIs(1)) << "of one that failed for a moment";
    source().failures["TXAB"] = "chip-2 temp1: Input/output error";
    machine.runtime.advance(10'000);
    EXPECT_THAT(lines, SizeIs(6)) << "three each";
    EXPECT_THAT(lines, testing::Contains(testing::StartsWith(failed + " (")));
    EXPECT_THAT(lines, testing::Contains("A sensor cannot be read: chip-2 temp1: Input/output error"));
}

TEST_F(SensorsTest, WhatAChipToldStaysWhenItIsGone)
{
    fit({{cpuSensor, 40}, {sensorOf("TXPW", "chip-2", "Package", SensorKind::Power), 10.06},
        {sensorOf("H0AB", "chip-3", "Room", SensorKind::Humidity), 48.5},
        {sensorOf("T9ZZ", "chip-4", "never read"), 1}});
    measure({{"T9ZZ", std::nullopt}});
    start();
    machine.runtime.advance(120);
    source().values.clear();
    source().change({});
    const auto names = [this] {
        std::map<std::string, std::string> found;
        const auto page = HistoryQuestions(daemon->catalogue).series(Value());
        for (const Value& series : page->at("series")) {
            found.emplace(
                series.at("series"), series.at("name").get<std::string>() + series.at("unit").get<std::string>());
        }
        return found;
    };
    const std::map<std::string, std::string> recorded = {
        {"sensors/H0AB", "Room%"}, {"sensors/TC0P", "CPU°C"}, {"sensors/TXPW", "PackageW"}};
    machine.runtime.advance(20);
    EXPECT_EQ(names(), recorded);
    start();
    machine.runtime.advance(20);
    EXPECT_EQ(names(), recorded) << "also after a restart";
    EXPECT_EQ(history({{"series", "sensors/TC0P"}}).at("samples")[2]["values"][0], 40);
    const Value page = history({{"series", "sensors/TXPW"}}, {.uid = 1000, .gid = 1000, .known = true});
    EXPECT_NEAR(page.at("samples")[2]["values"][0].get<double>(), 10.1, 1e-9) << "as coarse as ever";
}

TEST_F(SensorsTest, AnyFigureIsOne)
{
    const std::map<std::string, double> highest = {
        {"T0AA", -1}, {"T0AB", 254}, {"T0AC", -20}, {"T0AD", 0}, {"T0AE", 1.048}};
    for (const auto& [key, value] : highest) {
        source().records.push_back(sensorOf(key, "chip-1", key));
    }
    const auto measureLess = [&](double less) {
        for (const auto& [key, value] : highest) {
            source().values[key] = value - less;
        }
    };
    const auto expectExtremes = [&] {
        std::map<std::string, double> found;
        for (const Value& sensor : list()) {
            found.emplace(sensor["key"], sensor["highest"]);
            EXPECT_NEAR(sensor["highest"].get<double>() - sensor["lowest"].get<double>(), 5, 1e-9) << sensor;
        }
        EXPECT_EQ(found, highest);
    };
    measureLess(0);
    start();
    machine.runtime.advance(40);
    measureLess(5);
    machine.runtime.advance(10);
    expectExtremes();
    machine.runtime.advance(40);
    measureLess(3);
    start();
    machine.runtime.advance(10);
    expectExtremes();
}

TEST_F(SensorsTest, AReadingThatFailsIsAbsentAndTheOthersAreNot)
{
    measure({{"TC0P", 40}, {"TC1P", 50}});
    startWith(R"([{"key":"TC0P"},{"key":"TC1P"}])", 10);
    measure({{"TC0P", std::nullopt}});
    measure({{"TC1P", 51}});
    machine.runtime.advance(4);
    EXPECT_FALSE(sensor("TC0P").hasValue());
    EXPECT_EQ(sensor("TC0P").value(), 40) << "unchanged, not 0";
    EXPECT_EQ(sensor("TC0P").lowestRecordedValue(), 40);
    EXPECT_EQ(sensor("TC1P").value(), 51);
    EXPECT_EQ(list()[0]["value"], nullptr);
    measure({{"TC0P", 40}});
    machine.runtime.advance(4);
    EXPECT_TRUE(sensor("TC0P").hasValue());
}

TEST_F(SensorsTest, LimitsFixOrFollowTheRange)
{
    measure({{"TC0P", 40}, {"TC1P", 40}, {"TC2P", 40}});
    startWith(R"([{"key":"TC0P","low":20,"high":100},{"key":"TC1P"},{"key":"TC2P","low":90,"high":10}])", 3);
    for (const double value : {30.0, 60.0, 40.0}) {
        measure({{"TC0P", value}, {"TC1P", value}, {"TC2P", value}});
        machine.runtime.advance(2);
    }
    EXPECT_EQ(sensor("TC0P").percentage(), 25);
    EXPECT_NEAR(sensor("TC1P").percentage(), 100.0 / 3, 1e-9) << "between 30 and 60";
    EXPECT_EQ(sensor("TC2P").percentage(), 0) << "a range upside down is none";
    const Value sensors = list();
    EXPECT_EQ(sensors[2]["low"], nullptr);
    EXPECT_EQ(sensors[1]["lowest"], 30);
    EXPECT_EQ(sensors[1]["highest"], 60);
}

TEST_F(SensorsTest, ExtremesOutliveTheDaemon)
{
    const auto extremes = [this] {
        return std::vector{sensor("TC0P").lowestRecordedValue(), sensor("TC0P").highestRecordedValue()};
    };
    measure({{"TC0P", 40}});
    startWith(cpu, 5);
    for (const double value : {90.0, 30.0}) {
        measure({{"TC0P", value}});
        machine.runtime.advance(2);
    }
    daemon.reset();
    ASSERT_THAT(rows("select uuid, low, high from sensor_limits"), SizeIs(1));
    EXPECT_EQ(rows("select sql from sqlite_master where name = 'sensor_limits'")[0]["sql"],
        "CREATE TABLE sensor_limits (uuid varchar(100) NOT NULL, low double NOT NULL DEFAULT 0, high double NOT NULL "
        "DEFAULT 0)");

    measure({{"TC0P", 50}});
    startWith(cpu, 4);
    EXPECT_THAT(extremes(), ElementsAre(30, 90));
    daemon.reset();

    start();
    electric(json(cpu));
    daemon.reset(); // before it knows what there is
    EXPECT_EQ(rows("select low, high from sensor_limits"), (std::vector<Dictionary>{{{"low", 30.0}, {"high", 90.0}}}));

    rows("update sensor_limits set low = 0, high = 20");
    rows("delete from recorded_series"); // as a file of others has it
    startWith(cpu, 4);
    EXPECT_THAT(extremes(), ElementsAre(50, 50)) << "0 says that nothing was seen";
}

TEST_F(SensorsTest, WithoutARowTheHighestIsThatOfHistory)
{
    measure({{"TC0P", 70}});
    startWith(cpu, 60);
    daemon.reset();
    rows("delete from sensor_limits");
    measure({{"TC0P", 30}});
    startWith(cpu, 1);
    EXPECT_EQ(sensor("TC0P").highestRecordedValue(), 70);
    EXPECT_EQ(rows("select high from sensor_limits")[0]["high"], 70);
}

TEST_F(SensorsTest, ExtremesThatCannotBeReadAreNotNone)
{
    SQLiteConnection database;
    EXPECT_FALSE(readSensorLimits(database, "TC0P")) << "not open";
    ASSERT_TRUE(database.openInMemory());
    ASSERT_TRUE(database.execute("create table sensor_limits (uuid, low, high)"));
    EXPECT_FALSE(readSensorLimits(database, "TC0P")) << "no row, and nothing to make it from";
    ASSERT_TRUE(database.execute("insert into sensor_limits values ('TC0P', 30, 90)"));
    const auto limits = readSensorLimits(database, std::vector<std::string>{"TC1P", "TC0P"});
    EXPECT_FALSE(limits.at(0));
    EXPECT_EQ(limits.at(1)->high, 90);
    ASSERT_TRUE(database.execute("create table recorded_series as select 'sensors' collector, 'TC1P' uuid"));
    for (const char* prefix : {"hour_", "day_", "week_"}) {
        ASSERT_TRUE(database.execute(std::string("create table ") + prefix + "sensorhistory (uuid, value)"));
    }
    for (const char* when : {"now", "at the next start"}) {
        const auto made = readSensorLimits(database, "TC1P");
        EXPECT_TRUE(made && !made->low && !made->high) << "a lost row of a recorded sensor says nothing " << when;
    }

    // A file that answers late: the reading lost meanwhile is asked for again with the rows of the record.
    measure({{"TC0P", 40}});
    startWith(cpu, 4);
    rows("drop table hour_sensorhistory"); // it is made again
    electric(json(R"([{"key":"XA01","average":["TC0P"]}])"));
    machine.runtime.advance(4);
    EXPECT_TRUE(sensor("TC0P").knowsStoredLimits());
    EXPECT_FALSE(sensor("XA01").knowsStoredLimits());
    machine.runtime.advance(60);
    EXPECT_TRUE(sensor("XA01").knowsStoredLimits());
}

TEST_F(SensorsTest, EightResolutionsAreKeptAndReloaded)
{
    fit({{cpuSensor, 42}});
    start();
    list();
    machine.runtime.advance(62'000); // longer than a period of the coarsest
    daemon.reset();
    for (const char* prefix : {"hour_", "day_", "week_", "month_", "threemonth_", "sixmonth_", "year_"}) {
        const auto values = rows("select distinct value from " + std::string(prefix) + "sensorhistory");
        EXPECT_EQ(values, (std::vector<Dictionary>{{{"value", 42.0}}})) << prefix;
    }
    EXPECT_GT(rows("select count(*) as n from sensorhistory", "sensors-long.db")[0]["n"], 200);
    EXPECT_LE(rows("select count(*) as n from hour_sensorhistory")[0]["n"], 603);
    for (const char* file : {"sensors.db", "sensors-long.db"}) {
        const std::string view = file == std::string("sensors.db") ? "day_sensorhistory_named" : "sensorhistory_named";
        EXPECT_EQ(rows("select distinct name, origin, unit, value from " + view, file),
            (std::vector<Dictionary>{{{"name", "CPU"}, {"origin", "chip-1"}, {"unit", "°C"}, {"value", 42.0}}}));
    }

    measure({{"TC0P", 44}});
    start();
    machine.runtime.advance(14);
    EXPECT_EQ(daemon->made, 1) << "the record goes on by itself on a machine where somebody asked once";
    ASSERT_TRUE(collector().sensorWithKey("TC0P"));
    const SampleRing& hour = sensor("TC0P").samples()->storageForType(StorageIndex::Hour);
    EXPECT_EQ(hour[SlotIndex{0}].values[0], 44);
    EXPECT_EQ(hour[SlotIndex{20}].values[0], 42) << "reloaded";

    const Value page = history({{"series", "sensors/TC0P"}, {"resolution", "day"}});
    EXPECT_GT(page.at("samples").size(), 400U);
    EXPECT_EQ(page.at("unit"), "°C");
}

/// Files as the version before left them, whose names were a table; one of the sensors is known there only.
TEST_F(SensorsTest, NamesOfOlderFilesAreTakenOver)
{
    const auto& folder = machine.context.paths.support;
    std::filesystem::create_directories(folder);
    std::vector<const char*> statements = {
        "CREATE TABLE names (uuid varchar(100) primary key, name varchar, origin varchar, unit varchar)",
        "INSERT INTO names VALUES('TC0P','CPU','chip-1','°C'),('Vabc','5V','chip-2','V')",
        "CREATE TABLE sensorhistory (sample integer, uuid varchar(100), time double, value double, primary key "
        "(sample, "
        "uuid)) without rowid",
        "INSERT INTO sensorhistory VALUES (1, 'Vabc', 1.6e9, 5.0)",
        "CREATE VIEW sensorhistory_named AS SELECT names.name, names.origin, names.unit, rows.* FROM sensorhistory AS "
        "rows LEFT JOIN names ON names.uuid = rows.uuid"};
    const auto fill = [&](const char* file) {
        SQLiteConnection old;
        ASSERT_TRUE(old.open(folder / file, {}));
        for (const char* sql : statements) {
            ASSERT_TRUE(old.execute(sql)) << sql;
        }
    };
    fill("sensors-long.db");
    statements.push_back("CREATE TABLE recorded_series (collector varchar(32), uuid varchar(100), name varchar, unit "
                         "varchar(16), step double, primary key (collector, uuid))");
    statements.push_back("INSERT INTO recorded_series VALUES('sensors','TC0P','CPU','°C',0.0)");
    fill("sensors.db");
    fit({{sensorOf("TC1P", "chip-1", "GPU"), 40}});
    for (int run = 0; run < 2; ++run) {
        start();
        machine.runtime.advance(70);
        std::set<std::string> listed;
        for (const HistorySeries& series : collector().series()) {
            listed.insert(series.key);
        }
        EXPECT_EQ(listed, (std::set<std::string>{"TC0P", "TC1P"})) << "what was recorded, and it alone";
        daemon.reset();
        for (const char* file : {"sensors.db", "sensors-long.db"}) {
            EXPECT_EQ(Value(rows("select * from names order by uuid", file)).dump(),
                R"([{"name":"CPU","origin":"chip-1","unit":"°C","uuid":"TC0P"},)"
                R"({"name":"GPU","origin":"chip-1","unit":"°C","uuid":"TC1P"},)"
                R"({"name":"5V","origin":"chip-2","unit":"V","uuid":"Vabc"}])")
                << file;
            EXPECT_EQ(rows("select type from sqlite_master where name = 'names'", file)[0]["type"], "view") << file;
            EXPECT_EQ(rows("select name from sensorhistory_named where sample = 1", file)[0]["name"], "5V") << file;
        }
    }
}

TEST_F(SensorsTest, WhatClientsAskedForIsRecordedAfterARestart)
{
    measure({{"FNum", 2}});
    measure({{"TC0P", 40}, {"TC1P", 40}, {"F0Ac", 900}, {"F1Ac", 900}, {"VC0C", 4000}, {"IC0C", 4000}});
    source().change({namelessSensor("HID/eACC1"), namelessSensor("HID/AS_EFF_AVG"),
        namelessSensor("F0Ac", "Fan 1", SensorKind::Fan)});
    measure({{"HID/eACC1", 50}, {"HID/AS_EFF_AVG", 50}, {"FNum", 2}});
    startWith(R"([{"key":"TC0P","name":"CPU","low":10,"high":90,"type":0},
        {"key":"XW01","multiply":["VC0C","IC0C"],"type":"watts"},{"key":"XA01","average":["TC0P","","TC1P"]}])",
        0);
    daemon->service.supportedFans(json(R"([{"key":"F1Ac","name":"Left"}])"), root);
    daemon->service.supportedArmSensors(json(R"([{"key":"AS_EFF_AVG","name":"Slow cores","high":110}])"), root);
    machine.runtime.advance(10);
    std::map<std::string, SensorConfiguration> before;
    for (const auto& item : collector().sensors()) {
        before.emplace(*item->key(), item->sensorConfig());
    }
    ASSERT_THAT(before, SizeIs(7)) << "and a fan that was found by itself";
    daemon.reset();
    const auto kept = rows("select * from client_sensors order by uuid");
    EXPECT_THAT(kept, SizeIs(5)) << "what was named";

    rows("update client_sensors set config = '{' where uuid = 'AS_EFF_AVG'");
    start();
    machine.runtime.advance(10);
    EXPECT_EQ(daemon->made, 1);
    for (const auto& [key, configuration] : before) {
        const auto item = collector().sensorWithKey(key);
        ASSERT_TRUE(item) << key;
        EXPECT_TRUE(item->hasValue()) << key;
        if (key != "AS_EFF_AVG") {
            EXPECT_EQ(item->sensorConfig(), configuration) << key;
        }
    }
    EXPECT_EQ(sensor("F1Ac").name(), "Left");
    EXPECT_EQ(sensor("TC0P").low(), 10);
}

TEST_F(SensorsTest, ChipsComeAndGo)
{
    const SensorRecord first = sensorOf("TC0P", "chip-1", "CPU", SensorKind::Temperature, {.critical = 100});
    const SensorRecord second = sensorOf("Vabc", "chip-2", "5V", SensorKind::Voltage, {.low = 4.5, .high = 5.5});
    const SensorRecord disk = sensorOf("Tabc", "chip-3", "Disk", SensorKind::Temperature, {-273.15, 65261.85, 84.75});
    fit({{first, 42}, {second, 5}, {disk, 40}});
    start();
    const Value all = list();
    ASSERT_THAT(keysOf(all), ElementsAre("TC0P", "Vabc", "Tabc"));
    EXPECT_EQ(all[2]["low"], nullptr) << "nobody has set one";
    EXPECT_EQ(all[2]["high"], 84.75) << "limits of none";
    EXPECT_EQ(all[1],
        (Value{{"key", "Vabc"}, {"chip", "chip-2"}, {"name", "5V"}, {"kind", "voltage"}, {"unit", "V"}, {"value", 5.0},
            {"low", 4.5}, {"high", 5.5}, {"fixed", true}, {"critical", nullptr}, {"lowest", 5.0}, {"highest", 5.0},
            {"alarm", nullptr}}));
    EXPECT_EQ(all[0]["critical"], 100.0);

    source().change({second});
    source().values.erase("TC0P");
    machine.runtime.advance(13);
    EXPECT_THAT(keysOf(list()), ElementsAre("Vabc"));
    source().change({second, first});
    measure({{"TC0P", 43}});
    machine.runtime.advance(13);
    EXPECT_THAT(keysOf(list()), ElementsAre("TC0P", "Vabc"));
    EXPECT_EQ(list()[0]["lowest"], 42) << "what was seen of it before it went";

    const auto page = daemon->service.list({{"limit", 1}}, {}, PowerDetail::Fine);
    EXPECT_THAT(keysOf(page->at("sensors")), ElementsAre("TC0P"));
    EXPECT_EQ(page->at("more"), true);
    const auto rest = daemon->service.list({{"after", "TC0P"}}, {}, PowerDetail::Fine);
    EXPECT_THAT(keysOf(rest->at("sensors")), ElementsAre("Vabc"));
    EXPECT_EQ(daemon->service.list({{"after", "gone"}}, {}, PowerDetail::Fine).error().code, ErrorCode::NotFound);
}

TEST_F(SensorsTest, AMachineWithoutSensorsAnswersEmpty)
{
    start();
    EXPECT_EQ(list(), Value::array());
    EXPECT_EQ(electric(json(cpu)), Value::array());
    EXPECT_EQ(ask(json(R"({"key":"PC0C"})")), -1);
    machine.runtime.advance(60);
    EXPECT_FALSE(std::filesystem::exists(machine.context.paths.support / "sensors.db"));

    source().change({cpuSensor});
    measure({{"TC0P", 42}});
    machine.runtime.advance(SensorsStatCollectorMac::lookInterval + 3);
    EXPECT_TRUE(sensor("TC0P").hasValue()) << "the first chip is found without being asked for again";
}

} // namespace
} // namespace meridal::test
