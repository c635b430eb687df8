#include "client/views/StatusView.h"

#include "tests/client/ViewText.h"

#include <gtest/gtest.h>

namespace meridal {
namespace {

TEST(StatusView, SaysWhatTheDaemonSaidAndNothingElse)
{
    const Dictionary status = {{"version", 6.6}, {"build", 1177}, {"pid", 812}, {"uptime", 3725.5}, {"host", "linux"},
        {"clients", 2},
        {"usage", {{"cpuPercent", 0.4}, {"cpuPercentSinceStart", 0.5}, {"residentBytes", 9'542'000}, {"wakeups", 512}}},
        {"transport", {{"requests", 10}, {"badRequests", 1}}},
        {"passes", {{"count", 40}, {"lastSeconds", 0.0021}, {"processes", 180}}}, {"processes", {{"source", "bpf"}}},
        {"databases", {{"rowsWritten", 1200}, {"bytes", 81'920}, {"statementsDropped", 0}}},
        {"limitations", {{"memory\x1B", "needs\nroot"}}}, {"paths", {{"socket", "/run/meridal/daemon.sock"}}}};
    EXPECT_EQ(textOf(statusLines(status)),
        "meridald 6.6 (build 1177) on linux, process 812, up 1 h 2 min\n"
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

TEST(StatusView, AnAnswerOfAnyShapeIsShownWithoutComplaint)
{
    for (const Value& odd : {Value(), Value(1), Value("x"), Value::array({1}),
             Value{{"usage", 1}, {"limitations", {1, 2}}, {"paths", {{"a", {{"b", 1}}}}}, {"version", "6"}}}) {
        EXPECT_EQ(textOf(statusLines(odd)).substr(0, 9), "meridald\n");
    }
}

} // namespace
} // namespace meridal
