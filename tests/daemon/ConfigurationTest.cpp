// SPDX-License-Identifier: Apache-2.0
#include "daemon/Configuration.h"
#include "base/Log.h"
#include "base/Value.h"
#include "daemon/ConfigurationService.h"
#include "daemon/MeridalHistory.h"
#include "tests/daemon/DaemonFixture.h"
#include "tests/support/SMARTPageBuilder.h"
#include "tests/support/TemporaryTree.h"

#include <gmock/gmock.h>

#include <set>

namespace meridal::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr double day = Configuration::day;

TEST(ConfigurationTest, EachLineCountsOrIsNamed)
{
    struct Case {
        const char* text;
        std::size_t line; ///< of the only warning; 0: none
        const char* says;
        Configuration expected;
    };
    constexpr Configuration::Keep all = keepEverything;
    const Case cases[] = {
        {"", 0, "", {}},
        {"\xEF\xBB\xBF# x\r\n[record]\r\nsensors=no\r\n\r\n", 0, "", {.record = {.sensors = false}}},
        {"[ Record ]\n Disks = OFF # spin\n;machine = no\nbattery\t=\tFalse ;", 0, "",
            {.record = {.disks = false, .battery = false}}},
        {"[record]\nmachine = no\nmachine = yes\napplications=0", 0, "", {.record = {.applications = false}}},
        {"[record]\nmachine = no\nmachine = nope", 3, R"(machine: "nope" is neither yes nor no; it stays no)",
            {.record = {.machine = false}}},
        {"[record]\nsensors =", 2, "sensors: no value is neither", {}},
        {"[record]\nsensors", 2, R"("sensors" is neither [section] nor key = value)", {}},
        {"[record]\n\nsensor = no", 3, R"(no key "sensor" in [record]; did you mean "sensors"?)", {}},
        {"[record]\nzzz = no", 2, R"(no key "zzz" in [record])", {}},
        {"[record]\ncapture = no", 2, R"("capture" belongs below [traffic])", {}},
        {"disks = no", 1, R"("disks" belongs below [record])", {}},
        {"[recrod]\ndisks = no\nnonsense = 1", 1, R"(no section "[recrod]"; did you mean "record"?)", {}},
        {"[traffic\nsource = bpf", 1, R"(no section "[traffic")", {}},
        {"[traffic]\nsource = PCAP\ncapture = no\n[disks]\nread-hidden = on", 0, "",
            {.trafficSource = "pcap", .capture = false, .readHiddenDisks = true}},
        {"[traffic]\nsource = proc", 2, "is none of auto, bpf, pcap, sockets; it stays auto", {}},
        {"[processes]\nsource = proc\ninterval = 1 min", 0, "", {.processSource = "proc", .passInterval = 60}},
        {"[processes]\ninterval = 20s\ninterval = auto", 0, "", {}},
        {"[processes]\ninterval = 20s\ninterval = 1s", 3, "neither auto nor a time from 2 s to 300 s",
            {.passInterval = 20}},
        {"[keep]\nlong-term = 2 weeks\napplication-minutes = 1h\napplication-days=10y", 0, "",
            {.keep = {.applicationMinutes = 3600, .applicationDays = 3652.5 * day, .longTerm = 14 * day}}},
        {"[check]\ndisk-wear-warning = 80%\nDISK-WEAR-CRITICAL = 95\ndisk-temperature-warning = 50 °C\n"
         "disk-temperature-critical = 60\ndisk-temperature-critical = auto\nups-charge-critical = 12.5",
            0, "",
            {.check = {.diskWearWarning = 80,
                 .diskWearCritical = 95,
                 .diskTemperatureWarning = 50,
                 .upsChargeCritical = 12.5}}},
        {"[check]\nbattery-health-warning = 101", 2, "is no figure from 0 to 100 %; it stays as it was", {}},
        {"[check]\ndisk-wear-warning = nan", 2, "is no figure from 1 to 1000 %", {}},
        {"[check]\nsensor = TBCC 80 95\nsensor=Core 0 80 -\nsensor = Front Fan\t<500  <300 # slow\nsensor = TBCC <5 "
         "<-5.5\n"
         "sensor = TBCC >70 >75\nignore = WX1#2\nignore = Board\nignore = Board",
            0, "",
            {.check = {.sensors = {{"TBCC", 70, 75, 5, -5.5}, {"Core 0", 80}, {"Front Fan", {}, {}, 500, 300}},
                 .ignore = {"WX1#2", "Board"}}}},
        {"[check]\nsensor = A 1 2\nignore = B\nsensor =\nignore =", 0, "", {}},
        {"[check]\nsensor = CPU 80", 2, R"("CPU 80" is no sensor with two limits)", {}},
        {"[check]\nsensor = 80 95", 2, "is no sensor with two limits", {}},
        {"[check]\nsensor = CPU 95 80", 2, "would be critical before there is a warning", {}},
        {"[check]\nsensor = CPU <5 >80", 2, "has limits on both sides", {}},
        {"[check]\nsensor = CPU - -", 2, "has no limit; ignore = SENSOR", {}},
        {"[alerts]\ncommand = /opt/Tell it\nmail = Root@example.org\ndesktop = yes\nafter = 3\nevery = 5 min", 0, "",
            {.alerts = {.command = "/opt/Tell it",
                 .mail = "Root@example.org",
                 .desktop = true,
                 .after = 3,
                 .every = 300}}},
        {"[alerts]\ncommand = logger", 2, R"("logger" is not the path of a program from / on)", {}},
        {"[alerts]\nmail = -oQ/tmp root", 2, "is not a mail address", {}},
        {"[alerts]\nevery = 0 s", 2, "is no time from 1 s to 1 day", {}},
        // Whatever may have been meant to be kept is kept
        {"[keep]\nlong-term = 2O y\napplication-minutes = 1h", 2, "\"2O y\" is no time", {.keep = all}},
        {"[keep]\nlong-term = 30", 2, "nothing goes for its age until this is mended", {.keep = all}},
        {"[keep]\nlong-term = 5 min", 2, "from 1 hour to 100 years", {.keep = all}},
        {"[keep]\nlong-term = 99999999999 y", 2, "is no time", {.keep = all}},
        {"[keep]\nlongterm = 20 y", 2, "did you mean \"long-term\"?; nothing goes", {.keep = all}},
        {"long-term = 20 y", 1, "belongs below [keep]; nothing goes", {.keep = all}},
        {"[kep]\nlongterm = 20 y", 1, "did you mean \"keep\"?", {.keep = all}},
    };
    for (const auto& [text, line, says, expected] : cases) {
        SCOPED_TRACE(text);
        const auto [configuration, warnings] = parseConfiguration({{"x.conf", text}});
        EXPECT_EQ(configuration, expected);
        ASSERT_EQ(warnings.size(), line > 0 ? 1U : 0U) << (warnings.empty() ? "" : lineOf(warnings.back()));
        if (line > 0) {
            EXPECT_THAT(lineOf(warnings[0]), HasSubstr("x.conf:" + std::to_string(line) + ": "));
            EXPECT_THAT(warnings[0].text, HasSubstr(says));
        }
    }
    EXPECT_EQ(parseConfiguration({{"x.conf", "[retention]\nlong-term = 20 y"}}).configuration.keep, all);
    std::string many = "[record]\n";
    for (int bad = 0; bad < 1000; ++bad) {
        many += std::string("\x1b[2J = \x01") + std::string(500, 'x') + "\n";
    }
    const auto warnings = parseConfiguration({{"x.conf", many}}).warnings;
    ASSERT_EQ(warnings.size(), mostConfigurationWarnings + 1);
    EXPECT_EQ(warnings.back().text, "and 950 bad lines more");
    EXPECT_LT(warnings[0].text.size(), 200U);
    EXPECT_EQ(warnings[0].text.find('\x1b'), std::string::npos);
}

TEST(ConfigurationTest, FilesAreReadInOrderAndTheExampleSaysWhatHolds)
{
    const TemporaryTree tree{{"meridald.conf", "[record]\nsensors = no\ndisks = no\n"},
        {"meridald.conf.d/20-b.conf", "[record]\ndisks = no\n"},
        {"meridald.conf.d/10-a.conf", "[record]\ndisks = on\n"}, {"meridald.conf.d/.hidden.conf", "nonsense"},
        {"meridald.conf.d/c.conf.bak", "nonsense"}, {"meridald.conf.d/30-folder.conf/x", ""},
        {"other", "[record]\nmachine = no\n"}};
    ConfigurationFiles files({.folder = tree.root()});
    EXPECT_THAT(files.files(),
        ElementsAre(tree.path("meridald.conf"), tree.path("meridald.conf.d/10-a.conf"),
            tree.path("meridald.conf.d/20-b.conf")));
    ASSERT_EQ(files.warnings().size(), 1U);
    EXPECT_EQ(
        lineOf(files.warnings()[0]), tree.path("meridald.conf.d/30-folder.conf") + ": cannot be read: is no file");
    EXPECT_EQ(files.current(), (Configuration{.record = {.sensors = false, .disks = false}, .keep = keepEverything}))
        << "who knows how long that folder was to keep things";
    tree.remove("meridald.conf.d");
    tree.write("meridald.conf", "[processes]\nsource = proc\ninterval = 5s\n[traffic]\ncapture = no\n");
    const Configuration before = files.current();
    files.read();
    EXPECT_THAT(files.warnings(), IsEmpty());
    EXPECT_EQ(files.current(), (Configuration{.processSource = "proc", .passInterval = 5, .capture = false}));
    EXPECT_THAT(
        settingsForNextStart(before, files.current()), ElementsAre("source in [processes]", "capture in [traffic]"));

    EXPECT_FALSE(ConfigurationFiles({.folder = tree.root(), .file = tree.path("other")}).current().record.machine);
    EXPECT_THAT(ConfigurationFiles({.folder = tree.path("nowhere")}).warnings(), IsEmpty()) << "none is needed";
    const ConfigurationFiles missing({.folder = {}, .file = tree.path("missing")});
    ASSERT_EQ(missing.warnings().size(), 1U);
    EXPECT_THAT(missing.warnings()[0].text, HasSubstr("No such file"));

    for (const bool isBare : {true, false}) { // as it is installed, and with every line made to count
        const TemporaryTree example{{"example.conf", ""}};
        std::ifstream source(std::string(MERIDAL_SOURCE_DIR) + "/packaging/meridald.conf");
        std::string text;
        for (std::string line; std::getline(source, line);) {
            const bool isSetting = line.size() > 1 && line[0] == '#' && line[1] != ' ';
            text += (isSetting && !isBare ? line.substr(1) : line) + "\n";
        }
        const auto [configuration, warnings] = parseConfiguration({{"example.conf", text}});
        EXPECT_THAT(warnings, IsEmpty());
        Configuration expected;
        expected.keep.applicationDays = isBare ? expected.keep.applicationDays : 5 * 365.25 * day;
        EXPECT_EQ(configuration, expected);
    }
}

/// A whole daemon beside a sensor, a disk, a battery and a busy processor, with a configuration file.
class RecordingTest : public DaemonTest {
protected:
    void begin(const std::string& text)
    {
        folder.write("meridald.conf", text);
        files = std::make_unique<ConfigurationFiles>(ConfigurationPlace{.folder = folder.root()});
        machine.machine().service = "FakeSMC";
        machine.sensors().values["TC0P"] = 40;
        machine.sensors().change({sensorOf("TC0P", "chip", "CPU")});
        disk->record = {.path = "root/pci/nvme0", .kind = SMARTKind::NVMe, .model = "FAST 1000", .serial = "S5GX"};
        disk->record.blockDevice = "nvme0";
        disk->health = healthPage({});
        disk->controller = controllerPage("S5GX", "FAST 1000", "2B2Q");
        machine.disks().plugged.push_back(disk);
        machine.counters().processor = ProcessorReading{.load1Minute = 1.5};
        machine.counters().ram = MemoryReading{};
        machine.counters().ram->outOfMemoryKills = 1;
        machine.counters().kills.emplace_back().name = "hungry";
        machine.powerSources().change({{.name = "Pack", .supply = PowerSupplyState::Battery}});
        service = std::make_unique<ConfigurationService>(machine.context, *files, house.services);
        service->apply();
        start();
        house.figures.addTo(methods, house.catalogue);
        house.sensors.addTo(methods);
        house.battery.addTo(methods, house.catalogue);
    }
    void reload(const std::string& text)
    {
        folder.write("meridald.conf", text);
        service->reload();
        machine.runtime.runDue();
    }
    /// The files of the record, beside those of boots and traffic.
    std::set<std::string> recorded() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(machine.context.paths.support)) {
            const std::string name = entry.path().filename();
            if (name.ends_with(".db") && !name.starts_with("uptime") && !name.starts_with("bandwidth")) {
                names.insert(name);
            }
        }
        return names;
    }
    double rows(const std::string& file, const std::string& table)
    {
        double count = 0;
        house.databases.databaseWithPath(machine.context.paths.support / file)
            ->queryDatabase([&](SQLiteConnection& database) {
                static_cast<void>(database.forEachRow("SELECT count(*) FROM " + table, {},
                    [&](std::span<const SqlValue> row) { count = sqlNumber(row[0]); }));
            });
        return count;
    }
    Value ask(const std::string& method)
    {
        Value answer;
        methods.call(method, Value(), Peer{},
            [&answer](const Result<Value>& result) { answer = result ? *result : Value(result.error().message); });
        machine.runtime.advance(10);
        return answer;
    }

    TemporaryTree folder;
    std::shared_ptr<FakeDisk> disk = std::make_shared<FakeDisk>();
    MeridalHistory methods{machine.runtime.mainQueue()};
    std::unique_ptr<ConfigurationFiles> files;
    std::unique_ptr<ConfigurationService> service;
};

