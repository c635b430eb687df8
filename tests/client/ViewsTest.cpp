// SPDX-License-Identifier: Apache-2.0
#include "client/views/Answers.h"
#include "client/views/BatteryView.h"
#include "client/views/DisksView.h"
#include "client/views/NetworkView.h"
#include "client/views/SensorsView.h"
#include "client/views/StatusView.h"
#include "client/views/UptimeView.h"
#include "tests/client/ViewText.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

namespace meridal {
namespace {

TEST(StatusView, SaysWhatTheDaemonSaidAndNothingElse)
{
    const Dictionary status = {{"release", "0.1.0"}, {"version", 6.6}, {"build", 1177}, {"pid", 812},
        {"uptime", 3725.5}, {"host", "linux"}, {"clients", 2},
        {"usage", {{"cpuPercent", 0.4}, {"cpuPercentSinceStart", 0.5}, {"residentBytes", 9'542'000}, {"wakeups", 512}}},
        {"transport", {{"requests", 10}, {"badRequests", 1}}},
        {"passes", {{"count", 40}, {"lastSeconds", 0.0021}, {"processes", 180}}}, {"processes", {{"source", "bpf"}}},
        {"databases", {{"rowsWritten", 1200}, {"bytes", 81'920}, {"statementsDropped", 0}}},
        {"limitations", {{"memory\x1B", "needs\nroot"}}}, {"paths", {{"socket", "/run/meridal/daemon.sock"}}}};
    EXPECT_EQ(textOf(statusLines(status)),
        "meridald 0.1.0 (protocol 6.6, build 1177) on linux, process 812, up 1 h 2 min\n"
        "CPU          0.40 % of one core lately, 0.50 % since the start\n"
        "memory       9.10 MiB resident\n"
        "wake-ups     512 in all\n"
        "clients      2\n"
        "requests     10, 1 bad\n"
        "passes       40, the last took 2.10 ms, 180 processes\n"
        "processes    read by bpf\n"
        "history      1200 rows written, 80.0 KiB in files, 0 given up\n"
        "\n"
        "Files\n"
        "  socket                       /run/meridal/daemon.sock\n"
        "\n"
        "Not to be had on this machine\n"
        "  memory?                      needs?root\n");
}

TEST(UptimeView, ABootThatCrashedLastedAtLeastSoLong)
{
    const Value boots = {{{"end", "running"}, {"length", 5}, {"asleep", 0}},
        {{"end", "crash"}, {"length", 863'999'136.0}, {"asleep", 86'399}}, {{"end", "orderly"}}, {{"end", "\x1B"}}, 1};
    EXPECT_EQ(
        textOf(uptimeLines({{"current", {{"uptime", 90'000}}}, {"availability", 0.98765}, {"boots", boots}}, true)),
        "up           1 d 1 h\n"
        "since        -\n"
        "of it asleep -\n"
        "longest run  -\n"
        "available    98.77 %\n"
        "\n"
        "STARTED              ENDED                       LASTED       ASLEEP  END\n"
        "-                    -                              5 s          0 s  running\n"
        "-                    -                    > 9999 d 23 h  23 h 59 min  crash or loss of power\n"
        "-                    -                                -            -  shut down\n"
        "-                    -                                -            -  ?\n"
        "-                    -                                -            -  -\n");
}

TEST(NetworkView, ShowsThePrimaryInterfaceFirstAndGivesWay)
{
    const Value answer = {{"primary", {{"interface", "wlan0"}, {"router", "192.0.2.1"}}},
        {"interfaces",
            {{{"interface", "old0"}, {"hardware", "Ethernet"}, {"link", "down"}, {"downloadRate", nullptr},
                 {"uploadRate", nullptr}},
                {{"interface", "lo"}, {"hardware", "Loopback"}, {"link", "up"}, {"downloadRate", 0}, {"uploadRate", 0},
                    {"addresses", {"127.0.0.1/8", "::1/128"}}, {"bytes", {{"received", 4096}, {"sent", 4096}}},
                    {"errors", {{"received", 0}, {"sent", 0}}}},
                {{"interface", "wlan0"}, {"hardware", "AirPort"}, {"link", "up"}, {"primary", true},
                    {"downloadRate", 2048.5}, {"uploadRate", 12}, {"addresses", {"192.0.2.7/24"}},
                    {"wifi", {{"name", "Home\x1B"}, {"bssid", "aa:bb:cc:dd:ee:ff"}}},
                    {"bytes", {{"received", 5e9}, {"sent", 1e6}}}, {"errors", {{"received", 1}, {"sent", 0}}},
                    {"drops", {{"received", 3}, {"sent", 4}}}}}}};
    EXPECT_EQ(textOf(networkLines(answer)),
        "INTERFACE     HARDWARE   LINK       DOWNLOAD      UPLOAD   RECEIVED       SENT  TROUBLE\n"
        "wlan0         AirPort    up       2.00 KiB/s      12 B/s   4.66 GiB    977 KiB  1 error, 7 dropped\n"
        "              Wi-Fi Home? (aa:bb:cc:dd:ee:ff)  router 192.0.2.1  192.0.2.7/24\n"
        "lo            Loopback   up            0 B/s       0 B/s   4.00 KiB   4.00 KiB\n"
        "              127.0.0.1/8  ::1/128\n"
        "old0          Ethernet   down              -           -          -          -\n");
    const std::string narrow = "INTERFACE     HARDWARE  LINK       DOWNLOAD      UPLOAD  TROUBLE\n"
                               "wlan0         AirPort   up       2.00 KiB/s      12 B/s  1 error, 7 dropped\n"
                               "              Wi-Fi Home? (aa:bb:cc:dd:ee:ff)  router 192.0.2.1\n"
                               "              192.0.2.7/24\n"
                               "lo            Loopback  up            0 B/s       0 B/s\n";
    EXPECT_EQ(textOf(networkLines(answer, 75)).substr(0, narrow.size()), narrow);
    EXPECT_EQ(textOf(networkLines({{"interfaces", Value::array()}})), "no network interfaces on this machine\n");
}

TEST(Answers, TellMomentsAsTextAndRowsAsCsv)
{
    ::setenv("TZ", "UTC", 1);
    const Value answer = {
        {"wallTime", 1.7e9}, {"batteries", {{{"time", 95}, {"sourceTime", 1'700'000'000.5}}}}, {"end", "crash"}};
    EXPECT_EQ(answerLine(answer),
        R"({"batteries":[{"sourceTime":"2023-11-14T22:13:20.500Z","time":95}],"end":"crash","wallTime":"2023-11-14T22:13:20Z"})"
        "\n");
    constexpr std::array<const char*, 5> columns = {"name", "start", "bytes.sent", "addresses", "absent"};
    const Value rows = {{{"name", "=a\x1B"}, {"start", 1.7e9}, {"bytes", {{"sent", 5}}}},
        {{"name", nullptr}, {"addresses", {"::1/128", "127.0.0.1/8"}}}};
    EXPECT_EQ(csvOf(rows, columns),
        "name,start,bytes.sent,addresses\n'=a?,2023-11-14T22:13:20Z,5,\n,,,::1/128 127.0.0.1/8\n");
    EXPECT_EQ(csvOf(Value::array(), columns), "name,start,bytes.sent,addresses,absent\n");
}

TEST(Views, AnAnswerOfAnyShapeIsShownWithoutComplaint)
{
    const Value odd = {{"percentage", "x"}, {"time", 1e300}, {"manufactureTime", 1e300}, {"state", 1}, {"problems", 1},
        {"attributes", {1}}, {"log", 2}, {"value", -5}};
    const Value lists = {1, "x", Value(), Value::object(), odd};
    const Value figures = {{"health", lists}, {"cycles", "x"}};
    for (const Value& answer : {Value(), Value(1), Value("x"), lists,
             Value{{"batteries", lists}, {"peripherals", lists}, {"history", figures}, {"boots", lists}, {"usage", 1},
                 {"limitations", lists}, {"paths", {{"a", odd}}}, {"version", "6"}, {"current", 2}}}) {
        EXPECT_EQ(textOf(statusLines(answer)).substr(0, 9), "meridald\n");
        for (const Lines& lines : {batteryLines(answer), diskLines(answer, true), sensorLines(answer), fanLines(answer),
                 uptimeLines(answer, true), networkLines(answer), networkLines({{"interfaces", answer}}, 40)}) {
            EXPECT_FALSE(lines.empty());
        }
    }
}

} // namespace
} // namespace meridal
