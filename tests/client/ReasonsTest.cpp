// SPDX-License-Identifier: Apache-2.0
#include "client/views/Reasons.h"
#include "client/commands/EvidenceQuery.h"
#include "client/views/AtView.h"
#include "client/views/ReasonsView.h"
#include "tests/client/ViewText.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace meridal {
namespace {

constexpr double noon = 1'795'262'400; // s since 1970
constexpr double GiB = 1024.0 * 1024 * 1024;

/// A figure that stood at `low` and has been at `high` for so many seconds, every six seconds of an hour.
Course courseOf(double low, double high, double lately)
{
    Course course;
    for (double time = noon - 3600; time <= noon; time += 6) {
        course.points.emplace_back(time, time > noon - lately ? high : low);
    }
    return course;
}

Value machineAtRest()
{
    return {
        {"cpu", {{"busy", 6.54}, {"iowait", 0.1}, {"steal", 0.0}, {"processors", {{{"busy", 7.0}}, {{"busy", 6.0}}}}}},
        {"memory", {{"used", 4 * GiB}, {"available", 12 * GiB}, {"swapin", 0.0}}},
        {"pressure", {{"cpusome", 0.5}, {"memorysome", 0.0}, {"iosome", 0.2}}},
        {"disks", {{{"name", "sda"}, {"busy", 2.0}, {"reads", 1.0}, {"readbytes", 4096.0}, {"writtenbytes", 0.0}}}}};
}

Evidence atRest()
{
    Evidence evidence;
    evidence.time = noon;
    evidence.machine = machineAtRest();
    evidence.sensors = {{{"key", "T"}, {"name", "Package"}, {"kind", "temperature"}, {"value", 52.0},
                            {"critical", 100.0}, {"fixed", true}, {"high", 90.0}},
        {{"key", "F"}, {"name", "Fan"}, {"kind", "fan"}, {"value", 1200.0}, {"highest", 4800.0}}};
    evidence.interfaces = {{{"interface", "lo"}, {"hardware", "Loopback"}, {"downloadRate", 9e9}, {"uploadRate", 9e9}},
        {{"interface", "wlan0"}, {"hardware", "AirPort"}, {"downloadRate", 2048.0}, {"uploadRate", 0.0}}};
    evidence.battery = {{"primary", "B"},
        {"batteries", {{{"key", "B"}, {"percentage", 80.0}, {"state", 1}, {"source", 1}, {"power", 20.0}}}}};
    evidence.memory = {{"firefox", 3 * GiB}, {"java", GiB}, {"sh", 1e6}};
    return evidence;
}

std::string told(Complaint complaint, const Evidence& evidence)
{
    return textOf(verdictLines(evidence, verdictOf(complaint, evidence)));
}

TEST(Reasons, OfAMachineAtRestNothingStandsOut)
{
    struct Case {
        Complaint complaint;
        const char* words;
    };
    const Evidence evidence = atRest();
    for (const Case& one :
        {Case{Complaint::Slow,
             "Nothing stands out.\nThe processors are 6.5 % busy, 25 % of the memory is used, and no disk is "
             "busier than 2.0 %.\n"},
            Case{Complaint::Hot,
                "Nothing stands out.\nThe nearest to its limit is Package with 52 °C, 48 °C below its limit of 100 "
                "°C.\n"},
            Case{Complaint::Loud, "Nothing stands out.\nFan turns at 1200 rpm.\n"},
            Case{Complaint::Draining, "Nothing stands out.\nThe battery is not drained; it is at 80 %.\n"},
            Case{Complaint::BusyDisk, "Nothing stands out.\nsda is 2.0 % busy: 4.00 KiB/s read and 0 B/s written.\n"},
            Case{Complaint::BusyNetwork,
                "Nothing stands out.\nThe busiest interface is wlan0 with 2.00 KiB/s received and 0 B/s sent.\n"},
            Case{Complaint::Memory,
                "Nothing stands out.\n4.00 GiB of 16.0 GiB are used (25 %), 12.0 GiB are available. Most is held by "
                "firefox "
                "(3.00 GiB) and java (1.00 GiB).\n"}}) {
        EXPECT_EQ(told(one.complaint, evidence), one.words);
    }
}

TEST(Reasons, ABusyMachineNamesWhoKeepsItSoAndForHowLong)
{
    Evidence evidence = atRest();
    evidence.machine["cpu"]["busy"] = 97.6;
    evidence.machine["pressure"]["cpusome"] = 45.2;
    evidence.cpu = {{"make", 510}, {"cc1plus", 120}, {"firefox", 20}};
    evidence.courses["processors.busy"] = courseOf(5, 97, 720);
    evidence.recent = {{"make", 700}, {"cc1plus", 280}, {"sh", 20}};
    evidence.recentSpan = 300;
    EXPECT_EQ(told(Complaint::Slow, evidence),
        "The processors are 98 % busy, and programs wait for them 45 % of the time, for 12 min. Most of that is used "
        "by make "
        "(5.1 cores) and cc1plus (1.2 cores).\n"
        "Over the last 5 min the processor time of programs went: 70 % make, 28 % cc1plus.\n");
    evidence.courses["processors.busy"] = courseOf(97, 97, 0);
    evidence.isNow = false;
    EXPECT_NE(told(Complaint::Slow, evidence)
                  .find("were 98 % busy, and programs waited for them 45 % of the time, for at "
                        "least 1 h"),
        std::string::npos);
    const Value json = verdictValue("slow", evidence, verdictOf(Complaint::Slow, evidence));
    EXPECT_EQ(json["standsOut"], true);
    EXPECT_EQ(json["causes"][0]["since"], noon - 3606);
}

TEST(Reasons, EachThingThatSlowsAMachineIsFound)
{
    struct Case {
        const char* change;
        const char* words;
    };
    const Case cases[] = {
        Case{R"({"cpu":{"busy":52.0,"processors":[{"busy":100.0},{"busy":4.0}]}})",
            "make keeps one of the 2 processors busy all the time."},
        Case{R"({"pressure":{"iosome":34.0},"disks":[{"name":"sda","busy":97.0,"writes":200.0,"writetime":48.0,
                 "queue":12.0,"writtenbytes":220200960.0}]})",
            "Programs wait for disks 34 % of the time. sda is 97 % busy, 48 ms a request, 12 requests under way at "
            "a time: 0 "
            "B/s read and 210 MiB/s written."},
        Case{R"({"pressure":{"iosome":null},"cpu":{"iowait":40.0}})",
            "The processors spend 40 % of their time waiting for disks."},
        Case{R"({"pressure":{"memorysome":18.0},"memory":{"swapin":12582912.0}})",
            "Memory is short: programs wait for it 18 % of the time. 12.0 MiB a second come back from swap"},
        Case{R"({"cpu":{"steal":23.0}})", "The host gives 23 % of the processors' time to others"},
        Case{R"({"maximumFrequency":4200000000,"cpu":{"processors":[{"busy":99.0,"frequency":1200000000}]}})",
            "Busy processors run at 1.2 of 4.2 GHz"},
    };
    for (const Case& one : cases) {
        Evidence evidence = atRest();
        evidence.cpu = {{"make", &one == &cases[0] ? 100.0 : 60.0}};
        evidence.machine.merge_patch(parseUntrusted(one.change).value());
        EXPECT_EQ(told(Complaint::Slow, evidence).find(one.words), 0U) << told(Complaint::Slow, evidence);
    }
}

