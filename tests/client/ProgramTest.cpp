// SPDX-License-Identifier: Apache-2.0
#include "base/Installation.h"
#include "client/screen/WallClock.h"
#include "tests/client/FakeDaemon.h"
#include "tests/support/TemporaryTree.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace meridal {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

/// How a run of the built program ended.
struct Outcome {
    std::string out;
    std::string err;
    std::string status;
    bool operator==(const Outcome&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const Outcome& outcome)
{
    return stream << outcome.out << outcome.err << outcome.status;
}

/// The built meridalctl against a daemon of the test's making, on a real socket.
class ProgramTest : public testing::Test {
protected:
    ~ProgramTest() override { stopServing(); }

    void stopServing()
    {
        context.stop();
        if (server.joinable()) {
            server.join();
        }
    }

    void serve(FakeDaemon::Handler handler)
    {
        daemon = std::make_unique<FakeDaemon>(
            context, socket, [this, handler = std::move(handler)](const std::string& method, const Value& request) {
                {
                    const std::lock_guard lock(mutex);
                    calls.push_back(method + serialise(request.at("params")));
                }
                called.notify_all();
                handler(method, request);
            });
        server = std::thread([this] { context.run(); });
    }
    /// Waits until the daemon has been called so for the given time.
    void waitForCall(const std::string& call, long times = 1)
    {
        std::unique_lock lock(mutex);
        ASSERT_TRUE(called.wait_for(lock, std::chrono::seconds(20), [&] {
            return std::count(calls.begin(), calls.end(), call) >= times;
        })) << call;
    }

    std::vector<std::string> callsSoFar()
    {
        const std::lock_guard lock(mutex);
        return calls;
    }

    std::string command(const std::string& arguments) const
    {
        return "NO_COLOR= MERIDAL_SOCKET='" + socket + "' '" MERIDAL_BUILD_DIR "/meridalctl' " + arguments;
    }
    /// Runs the program from a shell, and what reads its output.
    Outcome run(const std::string& arguments, const std::string& reader = "cat") const
    {
        const std::string script = "( { " + command(arguments) + "; echo $? >'" + folder.path("status") + "'; } | "
            + reader + " ) >'" + folder.path("out") + "' 2>'" + folder.path("err") + "' </dev/null";
        EXPECT_EQ(std::system(script.c_str()), 0);
        return {folder.read("out"), folder.read("err"), folder.read("status")};
    }

    test::TemporaryTree folder;
    std::string socket = folder.path("daemon.sock");
    asio::io_context context;
    std::unique_ptr<FakeDaemon> daemon;
    std::thread server;
    std::mutex mutex;
    std::condition_variable called;
    std::vector<std::string> calls; ///< the daemon's, guarded by the mutex
};

const Dictionary cpuEnvelope = {
    {"type", "1"}, {"processes", {{{"key", "7"}, {"name", "spin\x1B[2J\x7F"}, {"c", "150.00"}}}}};
const Dictionary memoryEnvelope = {{"type", "2"}, {"processes", {{{"key", "8"}, {"name", "heap"}, {"m", "2048"}}}}};

TEST_F(ProgramTest, WithoutADaemonOneLineSaysHowToStartIt)
{
    for (const char* arguments : {"top", "ping", "status", "watch 1", "call x", "processes 1", "version", "disks"}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, "2\n");
        EXPECT_EQ(outcome.out, "");
        EXPECT_THAT(outcome.err, StartsWith("meridalctl: no daemon at " + socket + " (No such file or directory); "));
        EXPECT_THAT(outcome.err, HasSubstr("\"meridald --root DIR\" or \"" + installation().startCommand + "\""));
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1);
    }
}

