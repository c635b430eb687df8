// SPDX-License-Identifier: Apache-2.0
#include "client/panels/Panels.h"
#include "client/views/ApplicationRates.h"
#include "tests/client/PanelOnPaper.h"
#include "wire/Methods.h"

#include <gmock/gmock.h>

namespace meridal {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* interfaceAnswer = R"({"interfaces":[
    {"addresses":["127.0.0.1/8","::1/128"],"bytes":{"received":3267,"sent":3267},"downloadRate":0.0,"errors":{"received":0,"sent":0},
     "hardware":"Loopback","index":1,"interface":"lo","link":"up","primary":false,"uploadRate":0.0},
    {"addresses":[],"downloadRate":null,"hardware":"Virtual","index":2,"interface":"ifb0","link":"down","primary":false,"uploadRate":null},
    {"addresses":["192.0.2.2/24","fd00::2/64"],"bytes":{"received":165053581,"sent":141661},"downloadRate":2048.0,
     "drops":{"received":0,"sent":7},"hardware":"AirPort","index":4,"interface":"wlan0","link":"up","primary":true,"uploadRate":512.0,
     "wifi":{"name":"Home\u009b31m","bssid":"aa:bb:cc:dd:ee:ff"}}],
    "more":false,"networks":[],"primary":{"interface":"wlan0","router":"192.0.2.1"}})";

Result<Value> askedOfNetwork(const PanelQuestion& question)
{
    if (question.kind == PanelQuestion::Kind::List) {
        return json(
            R"({"download":[{"key":"29534","name":"curl\u001b]0;x\u0007","d":6606028,"u":2283}],"source":"bpf","type":"8","upload":[]})");
    }
    if (question.method == method::networkInterfaces) {
        return json(interfaceAnswer);
    }
    if (question.method == method::momentsAt) {
        return Value{{"time", question.parameters.at("time")},
            {"network",
                json(
                    R"([{"interface":"wlan0","station":"aa:bb:cc:dd:ee:ff","wifi":"Home","rates":{"received":4096.0,"sent":12.0}}])")}};
    }
    if (question.parameters.at("series") == "network/wlan0") {
        return json(
            R"({"values":["received","sent"],"samples":[{"time":1795413060,"values":[1000,24]},{"time":1795413300,"values":[0,0]}]})");
    }
    return unexpected(ErrorCode::NotFound, "no such series");
}

TEST(NetworkPanel, ShowsInterfacesAndWhoseTrafficItIs)
{
    PanelOnPaper panel(makeNetworkPanel(), askedOfNetwork);
    panel.pass(2);
    EXPECT_EQ(panel.text(80, 20),
        "INTERFACE     HARDWARE  LINK       DOWNLOAD      UPLOAD  LAST 10 MIN   TROUBLE\n"
        "wlan0         AirPort   up       2.00 KiB/s     512 B/s   ▄   ▁     █  7 dropped\n"
        "              Wi-Fi Home?31m (aa:bb:cc:dd:ee:ff)  router 192.0.2.1  192.0.2.2/24\n"
        "              fd00::2/64\n"
        "lo            Loopback  up            0 B/s       0 B/s             ▁\n"
        "              127.0.0.1/8  ::1/128\n"
        "ifb0          Virtual   down              -           -\n"
        "\n"
        "NETWORK  1 processes listed receive 3.15 MiB/s, send 1.11 KiB/s\n"
        "counted by the kernel\n"
        "     PID    RECEIVED        SENT  NAME\n"
        "   29534  3.15 MiB/s  1.11 KiB/s  curl?]0;x?\n");
    EXPECT_EQ(panel.text(40, 8),
        "INTERFACE         DOWNLOAD      UPLOAD\n"
        "wlan0           2.00 KiB/s     512 B/s\n"
        "  7 dropped\n"
        "  Wi-Fi Home?31m (aa:bb:cc:dd:ee:ff)\n"
        "  router 192.0.2.1  192.0.2.2/24\n"
        "  fd00::2/64\n"
        "lo                   0 B/s       0 B/s\n"
        "  127.0.0.1/8  ::1/128\n"
        "ifb0                     -           -\n"
        "  down\n"
        "\n"
        "NETWORK  1 processes listed receive 3.1…\n"
        "counted by the kernel\n"
        "     PID    RECEIVED        SENT  NAME\n"
        "   29534  3.15 MiB/s  1.11 KiB/s  curl?…\n");
    panel.type(U"t");
    EXPECT_THAT(panel.text(40, 8), AllOf(HasSubstr("curl?…"), Not(HasSubstr("wlan0"))));
    panel.showMoment(1.7e9);
    EXPECT_EQ(panel.text(80, 20),
        "INTERFACE     HARDWARE   LINK       DOWNLOAD      UPLOAD  TROUBLE\n"
        "wlan0                             4.00 KiB/s      12 B/s\n"
        "              Wi-Fi Home (aa:bb:cc:dd:ee:ff)\n");
    PanelOnPaper none(makeNetworkPanel(), [](const PanelQuestion&) { return json(R"({"interfaces":[]})"); });
    EXPECT_THAT(none.text(40, 8), StartsWith("no network interfaces on this machine\n"));
}

Value groupOf(const char* name, int user, double cpu, double written, double footprint = 4096)
{
    return {{"group", std::string("exe:/usr/bin/") + name}, {"kind", "application"}, {"name", name}, {"user", user},
        {"cpuUser", cpu}, {"cpuSystem", 0.0}, {"diskRead", 0}, {"diskWritten", written}, {"received", 0}, {"sent", 0},
        {"energyScore", 0.0}, {"footprint", footprint}, {"resident", 8192}, {"processes", 1}};
}