constexpr const char* nothing = "[record]\nsensors = no\ndisks = no\nmachine = no\nbattery = no\napplications = no\n";

TEST_F(RecordingTest, EverythingIsRecordedByDefaultFromTheFirstMinutes)
{
    begin("");
    machine.runtime.advance(SMARTStatCollector::firstRecord + 40);
    EXPECT_GE(rows("disk-history.db", "hour_diskhistory"), 1);
    EXPECT_GE(rows("sensors.db", "hour_sensorhistory"), 10);
    EXPECT_GE(rows("machine-history.db", "hour_processorhistory WHERE empty = 0"), 10);
    EXPECT_GE(rows("battery-history.db", "battery_sources"), 1);
    EXPECT_GE(rows("applications.db", "application_minutes"), 1);

    reload("[record]\napplications = no\n");
    machine.runtime.advance(3 * 3600);
    reload("");
    const double before = rows("applications.db", "application_minutes");
    machine.runtime.advance(200);
    EXPECT_GT(rows("applications.db", "application_minutes"), before);
    EXPECT_EQ(rows("applications.db", "application_minutes WHERE seconds > 120"), 0) << "nobody's time is no minute's";
}

TEST_F(RecordingTest, WhatIsOffMakesNoFileAndReadsForWhoAsksOnly)
{
    begin(nothing);
    const int counted = machine.counters().reads;
    const int sensed = static_cast<int>(machine.sensors().total);
    machine.runtime.advance(3 * 3600);
    EXPECT_THAT(recorded(), IsEmpty());
    EXPECT_EQ(disk->questions(), 0);
    EXPECT_EQ(machine.counters().reads, counted);
    EXPECT_EQ(static_cast<int>(machine.sensors().total), sensed);

    const Value state = ask("machine.state");
    EXPECT_EQ(state["cpu"]["load1"], 1.5);
    EXPECT_EQ(state["memoryKills"][0]["name"], "hungry");
    EXPECT_EQ(ask("sensors.list")["sensors"][0]["value"], 40.0);
    EXPECT_EQ(ask("battery.state")["batteries"].size(), 1U);
    EXPECT_EQ(ask("battery.history")["rows"], Value::array());
    Client client = connect();
    call(client, &DaemonProtocol::startSMARTTemps);
    machine.runtime.advance(40);
    EXPECT_GT(disk->questions(), 0);
    call(client, &DaemonProtocol::stopSMARTTemps);
    disconnect(client);
    machine.runtime.advance(300);
    const int asked = disk->questions() + machine.counters().reads + static_cast<int>(machine.sensors().total);
    machine.runtime.advance(3600);
    EXPECT_EQ(disk->questions() + machine.counters().reads + static_cast<int>(machine.sensors().total), asked)
        << "at rest again";
    EXPECT_THAT(recorded(), IsEmpty());
}