TEST_F(ProgramTest, WrongUsageIsToldApart)
{
    for (const char* arguments : {"dance", "top everything", "top -n 0", "top --once --refreshes 2", "watch tea",
             "watch 1024", "watch -3", "processes x", "call", "at", "at the end", "why bored", "why hot --at never"}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, "64\n") << arguments;
        EXPECT_EQ(outcome.out, "");
        EXPECT_NE(outcome.err, "") << arguments;
    }
    EXPECT_EQ(run("top $(printf '\\033[2J')").err.find('\x1B'), std::string::npos);
    EXPECT_EQ(run("--help").status, "0\n");
}

TEST_F(ProgramTest, HelpIsForPeopleAndAMisspeltCommandIsNamed)
{
    const std::string help = run("help").out;
    EXPECT_THAT(help, HasSubstr("\n  bandwidth   "));
    EXPECT_EQ(run("").out, help) << "no terminal to show anything else on";
    EXPECT_EQ(run("--help").out, help);
    EXPECT_EQ(run("help top").out, run("top --help").out);
    EXPECT_EQ(run("bandwith --json"),
        (Outcome{"",
            "meridalctl: there is no command \"bandwith\"; did you mean \"bandwidth\"?\n"
            "\"meridalctl help\" lists all commands.\n",
            "64\n"}));
    EXPECT_EQ(run("help dance").status, "64\n");
    std::string all = help;
    for (const char* command : {"top", "history", "metrics", "watch", "call", "why"}) {
        all += run(std::string("help ") + command).out;
    }
    for (const char* jargon : {"INT", "TEXT", "FLOAT", "{", "SUBCOMMAND"}) {
        EXPECT_THAT(all, Not(HasSubstr(jargon)));
    }
    EXPECT_THAT(all,
        HasSubstr("\n  list cpu|memory|disk|network|energy\n                              What to rank by (cpu)\n"));
    EXPECT_THAT(all, HasSubstr("\n  -n,--rows N "));
}

TEST_F(ProgramTest, QuestionsPrintTheirAnswers)
{
    std::map<std::string, Value> answers = {{"version:", {6.599999904632568, 1177}},
        {"infoForPids:reply:", Value::array({{{"pid", 1}, {"name", "init\x1B"}}})},
        {"status", {{"version", 6.6}, {"clients", 1}}}, {"exists:", true}};
    serve([this, answers = std::move(answers)](const std::string& method, const Value& request) {
        if (const auto known = answers.find(method); known != answers.end()) {
            daemon->answer(request, known->second);
        } else {
            daemon->refuse(request, -32601, "no method named that\x1B");
        }
    });
    EXPECT_EQ(run("version").out, "meridald 6.6 (build 1177)\n");
    EXPECT_THAT(run("ping -c 3").out, HasSubstr("on average of 3"));
    EXPECT_EQ(run("status --json").out, "{\"clients\":1,\"version\":6.6}\n");

    EXPECT_EQ(run("processes 1"), (Outcome{"     PID  NAME\n       1  init?\n", "", "0\n"}));
    const Outcome unknown = run("processes 1 99");
    EXPECT_EQ(unknown.err, "meridalctl: the daemon knows no process 99\n");
    EXPECT_EQ(unknown.status, "1\n");
    waitForCall("infoForPids:reply:[[1,99]]");
    EXPECT_EQ(run("call nonsense"), (Outcome{"", "meridalctl: no method named that?\n", "1\n"}));
}

TEST_F(ProgramTest, ProcessesAreSortedAndFilteredByTheDaemon)
{
    serve([this](const std::string&, const Value& request) {
        daemon->answer(request,
            {{"processes", {{{"pid", 7}, {"name", "spin"}, {"cpu", 2.5}}}}, {"total", 1}, {"pid", 7},
                {"name", "spin"}});
    });
    EXPECT_EQ(run("processes --sort memory --limit 3 --filter '^a' --regex --user anna --columns cpu,name").out,
        " CPU % NAME\n   2.5 spin\n");
    waitForCall(R"(processes.table{"columns":["cpu","name","name"],"filter":{"regex":true,"text":"^a","user":"anna"},)"
                R"("grouped":false,"limit":3,"reversed":false,"sort":"footprint"})");
    EXPECT_EQ(run("processes --csv --columns pid,cpu").out, "pid,cpu\n7,2.5\n");
    EXPECT_EQ(run("processes --columns pid,age").status, "64\n");
    EXPECT_EQ(run("processes 7 --grouped").status, "64\n");
    EXPECT_EQ(run("process 7 8").status, "64\n");
    EXPECT_THAT(run("process 7").out, testing::StartsWith("7 spin\n"));
    waitForCall(R"(process.details{"pid":7})");
}