std::vector<std::string> namesOf(const std::vector<ApplicationRate>& rates)
{
    std::vector<std::string> names;
    for (const ApplicationRate& rate : rates) {
        names.push_back(text(rate.group, "name").value_or(""));
    }
    return names;
}

TEST(ApplicationRates, AreDifferencesOfWhatOnlyGrows)
{
    ApplicationRates rates;
    rates.take(Value());
    EXPECT_FALSE(rates.isKnown());
    Value kernel = groupOf("kernel", 0, 50, 0);
    kernel["kind"] = "kernel";
    rates.take({{"time", 100}, {"since", 1}, {"groups", {kernel, groupOf("cc", 0, 10, 0), groupOf("sh", 0, 5, 0)}}});
    EXPECT_FALSE(rates.ranked(ApplicationFigure::Cpu)[0].cpu) << "one reading is no rate";
    rates.take({{"time", 102}, {"groups", {groupOf("cc", 0, 13, 2048), groupOf("new", 0, 1, 0)}}});
    const auto ranked = rates.ranked(ApplicationFigure::Cpu);
    EXPECT_THAT(namesOf(ranked), testing::ElementsAre("cc", "new", "sh", "kernel"));
    EXPECT_EQ(ranked[0].cpu, 150);
    EXPECT_EQ(ranked[0].disk, 1024);
    EXPECT_EQ(ranked[1].cpu, 50) << "one that has come since has counted from zero";
    EXPECT_EQ(ranked[2].cpu, 0) << "what is not told of has not changed";
    rates.take({{"time", 104}, {"groups", Value::array()}, {"gone", {{{"group", "exe:/usr/bin/cc"}, {"user", 0}}}}});
    EXPECT_THAT(namesOf(rates.ranked(ApplicationFigure::Memory)), testing::ElementsAre("new", "sh", "kernel"));
    rates.take({{"time", 106}, {"since", 1}, {"groups", {groupOf("sh", 0, 6, 0)}}});
    EXPECT_EQ(rates.ranked(ApplicationFigure::Cpu)[0].cpu, 50);
    rates.take({{"time", 206}, {"since", 1}, {"groups", {groupOf("sh", 0, 90, 0)}}});
    EXPECT_FALSE(rates.ranked(ApplicationFigure::Cpu)[0].cpu) << "nobody looked for long";
    rates.take({{"time", 208}, {"since", 205}, {"groups", {groupOf("sh", 0, 91, 0)}}});
    EXPECT_FALSE(rates.ranked(ApplicationFigure::Cpu)[0].cpu) << "another daemon counts anew";
}

class Applications {
public:
    Result<Value> answer(const PanelQuestion& question)
    {
        latest = question;
        if (question.method == method::groupsWatch) {
            cpu += 3;
            return Value{{"time", 100 + cpu}, {"since", 1},
                {"groups",
                    {groupOf("cc\x1B", 0, cpu, 0), groupOf("sh", 0, 5, 1e6 * cpu), groupOf("sh", 1000, 5, 0, 1e9)}}};
        }
        if (question.method == method::momentsAt) {
            Value entry = groupOf("make", 0, 6, 6e5);
            entry["memory"] = 5e8;
            return Value{{"time", question.parameters.at("time")}, {"applicationsFrom", 1.7e9 - 30},
                {"applicationsUntil", 1.7e9 + 30}, {"applications", {entry}}};
        }
        Value group = groupOf("make", 1000, 480, 8192);
        group["memory"] = 4000;
        return Value{{"by", "cpu"}, {"groups", {group}}, {"more", false}};
    }
    double cpu = 0;
    PanelQuestion latest;
};

TEST(ApplicationsPanel, ShowsWhatIsUsedNowAndWhatWas)
{
    Applications daemon;
    PanelOnPaper panel(makeApplicationsPanel(), [&](const PanelQuestion& question) { return daemon.answer(question); });
    panel.pass(2);
    EXPECT_EQ(panel.text(80, 20),
        "used now, by cpu\n"
        "APPLICATION         CPU▾     MEMORY         DISK      NETWORK PROCESSES\n"
        "cc?              100.0 %   4.00 KiB            -            -         1\n"
        "sh (user 0)        0.0 %   4.00 KiB    977 KiB/s            -         1\n"
        "sh (user 1000)     0.0 %    954 MiB            -            -         1\n");
    EXPECT_EQ(panel.text(40, 8),
        "used now, by cpu\n"
        "APPLICATION         CPU▾     MEMORY\n"
        "cc?              100.0 %   4.00 KiB\n"
        "sh (user 0)        0.0 %   4.00 KiB\n"
        "sh (user 1000)     0.0 %    954 MiB\n");
    panel.press(Key::Kind::Right);
    EXPECT_THAT(
        panel.text(40, 8), StartsWith("used now, by memory\nAPPLICATION          CPU    MEMORY▾\nsh (user 1000) "));
    panel.type(U"w");
    EXPECT_EQ(daemon.latest.parameters.at("by"), "memory");
    EXPECT_EQ(daemon.latest.parameters.at("from"), 1'795'413'600 - 7 * 86'400 + 0);
    EXPECT_EQ(panel.text(80, 20),
        "used over the last week, by memory\n"
        "APPLICATION                                            MEMORY   SHARE\n"
        "make                         ████████████████████    3.91 KiB 100.0 %\n");
    panel.showMoment(1.7e9);
    EXPECT_EQ(daemon.latest.parameters.at("until"), 1.7e9);
    panel.type(U"l");
    EXPECT_EQ(panel.text(80, 20),
        "used at that moment, by memory\n"
        "APPLICATION         CPU    MEMORY▾         DISK      NETWORK    ENERGY PROCESSES\n"
        "make             10.0 %    477 MiB   9.77 KiB/s            -       0.0         -\n");
}

} // namespace
} // namespace meridal
