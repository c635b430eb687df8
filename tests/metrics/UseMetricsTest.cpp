// SPDX-License-Identifier: Apache-2.0
// What applications, traffic, Wi-Fi and boots become. The answers are those of a daemon on Debian 12 in which two programs of one
// name ran (a folder renamed, some entries left out); boots and networks, of which that machine had one and none, are extended.

#include "metrics/MetricFamilies.h"

#include <gmock/gmock.h>

#include <initializer_list>
#include <vector>

namespace meridal {
namespace {

using testing::HasSubstr;
using testing::Not;

Value recorded(const char* answer) { return parseUntrusted(answer).value(); }

MetricsSnapshot used()
{
    MetricsSnapshot snapshot;
    snapshot.isUp = true;
    snapshot.status = recorded(R"({"capture":{"droppedFrames":0,"elsewhereBytes":0.0,"frames":56,"kernelBytes":0.0,
        "method":"packets","owners":{"kernel":{"received":0,"sent":0},"process":{"received":133002,"sent":133002},
        "unattributed":{"received":0,"sent":0}},"processBytes":266004.0,"recorded":true,"source":"bpf",
        "unattributedBytes":0.0,"unattributedPercent":0.0}})");
    snapshot.groups = recorded(R"({"groups":[
        {"cpuSystem":1.506,"cpuUser":6.192,"diskRead":0,"diskWritten":97759232,"ended":304,"energyScore":1040.014,
         "group":"other","kind":"other","name":"other","processes":92,"processesPeak":92,"received":133002,
         "resident":1439281152,"sent":133002,"started":322,"wakeups":5405},
        {"cpuSystem":0.078,"cpuUser":0.0,"diskRead":0,"diskWritten":122880,"ended":0,"energyScore":141.137,
         "group":"kernel","kind":"kernel","name":"kernel","processes":59,"received":0,"resident":0,"sent":0},
        {"cpuSystem":0.228,"cpuUser":4.695,"diskRead":0,"diskWritten":2002944,"ended":2,"energyScore":492.625,
         "group":"exe:/opt/trixie/usr/bin/cmake","kind":"application","name":"cmake","processes":14,"received":0,
         "resident":1260535808,"sent":0,"started":2,"user":0,"wakeups":6},
        {"cpuSystem":2.802,"cpuUser":15.86,"diskRead":0,"diskWritten":12251136,"ended":49,"energyScore":1876.701,
         "group":"exe:/usr/bin/cmake","kind":"application","name":"cmake","processes":44,"received":0,
         "resident":2436632576,"sent":0,"started":53,"user":0,"wakeups":211},
        {"cpuSystem":0.93,"cpuUser":4.512,"diskRead":1048576,"group":"unit:nginx.service","joules":2.5,
         "kind":"application","name":"nginx","processes":5,"resident":20971520,"user":33}],
        "more":false,"since":1795391591.4682875,"source":"bpf","time":1795391620.059459})");
    snapshot.boots = recorded(R"({"availability":0.998,"boots":[
        {"asleep":0.0,"boot":1795318354.0,"end":"running","length":73266.0,"shutdown":null,"started":1795318354.0},
        {"asleep":0.0,"boot":1795300000.0,"end":"crash","length":18000.0,"shutdown":null,"started":1795300000.0}],
        "current":{"asleep":12.5,"boot":1795318354.0,"started":1795318355.0,"uptime":73266.05994224548},
        "ends":{"asleep":1,"crash":2,"orderly":7},"longest":73266.05994224548,"more":true})");
    snapshot.interfaces = recorded(R"({"interfaces":[],"more":false,"networks":[
        {"bssid":"aa:aa:aa:aa:aa:aa","received":60,"sent":6},{"name":"Caf\"e","received":1,"sent":4000000}],
        "primary":{"interface":"eth0"}})");
    return snapshot;
}