TEST_F(RecordingTest, ReadAgainItIsAsIfStartedAgain)
{
    std::vector<std::string> log;
    machine.log.addListener([&](LogLevel, std::string_view line) { log.emplace_back(line); });
    begin(std::string(nothing) + "[processes]\nsource = prok\n");
    EXPECT_THAT(service->describe()["warnings"][0]["text"].get<std::string>(), HasSubstr("prok"));
    EXPECT_EQ(service->describe()["warnings"][0]["line"], 8);
    EXPECT_EQ(service->describe()["files"], Value({folder.path("meridald.conf")}));
    machine.runtime.advance(100);
    reload("[keep]\nlong-term = 20 years\n[traffic]\nsource = sockets\n");
    EXPECT_EQ(machine.context.longTermAge, 20 * 365.25 * day);
    machine.runtime.advance(130);
    const double sensed = rows("sensors.db", "hour_sensorhistory");
    const double counted = rows("machine-history.db", "hour_processorhistory WHERE empty = 0");
    EXPECT_GE(sensed, 10);
    EXPECT_GE(counted, 10);
    EXPECT_GE(rows("disk-history.db", "hour_diskhistory"), 1);
    EXPECT_GE(rows("battery-history.db", "battery_sources"), 1);
    reload(nothing);
    EXPECT_EQ(machine.context.longTermAge, 3653 * day) << "what no line says holds no longer";
    machine.runtime.advance(600);
    EXPECT_LE(rows("sensors.db", "hour_sensorhistory"), sensed + 6) << "what waited was written, and no more came";
    EXPECT_LE(rows("machine-history.db", "hour_processorhistory WHERE empty = 0"), counted + 6);
    reload("");
    machine.runtime.advance(130);
    EXPECT_GE(rows("sensors.db", "hour_sensorhistory"), sensed + 10);
    EXPECT_GE(rows("machine-history.db", "hour_processorhistory WHERE empty = 0"), counted + 10);
    machine.log.flush();
    const std::string all = testing::PrintToString(log);
    EXPECT_THAT(all, HasSubstr("meridald.conf:8: source: \\\"prok\\\" is none of"));
    EXPECT_THAT(all, HasSubstr("source in [traffic] was changed, which takes effect at the next start"));
}

} // namespace
} // namespace meridal::test