TEST(Reasons, HeatAndNoiseComeWithWhatTheyComeFrom)
{
    Evidence evidence = atRest();
    evidence.sensors[0]["value"] = 96.0;
    evidence.sensors[1]["value"] = 3200.0;
    evidence.courses["sensors/T.value"] = courseOf(50, 96, 480);
    evidence.courses["sensors/F.value"] = courseOf(1200, 3200, 480);
    EXPECT_EQ(told(Complaint::Hot, evidence),
        "Package is at 96 °C, 4 °C below its limit of 100 °C; 50 °C is usual for it, for 8 min.\n"
        "Programs do not explain it: the processors are only 6.5 % busy.\n"
        "Fan turns at 3200 rpm.\n");
    evidence.machine["cpu"]["busy"] = 92.0;
    evidence.cpu = {{"make", 630}};
    EXPECT_EQ(told(Complaint::Loud, evidence),
        "Fan turns at 3200 rpm; 1200 rpm are usual for it, 4800 rpm the most ever seen or allowed, for 8 min.\n"
        "The hottest is Package with 96 °C, 4 °C below its limit of 100 °C.\n"
        "The processors are 92 % busy, mostly with make (6.3 cores).\n");
    evidence.sensors[1]["value"] = 0.0;
    EXPECT_NE(told(Complaint::Hot, evidence).find("The fans stand still."), std::string::npos);
    evidence.sensors = Value::array();
    EXPECT_EQ(told(Complaint::Loud, evidence),
        "That cannot be said.\nNot known: how fast the fans turn (none tells its speed).\n");
}