std::string written(const MetricsSnapshot& snapshot, const MetricsOptions& options = {})
{
    MetricsWriter writer(MetricsFormat::Prometheus);
    writeGroupMetrics(writer, snapshot);
    writeTrafficMetrics(writer, snapshot);
    writeNetworkMetrics(writer, snapshot, options);
    writeUptimeMetrics(writer, snapshot);
    EXPECT_EQ(writer.dropped(), 0U) << "no two have the same labels";
    return writer.finish();
}

TEST(UseMetrics, AreToldUnderNamesThatStayAndAreNobodyElses)
{
    const std::string text = written(used());
    for (const char* line :
        {
            R"(meridal_groups_since_timestamp_seconds 1795391591.4682875)",
            R"(meridal_group_cpu_seconds_total{group="other",identity="other",unit="",user=""} 7.698)",
            R"(meridal_group_cpu_seconds_total{group="cmake",identity="exe:/opt/trixie/usr/bin/cmake",unit="",user="0"} 4.923)",
            R"(meridal_group_cpu_seconds_total{group="cmake",identity="exe:/usr/bin/cmake",unit="",user="0"} 18.662)",
            R"(meridal_group_read_bytes_total{group="nginx",identity="unit:nginx.service",unit="nginx.service",user="33"} 1048576)",
            R"(meridal_group_joules_total{group="nginx",identity="unit:nginx.service",unit="nginx.service",user="33"} 2.5)",
            R"(meridal_group_processes{group="kernel",identity="kernel",unit="",user=""} 59)",
            R"(meridal_traffic_bytes_total{owner="process",direction="received"} 133002)",
            R"(meridal_traffic_bytes_total{owner="unattributed",direction="sent"} 0)",
            R"(meridal_wifi_received_bytes_total{network="aa:aa:aa:aa:aa:aa"} 60)",
            R"(meridal_wifi_sent_bytes_total{network="Caf\"e"} 4000000)",
            R"(meridal_boot_time_seconds 1795318355)",
            R"(meridal_asleep_seconds_total 12.5)",
            R"(meridal_availability_ratio 0.998)",
            R"(meridal_boots{end="orderly"} 7)",
            R"(meridal_previous_boot_unexpected 1)",
        }) {
        EXPECT_THAT(text, HasSubstr(std::string(line) + '\n'));
    }
    EXPECT_THAT(text, Not(HasSubstr("meridal_group_joules_total{group=\"cmake\""))) << "absent is not 0";
}

TEST(UseMetrics, OfWhatIsNotToldNothingIsWritten)
{
    EXPECT_EQ(written({}), "");
    MetricsSnapshot first = used();
    first.boots["boots"].erase(1);
    first.status["capture"].erase("owners");
    const std::string text = written(first, {.wifiNames = false});
    EXPECT_THAT(text, Not(HasSubstr("previous_boot")));
    EXPECT_THAT(text, Not(HasSubstr("traffic")));
    EXPECT_THAT(text, HasSubstr("meridal_wifi_received_bytes_total{network=\"\"} 61\n"));
}

TEST(MetricsQuestions, MakeTheDaemonReadNothingMoreOften)
{
    std::vector<std::string> active;
    Value groups;
    const MetricsCaller caller = [&](const std::string& method, const Value& parameters, const auto& reply) {
        const bool isPassive = !parameters.empty() && parameters[0].value("passive", false);
        if (!isPassive) {
            active.push_back(method);
        }
        groups = method == "groups.totals" ? parameters : groups;
        reply(Value::object());
    };
    askMetrics(caller, {.groups = 9999}, [](const MetricsSnapshot& snapshot) { EXPECT_TRUE(snapshot.isUp); });
    EXPECT_THAT(active, testing::ElementsAre("disks.list", "network.interfaces"))
        << "which are answered from readings anyway";
    EXPECT_EQ(groups, Value::array({{{"largest", 512}, {"passive", true}}}));
}

} // namespace
} // namespace meridal