TEST_F(ProgramTest, MomentsAreAskedForAsTheyWereMeant)
{
    std::atomic<double> asked = 0;
    serve([&](const std::string& method, const Value& request) {
        if (method != "moments.at") {
            return daemon->refuse(request, -32601, "no such method");
        }
        asked = request.at("params")[0].at("time").get<double>();
        const Value cpu = {{"busy", 97.0}, {"from", asked - 6}, {"until", asked.load()}};
        daemon->answer(request, {{"time", asked.load()}, {"cpu", cpu}});
    });
    const auto askedAgo = [&](const std::string& arguments) {
        EXPECT_EQ(run(arguments).status, "0\n") << arguments;
        return wallTime() - asked;
    };
    EXPECT_NEAR(askedAgo("at -2h"), 7200, 5);
    EXPECT_NEAR(askedAgo("at 90 min ago --json"), 5400, 5);
    EXPECT_NEAR(askedAgo("why hot --at -1h"), 3600, 5);
    EXPECT_THAT(run("at 2026-11-20T18:30+01:00").out, StartsWith("Fri 2026-11-20 17:30:00 UTC, "));
    EXPECT_THAT(run("why slow --at -1m").out, HasSubstr("\nThe processors were 97 % busy.\n")) << "with less than all";
}

TEST_F(ProgramTest, CallSendsJsonAsJsonAndWordsAsText)
{
    serve([this](const std::string&, const Value& request) { daemon->answer(request, request.at("params")); });
    EXPECT_EQ(run("call any '[1,[2]]' -5 word '[word]' '{\"a\":null}' '' '\"7\"' true -- --json").out,
        "[[1,[2]],-5,\"word\",\"[word]\",{\"a\":null},\"\",\"7\",true,\"--json\"]\n");
    EXPECT_EQ(run("call any '{}'").out, "[{}]\n");
    EXPECT_EQ(run("call any '[]' --timeout 3").out, "[[]]\n");
    EXPECT_EQ(run("call any").out, "[]\n");
}

TEST_F(ProgramTest, ASilentDaemonEndsInATimeout)
{
    serve([](const std::string&, const Value&) {});
    const Outcome outcome = run("--timeout 0.05 ping");
    EXPECT_EQ(outcome.status, "2\n");
    EXPECT_THAT(outcome.err, HasSubstr("did not answer within 0.05 s"));
}

