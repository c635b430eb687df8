// SPDX-License-Identifier: Apache-2.0
#include "client/panels/Panels.h"
#include "client/views/MomentState.h"
#include "client/views/OverviewView.h"
#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace meridal {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* machineAnswer =
    R"({"cpu":{"busy":50.0,"user":40.0,"system":9.0,"iowait":1.0,"load1":1.5,"load5":1.0,
    "load15":0.5,"processors":[{"busy":100.0,"number":0},{"busy":0.0,"number":1}]},
    "memory":{"total":8589934592,"used":2147483648,"available":6442450944,"swaptotal":1073741824,"swapused":1048576},
    "pressure":{"cpusome":3.5,"memorysome":0.0,"iosome":12.0},
    "disks":[{"name":"sda","readbytes":0.0,"writtenbytes":0.0},{"name":"nvme0n1","readbytes":4096.0,"writtenbytes":1048576.0,"busy":5.0}],
    "fileSystems":[{"mount":"/","used":10,"available":90},{"mount":"/home\u001b[2J","used":96,"available":4}],
    "network":{"lo":{"received":0.0,"sent":0.0},"eth0":{"received":2048.0,"sent":1024.0}},"time":1700003725.0})";

OverviewFigures knownFigures()
{
    OverviewFigures figures{.machine = json(machineAnswer),
        .sensors = json(R"({"sensors":[{"name":"Core 0","kind":"temperature","unit":"°C","value":61.5},
            {"name":"disk","kind":"temperature","unit":"°C","value":71.5},
            {"name":"rear","kind":"fan","unit":"rpm","value":100.0,"alarm":"low"}]})"),
        .battery = json(R"({"batteries":[{"percentage":18.0,"state":2,"time":95}]})"),
        .applications = {}};
    ApplicationRates rates;
    for (const int time : {1700000000, 1700000002}) {
        rates.take({{"time", time}, {"since", 1600000000},
            {"groups",
                {{{"group", "exe:a"}, {"name", "a"}, {"kind", "application"}, {"cpuUser", time - 1700000000.0},
                    {"cpuSystem", 0.0}}}}});
    }
    figures.applications = rates.ranked(ApplicationFigure::Cpu);
    return figures;
}

TEST(Overview, EverythingAtAGlance)
{
    EXPECT_THAT(textOf(overviewLines(knownFigures(), 21, 80)),
        testing::StartsWith("CPU      [██████▌      ] 50.0 %  user 40  system 9  wait 1  load 1.50 1.00 0.50\n"
                            "           0 █████ 100 %    1         0 %\n"
                            "Memory   [███▎         ] 25.0 %  2.00 GiB of 8.00 GiB, 6.00 GiB available\n"
                            "Swap     [             ]  0.1 %  1.00 MiB of 1.00 GiB\n"
                            "Waiting  for CPU 3.5 %   memory 0.0 %   disks 12.0 %\n"
                            "Disks    nvme0n1        read 4.00 KiB/s written 1.00 MiB/s 5.0 % busy\n"
                            "         sda            read 0 B/s      written 0 B/s\n"
                            "Fullest  [████████████▌] 96.0 %  /home?[2J, 4 B left\n"
                            "Network  eth0           down 2.00 KiB/s up 1.00 KiB/s\n"
                            "Sensors  rear 100 rpm LOW   disk 71.5 °C   Core 0 61.5 °C\n"
                            "Battery  18 %, on battery, 1 h 35 min left\n"
                            "\n"
                            "APPLICATION"));
}