TEST(Reasons, ABatteryTellsItsWattsAndWhoTakesThem)
{
    Evidence evidence = atRest();
    evidence.battery["batteries"][0].update(
        {{"state", 2}, {"source", 0}, {"power", -18.4}, {"time", 95}, {"percentage", 43.0}});
    evidence.energy = {{"firefox", 60}, {"make", 20}, {"sh", 1}};
    EXPECT_EQ(told(Complaint::Draining, evidence),
        "The battery gives 18.4 W. At 43 % it will be empty in 1 h 35 min.\n"
        "Of the energy that programs take, most goes to firefox (74 %) and make (25 %).\n"
        "Not known: how many watts are usual.\n");
    evidence.courses["battery/power.value/day"] = courseOf(-9, -18, 60);
    EXPECT_EQ(told(Complaint::Draining, evidence).find("The battery gives 18.4 W; 9.0 W are usual. At 43 %"), 0U);
    evidence.energy = {{"sh", 0.5}};
    EXPECT_NE(told(Complaint::Draining, evidence).find("Programs take next to nothing"), std::string::npos);
    evidence.battery = Value::object();
    EXPECT_EQ(told(Complaint::Draining, evidence).find("That cannot be said.\nNot known: the charge"), 0U);
}

TEST(Reasons, DisksNetworksAndMemoryNameTheirUsers)
{
    Evidence evidence = atRest();
    evidence.machine["disks"][0].update({{"busy", 97.0}, {"writtenbytes", 220'200'960.0}, {"queue", 3.0}});
    evidence.courses["busy/sda.busy"] = courseOf(1, 97, 60);
    evidence.writing = {{"dd", 220'200'960.0}};
    EXPECT_EQ(told(Complaint::BusyDisk, evidence),
        "sda is 97 % busy, 3 requests under way at a time: 4.00 KiB/s read and 210 MiB/s written, for 1 min.\n"
        "Programs wait for disks 0.2 % of the time.\n"
        "Most is written by dd (210 MiB/s).\n");
    evidence.writing.clear();
    EXPECT_NE(
        told(Complaint::BusyDisk, evidence).find("Programs account for next to nothing of it"), std::string::npos);

    evidence.interfaces[1]["downloadRate"] = 9.75e6;
    evidence.receiving = {{"curl", 9.7e6}};
    EXPECT_EQ(told(Complaint::BusyNetwork, evidence),
        "wlan0 receives 9.30 MiB/s and sends 0 B/s.\nMost is received by curl (9.25 MiB/s).\n");

    evidence.machine["memory"].update({{"used", 15 * GiB}, {"available", GiB}, {"oomkills", 2}, {"shared", 4 * GiB}});
    evidence.machine["memoryKills"] = {
        {{"time", noon - 9e5}, {"name", "old"}}, {{"time", noon - 7200}, {"name", "vm"}, {"bytes", GiB}}};
    evidence.memoryBefore = {{"firefox", GiB}};
    evidence.memoryBeforeSpan = 1800;
    EXPECT_EQ(told(Complaint::Memory, evidence),
        "15.0 GiB of 16.0 GiB are used (94 %), 1.00 GiB are available. Most is held by firefox (3.00 GiB) and java "
        "(1.00 "
        "GiB).\n"
        "The kernel killed vm (1.00 GiB) for want of memory 2 h ago.\n"
        "firefox has grown by 2.00 GiB within 30 min, from 1.00 GiB.\n"
        "4.00 GiB are shared memory and files that lie in memory (tmpfs).\n");
}

/// The local time zone, for as long as it lives.
struct TimeZoneOf {
    explicit TimeZoneOf(const char* name)
    {
        ::setenv("TZ", name, 1);
        ::tzset();
    }
    ~TimeZoneOf()
    {
        ::unsetenv("TZ");
        ::tzset();
    }
};

Value momentAnswer()
{
    return parseUntrusted(R"({"time":1792893600,"known":{"from":1792800000,"until":1792899990},
        "boot":{"on":true,"asleep":false,"since":1792800000},
        "cpu":{"resolution":"day","from":1792893500,"until":1792893644,"busy":90.04,"user":80,"system":10.04},
        "load":{"load1":1.5,"load5":1,"load15":0.5},"memory":{"used":1073741824,"available":3221225472},
        "pressure":{"cpusome":12,"memorysome":0,"iosome":1},
        "temperatures":[{"series":"sensors/T","name":"Package","unit":"°C","chip":"coretemp","value":80}],"fans":[],
        "disks":[{"disk":"sda","readbytes":0,"writtenbytes":52428800,"busy":70,"reads":0,"writes":9}],
        "network":[{"interface":"wlan0","wifi":"Ho\u001bme","station":"aa:bb","from":1792893000,"until":1792893600,
            "received":1048576,"sent":1024}],
        "battery":[{"key":"B","source":0,"since":1792890000}],
        "applications":[{"group":"exe:/m","name":"make","kind":"application","cpuUser":50,"cpuSystem":10,"memory":1048576,
            "diskRead":0,"diskWritten":6291456,"received":0,"sent":0}],
        "applicationsFrom":1792893600,"applicationsUntil":1792893660,
        "processes":[{"pid":77,"name":"cc1","cpu":30,"memory":1048576,"disk":0,"network":0}],
        "changes":[{"time":1792893540,"what":"CPU use","from":10,"to":90,"unit":"%"},{"time":1792893550,"what":"the machine woke"}],
        "unknown":[{"what":"fans","why":"not measured then"}]})")
        .value();
}