TEST_F(ProgramTest, TopAsTextIsPlainAndCounted)
{
    serve([this](const std::string& method, const Value& request) {
        daemon->answer(request, nullptr);
        if (method == "startRequestWithKey:interval:") {
            for (int i = 0; i < 4; ++i) {
                daemon->push(memoryEnvelope); // another client's key
                daemon->push(cpuEnvelope);
            }
        }
    });
    const Outcome text = run("top --refreshes 3 --settle 0 --hierarchy");
    EXPECT_EQ(text.status, "0\n");
    EXPECT_EQ(text.err, "");
    EXPECT_EQ(text.out.find('\x1B'), std::string::npos);
    std::size_t blocks = 0;
    for (std::size_t at = 0; (at = text.out.find("150.0  spin?[2J?\n", at)) != std::string::npos; ++at) {
        ++blocks;
    }
    EXPECT_EQ(blocks, 3U);
    EXPECT_THAT(callsSoFar(), ElementsAre("enableHierachy[]", "startRequestWithKey:interval:[1,2]"));

    EXPECT_THAT(run("--color=always top --once --settle 0").out, HasSubstr("\x1B[1;31m       150.0\x1B[0m"));
    EXPECT_THAT(run("top --json --refreshes 2 --settle 0", "tail -n 1").out,
        MatchesRegex(
            R"re(\{"hierarchy":false,"list":"cpu","processes":\[\{"cpuPercent":150.0,"name":"spin\?\[2J\?","pid":7\}\],)re"
            R"re("refresh":2,"seconds":[0-9.]+,"time":"20[0-9TZ:.+-]+"\})re"
            "\n"));
}

TEST_F(ProgramTest, TextWaitsUntilRatesAreReal)
{
    Dictionary settled = cpuEnvelope;
    settled["processes"][0]["c"] = "42.00";
    asio::steady_timer later(context);
    const std::function<void()> pushAgain = [&] {
        later.expires_after(std::chrono::milliseconds(40));
        later.async_wait([&](std::error_code) {
            daemon->push(settled);
            pushAgain();
        });
    };
    serve([&](const std::string&, const Value& request) {
        daemon->answer(request, nullptr);
        daemon->push(cpuEnvelope); // at once, of no elapsed time
        pushAgain();
    });
    const Outcome outcome = run("top --once --settle 0.1");
    stopServing(); // before what it uses goes
    EXPECT_THAT(outcome.out, HasSubstr("42.0"));
    EXPECT_THAT(outcome.out, Not(HasSubstr("150.0")));
}

TEST_F(ProgramTest, AReaderThatLeavesEndsTheProgramQuietly)
{
    serve([this](const std::string&, const Value& request) {
        daemon->answer(request, nullptr);
        for (int i = 0; i < 2'000; ++i) { // far more than a pipe holds
            daemon->push(cpuEnvelope);
        }
    });
    for (const char* arguments : {"top --settle 0", "top --json --settle 0", "watch cpu"}) {
        const Outcome outcome = run(arguments, "head -n 1");
        EXPECT_EQ(outcome.status, "0\n") << arguments;
        EXPECT_EQ(outcome.err, "") << arguments;
        EXPECT_NE(outcome.out, "") << arguments;
    }
}

TEST_F(ProgramTest, AFullDiskIsNoQuietEnd)
{
    if (!std::filesystem::exists("/dev/full")) {
        GTEST_SKIP() << "no /dev/full on this host";
    }
    serve([this](const std::string&, const Value& request) { daemon->answer(request, true); });
    const Outcome outcome = run("call any >/dev/full");
    EXPECT_EQ(outcome.status, "1\n");
    EXPECT_THAT(outcome.err, HasSubstr("cannot write to standard output"));
}

TEST_F(ProgramTest, BandwidthOfAnInterfaceThatThereIsNotIsAnError)
{
    serve([this](const std::string& method, const Value& request) {
        daemon->answer(request,
            method == "network.interfaces"
                ? Value{{"interfaces", {{{"interface", "eth7"}, {"index", 2}}}}, {"more", false}}
                : Value{{"totals", Value::array()}, {"more", false}});
    });
    EXPECT_EQ(run("bandwidth --interface eth7"), (Outcome{"nothing recorded\n", "", "0\n"}));
    EXPECT_EQ(run("bandwidth --interface nosuch"),
        (Outcome{"", "meridalctl: there is no interface \"nosuch\"; there is: eth7\n", "1\n"}));
}

TEST_F(ProgramTest, WatchPrintsWhatWasAskedForAcrossARestart)
{
    bool hasRestarted = false;
    serve([&](const std::string& method, const Value& request) {
        daemon->answer(request, nullptr);
        if (method != "startSMARTTemps") {
            return; // the last of the three requests
        }
        daemon->push({{"type", "8"}});
        daemon->push(cpuEnvelope);
        if (!hasRestarted) {
            hasRestarted = true;
            daemon->hangUp();
        }
    });
    const Outcome outcome = run("watch cpu 2 smart-temperatures --count 2");
    stopServing(); // before what it uses goes
    EXPECT_EQ(outcome.status, "0\n");
    const std::string line =
        "{\"processes\":[{\"c\":\"150.00\",\"key\":\"7\",\"name\":\"spin\\u001b[2J\\u007f\"}],\"type\":\"1\"}\n";
    EXPECT_EQ(outcome.out, line + line);
    EXPECT_THAT(outcome.err, HasSubstr("closed the connection; waiting for it\n"));
    EXPECT_THAT(callsSoFar(),
        ElementsAre("startRequestWithKey:interval:[1,2]", "startRequestWithKey:interval:[2,2]", "startSMARTTemps[]",
            "startRequestWithKey:interval:[1,2]", "startRequestWithKey:interval:[2,2]", "startSMARTTemps[]"));
}

TEST_F(ProgramTest, ABarOutlivesTheDaemon)
{
    EXPECT_EQ(run("bar --refreshes 1"), (Outcome{"- - -\n", "", "0\n"}));
    bool hasRestarted = false;
    serve([&](const std::string&, const Value& request) {
        daemon->answer(request, {{"cpu", {{"busy", 42}}}});
        if (!hasRestarted) {
            hasRestarted = true;
            daemon->hangUp();
        }
    });
    const Outcome outcome = run("bar --format tmux --refreshes 3 '#{cpu}'");
    stopServing(); // before what it uses goes
    EXPECT_EQ(outcome, (Outcome{"##42%\n##-\n##42%\n", "", "0\n"}));
    EXPECT_EQ(callsSoFar().front(), "machine.state[{\"passive\":true}]");
    EXPECT_EQ(run("bar {cpi}").status, "64\n");
}

TEST_F(ProgramTest, DisksAreThoseThatWereNamed)
{
    serve([this](const std::string&, const Value& request) {
        daemon->answer(request,
            {{"disks", {{{"bsd", "sda"}, {"serial", "S1"}}, {{"bsd", "sdb"}, {"serial", "S2"}}}}, {"more", false}});
    });
    EXPECT_EQ(run("disks S2 --csv").out, "bsd,serial\nsdb,S2\n");
    EXPECT_EQ(run("disks sdz"),
        (Outcome{"", "meridalctl: there is no disk \"sdz\"; \"meridalctl disks\" lists them\n", "1\n"}));
}

TEST_F(ProgramTest, HistoryIsAListOrPlotsOfSeveralSeries)
{
    serve([this](const std::string& method, const Value& request) {
        const Value& given = request.at("params").at(0);
        if (method == "history.series") {
            return daemon->answer(request,
                {{"more", false},
                    {"series",
                        {{{"series", "load"}, {"collector", "load"}, {"key", ""}, {"name", "Load"}, {"unit", ""},
                             {"values", {"load1"}}},
                            {{"series", "memory"}, {"collector", "memory"}, {"key", ""}, {"name", "Memory"},
                                {"unit", "B"}, {"values", {"used", "free"}}},
                            {{"series", "sensors/1"}, {"collector", "sensors"}, {"key", "1"}, {"name", "Composite"},
                                {"origin", "nvme0n1"}, {"unit", "°C"}, {"values", {"value"}}},
                            {{"series", "sensors/2"}, {"collector", "sensors"}, {"key", "2"}, {"name", "Composite"},
                                {"origin", "nvme1n1"}, {"unit", "°C"}, {"values", {"value"}}}}}});
        }
        const bool isMemory = given.at("series") == "memory";
        const bool isLast = given.contains("before") || given.at("limit") == 1;
        const Value values = isMemory ? Value({isLast ? 1024 : 2048, 1}) : Value(Value::array_t{isLast ? 40 : 45});
        Value page{{"series", given.at("series")}, {"interval", 6}, {"resolution", given.at("resolution")},
            {"unit", isMemory ? "B" : "°C"},
            {"values", isMemory ? Value({"used", "free"}) : Value(Value::array_t{"value"})},
            {"samples", {{{"time", given.at("until").get<double>() - (isLast ? 60 : 54)}, {"values", values}}}},
            {"more", !isLast}, {"next", 7}};
        daemon->answer(request, page);
    });
    EXPECT_THAT(run("history").out,
        AllOf(HasSubstr("\nmemory\n  memory/used                            1.00 KiB  "),
            HasSubstr("\nsensors\n  nvme0n1/Composite"), HasSubstr("  nvme1n1/Composite")));
    std::istringstream help(run("help history").out);
    std::size_t examples = 0;
    for (std::string line; std::getline(help, line);) {
        const std::string example = line.starts_with("  meridalctl ") ? line.substr(13, line.find("   ", 13) - 13) : "";
        EXPECT_EQ(example.empty() ? "0\n" : run(example).status, "0\n") << example;
        examples += example.empty() ? 0U : 1U;
    }
    EXPECT_GT(examples, 3U);
    EXPECT_THAT(run("history --json", "grep -c '\"label\":\"nvme0n1/Composite\",\"latest\":{\"time\"'").out, "1\n");
    const std::string plots = run("history nvme1n1/Composite memory/used nvme0n1/Composite --from -3d").out;
    EXPECT_THAT(plots, StartsWith("nvme1n1/Composite, nvme0n1/Composite, since "));
    EXPECT_THAT(plots, HasSubstr("\n\nmemory/used, since "));
    EXPECT_THAT(plots, HasSubstr("min 1.00 KiB   avg 1.50 KiB   max 2.00 KiB"));
    EXPECT_THAT(callsSoFar().back(), HasSubstr("\"resolution\":\"longterm\""));
    EXPECT_THAT(run("history composite").err,
        HasSubstr(
            "more than one is called \"composite\"; say which: nvme0n1/Composite (sensors/1), nvme1n1/Composite"));
    EXPECT_EQ(run("history memory/unused").status, "1\n");
    for (const char* wrong : {"history --csv", "history memory --from soon", "history memory --from -1h --until -2h",
             "history memory --from -1h --range day", "history memory --resolution minute", "apps --from 2999-01-01"}) {
        EXPECT_EQ(run(wrong).status, "64\n") << wrong;
    }
}

TEST_F(ProgramTest, ApplicationsAreTotalsOrTheCourseOfOne)
{
    serve([this](const std::string&, const Value& request) {
        const Value& given = request.at("params").at(0);
        if (given.contains("group")) {
            const double began = given.at("until").get<double>() - 600;
            return daemon->answer(request,
                {{"group", given.at("group")}, {"name", "web"}, {"step", "minute"}, {"more", false},
                    {"periods", {{{"time", began}, {"seconds", 60}, {"cpuUser", 30}, {"cpuSystem", 0}}}}});
        }
        const bool isLast = given.contains("after");
        const auto group = [](const char* identity, int user, double cpu) {
            return Value{{"group", identity}, {"name", "web"}, {"kind", "application"}, {"user", user},
                {"cpuUser", cpu}, {"cpuSystem", 0}};
        };
        Value groups = Value::array();
        if (isLast) {
            groups.push_back({{"group", "kernel"}, {"name", "kernel"}, {"kind", "kernel"}, {"cpuUser", 1}});
        } else {
            groups = {
                group("unit:web.service", 0, 9), group("unit:web.service", 1000, 5), group("container:web", 0, 3)};
        }
        Value page{{"from", given.at("from")}, {"until", given.at("until")}, {"by", given.at("by")}, {"more", !isLast},
            {"groups", groups}};
        if (!isLast) {
            page["next"] = "3/7";
        }
        daemon->answer(request, page);
    });
    EXPECT_EQ(run("apps --csv --limit 2").out,
        "group,name,kind,user,cpuUser,cpuSystem\nunit:web.service,web,application,0,9.0,0\n"
        "unit:web.service,web,application,1000,5.0,0\nother,other,other,,3.0,0.0\nkernel,kernel,kernel,,1,\n");
    EXPECT_THAT(callsSoFar().back(), HasSubstr("\"after\":\"3/7\""));
    EXPECT_THAT(run("apps --by memory --range year --json").out, HasSubstr("\"by\":\"memory\""));
    EXPECT_THAT(run("apps").out, AllOf(StartsWith("Applications by cpu, last day\n"), HasSubstr("kernel ")));
    EXPECT_THAT(run("apps --group web").err,
        HasSubstr(
            "say which, or whose by --user: web (unit:web.service, user 0), web (unit:web.service, user 1000), "));
    EXPECT_THAT(run("apps --group container --from -1h").out,
        AllOf(StartsWith("web, since "), HasSubstr("min 50 % of one core")));
    EXPECT_THAT(callsSoFar().back(), AllOf(HasSubstr("\"group\":\"container:web\""), HasSubstr("\"owner\":0")));
    EXPECT_THAT(
        run("apps --group nginx").err, HasSubstr("no application is called \"nginx\" in this time; there is: "));
}

/// The program on a terminal of its own, lent by script(1).
class TerminalTest : public ProgramTest {
protected:
    void SetUp() override
    {
        if (std::system("script -V >/dev/null 2>&1") != 0) {
            GTEST_SKIP() << "no util-linux script(1) to lend a terminal";
        }
    }

    void open(const std::string& arguments)
    {
        const std::string script = "TERM=xterm-256color LC_ALL=C.UTF-8 script -qec \"" + command(arguments) + "\" '"
            + folder.path("screen") + "' >/dev/null 2>&1";
        terminal = ::popen(script.c_str(), "w");
        ASSERT_NE(terminal, nullptr);
    }
    void press(char key)
    {
        std::fputc(key, terminal);
        std::fflush(terminal);
    }
    /// Ends the program, and answers what it wrote.
    std::string quit()
    {
        press('q');
        EXPECT_EQ(::pclose(terminal), 0);
        std::string screen = folder.read("screen");
        const std::size_t enters = screen.find("\x1B[?1049h");
        const std::size_t leaves = screen.rfind("\x1B[?1049l");
        EXPECT_NE(enters, std::string::npos);
        EXPECT_NE(leaves, std::string::npos);
        EXPECT_LT(enters, leaves);
        return screen;
    }

    std::FILE* terminal = nullptr;
};

TEST_F(TerminalTest, TheLiveViewFollowsItsKeysAndGivesTheTerminalBack)
{
    serve([this](const std::string& method, const Value& request) {
        daemon->answer(request, Value::object());
        if (method == "startRequestWithKey:interval:") {
            for (int i = 0; i < 5; ++i) { // after five lists the view asks for the status again
                daemon->push(request.at("params").at(0) == 1 ? cpuEnvelope : memoryEnvelope);
            }
        }
    });
    open("top");
    waitForCall("status[]", 2);
    press('m');
    waitForCall("stopRequestWithKey:[1]");
    waitForCall("startRequestWithKey:interval:[2,2]");
    waitForCall("status[]", 3);
    press('h');
    waitForCall("enableHierachy[]");
    const std::string screen = quit();
    EXPECT_THAT(screen, HasSubstr("spin?[2J?"));
    EXPECT_THAT(screen, HasSubstr("heap"));
}

TEST_F(TerminalTest, WhatIsWatchedIsLiveUntilAKeyEndsIt)
{
    serve([this](const std::string&, const Value& request) {
        daemon->answer(request, {{"interfaces", {{{"interface", "eth7"}, {"link", "up"}}}}, {"more", false}});
    });
    EXPECT_EQ(run("network --watch --refreshes 1 --json").out,
        "{\"interfaces\":[{\"interface\":\"eth7\",\"link\":\"up\"}]}\n");
    open("network --watch");
    waitForCall("network.interfaces[{\"limit\":500}]", 2);
    quit();
}

} // namespace
} // namespace meridal