TEST(Overview, GivesWayWhereThereIsLittleRoom)
{
    const Lines lines = overviewLines(knownFigures(), 7, 40);
    EXPECT_EQ(lines.size(), 7U);
    const std::string text = textOf(lines);
    for (const char* kept : {"CPU ", "Memory ", "Network  eth0", "APPLICATION", "\na "}) {
        EXPECT_THAT(text, HasSubstr(kept));
    }
    EXPECT_THAT(text, Not(HasSubstr("Fullest")));
    Value many = json(machineAnswer);
    for (int number = 2; number < 128; ++number) {
        many["cpu"]["processors"].push_back({{"number", number}, {"busy", 50.0}});
    }
    EXPECT_THAT(textOf(overviewLines({.machine = many, .sensors = {}, .battery = {}, .applications = {}}, 21, 80)),
        HasSubstr("\n         █▁▅▅▅▅"));
    EXPECT_EQ(overviewLines({}, 21, 80), Lines{});
    EXPECT_NO_THROW(overviewLines({.machine = json(R"({"cpu":[],"memory":{"total":0},"disks":{},"network":[1]})"),
                                      .sensors = Value::array(),
                                      .battery = 1,
                                      .applications = {}},
        0, 0));
}

TEST(OverviewPanel, KeepsWhatDidNotChange)
{
    const auto panel = makeOverviewPanel();
    const PanelView view{.rows = 21};
    EXPECT_TRUE(panel->lines(view).empty());
    panel->take({.name = "machine", .result = json(machineAnswer)});
    panel->take({.name = "machine",
        .result = json(R"({"pressure":null,"network":{"eth0":{"received":0.0,"sent":9.0}}})"),
        .isChange = true});
    panel->take({.name = "sensors", .result = unexpected(ErrorCode::NotFound, "no such method")});
    const std::string text = textOf(panel->lines(view));
    EXPECT_THAT(text, HasSubstr("Memory "));
    EXPECT_THAT(text, HasSubstr("up 9 B/s"));
    EXPECT_THAT(text, Not(HasSubstr("Waiting")));
}

TEST(Overview, AMomentIsShownLikeThePresent)
{
    const Value moment = json(R"({"time":1700000000,"cpu":{"busy":50.0,"user":40.0,"system":10.0,"iowait":0.0},
        "load":{"load1":1.5,"load5":1.0,"load15":0.5},"memory":{"used":600,"available":400},
        "disks":[{"disk":"sda","busy":5.0,"readbytes":2048.0,"writtenbytes":0.0}],
        "network":[{"interface":"eth0","rates":{"received":1024.0,"sent":512.0}}],
        "temperatures":[{"series":"sensors/T1","name":"Core 0","unit":"°C","value":61.5}],
        "battery":[{"key":"B","source":0,"since":1600000000}],"others":[{"series":"battery/charge","value":18.0}],
        "applicationsFrom":1699999980,"applicationsUntil":1700000040,
        "applications":[{"name":"b","kind":"application","cpuUser":6.0,"cpuSystem":0.0,"memory":2048},
            {"name":"a","kind":"application","cpuUser":30.0,"cpuSystem":0.0,"memory":1024}],
        "processes":[{"pid":7,"name":"x","cpu":30.0,"memory":1024}]})");
    const std::string text = textOf(overviewLines({.machine = machineOfMoment(moment),
                                                      .sensors = {{"sensors", sensorsOfMoment(moment, Value())}},
                                                      .battery = batteryOfMoment(moment),
                                                      .applications = ratesOfMoment(moment, ApplicationFigure::Cpu)},
        21, 80));
    for (const char* const words :
        {"50.0 %", "1.50 1.00 0.50", "600 B", "sda", "eth0", "1.00 KiB/s", "61.5 °C", "18 %, on battery"}) {
        EXPECT_THAT(text, HasSubstr(words));
    }
    EXPECT_LT(text.find("a   "), text.find("b   ")) << text;
    EXPECT_EQ(
        processesOfMoment(moment).at("processes"), json(R"([{"pid":7,"name":"x","cpu":50.0,"footprint":1024.0}])"));
    for (const char* const any : {"null", "[]", R"({"cpu":1,"disks":[1],"applications":[1],"processes":[1]})"}) {
        EXPECT_NO_THROW(machineOfMoment(json(any)));
        EXPECT_NO_THROW(ratesOfMoment(json(any), ApplicationFigure::Cpu));
        EXPECT_NO_THROW(processesOfMoment(json(any)));
    }
}

} // namespace
} // namespace meridal