TEST(AtView, APageTellsZoneFiguresChangesAndWhatIsNotKnown)
{
    const TimeZoneOf zone("Europe/Berlin"); // an hour before, the clocks went back: 02:30 is told twice
    const std::string page = textOf(atLines(momentAnswer(), 1'792'900'800));
    EXPECT_EQ(page,
        "Sun 2026-10-25 03:00:00 CET (UTC+01:00), 2 h ago\n"
        "machine      on and awake since Sat 2026-10-24 02:00:00\n"
        "figures      means of the 2 min 24 s from 02:58:20\n"
        "CPU          90.0 % busy, user 80.0 %, system 10.0 %\n"
        "load         1.50, 1.00, 0.50\n"
        "memory       1.00 GiB used, 3.00 GiB available\n"
        "waiting      for the CPU 12.0 %, for memory 0.0 %, for disks 1.0 %\n"
        "temperatures coretemp: Package 80.0 °C\n"
        "disks        sda reads 0 B/s, writes 50.0 MiB/s, 70.0 % busy\n"
        "network      wlan0 on \"Ho?me\": 1.00 MiB received and 1.00 KiB sent in the 10 min from 02:50\n"
        "battery      B: on battery since Sun 2026-10-25 02:00:00\n"
        "\n"
        "Applications, 1 min from 03:00:00\n"
        "APPLICATION                         CPU      MEMORY          DISK       NETWORK\n"
        "make                            100.0 %    1.00 MiB     102 KiB/s             -\n"
        "\n"
        "The largest processes of that minute\n"
        "PROCESS                            PID        CPU      MEMORY        DISK     NETWORK\n"
        "cc1                                 77     30.0 s    1.00 MiB           -           -\n"
        "\n"
        "What changed in the ten minutes around it\n"
        "  02:59:00  CPU use rose from 10.0 % to 90.0 %\n"
        "  02:59:10  the machine woke\n"
        "\n"
        "Not known of that moment\n"
        "  fans: not measured then\n"
        "\n"
        "The record reaches from Sat 2026-10-24 02:00:00 to Sun 2026-10-25 04:46:30.\n");
    Value earlier = momentAnswer();
    earlier["time"] = 1'792'893'600 - 3600 * 1.5;
    EXPECT_EQ(textOf(atLines(earlier, 1'792'900'800)).substr(0, 40), "Sun 2026-10-25 02:30:00 CEST (UTC+02:00)");
    for (const Value& odd : {Value(), Value(1),
             Value{{"boot", 1}, {"cpu", "x"}, {"disks", {1, "x"}}, {"changes", {1}},
                 {"applications", {1, Value::object()}}, {"network", {1}}}}) {
        EXPECT_NO_THROW(atLines(odd, noon));
        for (const std::string& name : complaintNames()) {
            const Evidence evidence = evidenceOfMoment(odd, odd);
            EXPECT_NO_THROW(told(*complaintNamed(name), evidence));
        }
    }
}

TEST(Reasons, AMomentIsJudgedAsNowIs)
{
    Evidence evidence = evidenceOfMoment(momentAnswer(),
        {{{"key", "T"}, {"name", "Package"}, {"kind", "temperature"}, {"critical", 85.0}, {"value", 40.0}}});
    evidence.time = 1'792'893'600;
    EXPECT_EQ(told(Complaint::Slow, evidence).find("Sun 2026-10-25 02:00:00 UTC"), 0U);
    EXPECT_NE(told(Complaint::Slow, evidence)
                  .find("The processors were 90 % busy, and programs waited for them 12 % of the "
                        "time. Most of that was used by make (1.0 cores)."),
        std::string::npos);
    EXPECT_NE(
        told(Complaint::Hot, evidence).find("Package was at 80 °C, 5 °C below its limit of 85 °C."), std::string::npos);
    EXPECT_NE(told(Complaint::Draining, evidence).find("The machine ran on battery"), std::string::npos);
    const Value asleep = {{"unknown", {{{"what", "figures"}, {"why", "the machine was asleep"}}}}};
    EXPECT_NE(told(Complaint::BusyDisk, evidenceOfMoment(asleep, {}))
                  .find("That cannot be said.\nNot known: what the machine did then (the machine was asleep).\n"),
        std::string::npos);
}

} // namespace
} // namespace meridal
