// SPDX-License-Identifier: Apache-2.0
#include "metrics/Metrics.h"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {
namespace {

/// A server of the usual size: what each of its chips, disks and batteries tells.
MetricsSnapshot usualMachine()
{
    MetricsSnapshot machine;
    machine.isUp = true;
    machine.sensors = Value::array();
    for (int core = 0; core < 9; ++core) {
        machine.sensors.push_back({{"chip", "coretemp-isa-0000"}, {"key", fmt::format("T{:03}", core)},
            {"name", fmt::format("Core {}", core)}, {"kind", "temperature"}, {"value", 40.0 + core}, {"low", nullptr},
            {"high", 100.0}, {"critical", 100.0}, {"fixed", true}, {"alarm", nullptr}});
    }
    for (int rail = 0; rail < 15; ++rail) {
        machine.sensors.push_back({{"chip", "nct6775-isa-0290"}, {"key", fmt::format("V{:03}", rail)},
            {"name", fmt::format("in{}", rail)}, {"kind", "voltage"}, {"value", 1.0}, {"low", 0.9}, {"high", 1.1},
            {"critical", nullptr}, {"fixed", rail < 5}, {"alarm", rail == 0 ? Value("high") : Value()}});
    }
    const std::vector<int> ids = {1, 3, 4, 5, 7, 9, 10, 12, 184, 187, 188, 190, 194, 197, 198, 199, 240, 241, 242};
    Value attributes = Value::array();
    for (const int id : ids) {
        attributes.push_back({{"id", id}, {"name", fmt::format("Attribute {}", id)}, {"current", 100.0},
            {"threshold", id < 12 && id != 4 ? 10.0 : 0.0}, {"raw", 1}, {"value", 1.0}});
    }
    machine.disks = Value::array();
    for (const char* device : {"sda", "sdb", "sdc", "sdd"}) {
        machine.disks.push_back({{"key", device}, {"bsd", device}, {"kind", "ata"}, {"model", "M"}, {"serial", device},
            {"firmware", "1"}, {"healthy", true}, {"state", device == std::string_view("sdd") ? "asleep" : "awake"},
            {"temperature", 34}, {"powerOn", 3600.0}, {"powerCycles", 5.0}, {"bytesRead", 1e12}, {"bytesWritten", 1e12},
            {"time", 1700000000.0}, {"attributes", attributes}});
    }
    machine.machine = {{"cpu", {{"user", 12.5}, {"load1", 0.5}}}, {"memory", {{"total", 1000}, {"oomkills", 2}}},
        {"pressure", {{"cpusome", 3.5}, {"iofull", 0.0}}},
        {"disks", Value::array({{{"name", "sda"}, {"readtime", 0.5}, {"busy", 50.0}}})},
        {"network", {{"eth0", {{"received", 10.5}}}}}, {"gpus", {{"card0", {{"memoryUsed", 5}, {"memoryTotal", 9}}}}},
        {"fileSystems", Value::array({{{"mount", "/"}, {"device", "/dev/sda1"}, {"type", "ext4"}, {"total", 1000}}})}};
    return machine;
}

std::string textOf(const MetricsSnapshot& machine, const MetricsOptions& options = {})
{
    return metricsText(machine, options, MetricsFormat::Prometheus);
}

TEST(Metrics, AUsualMachineStaysWithinItsSeries)
{
    const std::string text = textOf(usualMachine());
    const auto series = std::count(text.begin(), text.end(), '\n') - std::count(text.begin(), text.end(), '#');
    EXPECT_LE(series, 220) << "beside those of 50 applications";
    for (const char* line : {"\nmeridal_sensor_limit_celsius{chip=\"coretemp-isa-0000\",sensor=\"T008\",label=\"Core "
                             "8\",limit=\"critical\"} 100\n",
             "\nmeridal_sensor_alarm{chip=\"nct6775-isa-0290\",sensor=\"V000\",label=\"in0\",alarm=\"high\"} 1\n",
             "\nmeridal_disk_celsius{disk=\"sdc\"} 34\n",
             "\nmeridal_smart_attribute_threshold{disk=\"sda\",id=\"5\",name=\"Attribute 5\"} 10\n",
             "\nmeridal_pressure_ratio{resource=\"cpu\",kind=\"some\"} 0.035\n",
             "\nmeridal_machine_memory_kills_total 2\n", "\nmeridal_metrics_dropped_series 0\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    }
    for (const char* absent : {"disk_celsius{disk=\"sdd\"", "sensor=\"V005\",label=\"in5\",limit", "machine_cpu",
             "resource=\"memory\"", "alarm=\"low\""}) {
        EXPECT_EQ(text.find(absent), std::string::npos) << absent;
    }
}

TEST(Metrics, TheMachinesOwnFiguresComeWhenAskedFor)
{
    const std::string text = textOf(usualMachine(), {.all = true});
    for (const char* line : {"\nmeridal_machine_cpu_ratio{mode=\"user\"} 0.125\n", "\nmeridal_machine_load1 0.5\n",
             "\nmeridal_machine_memory_bytes{kind=\"total\"} 1000\n",
             "\nmeridal_machine_disk_read_latency_seconds{device=\"sda\"} 0.0005\n",
             "\nmeridal_machine_network_received_bytes_per_second{interface=\"eth0\"} 10.5\n",
             "\nmeridal_machine_gpu_memory_bytes{gpu=\"card0\",kind=\"total\"} 9\n",
             "\nmeridal_machine_filesystem_size_bytes{mount=\"/\",device=\"/dev/sda1\",type=\"ext4\"} 1000\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    }
}

TEST(Metrics, AnswersOfAnyShapeAreLeftOut)
{
    MetricsSnapshot odd = usualMachine();
    for (Value* answer : {&odd.sensors, &odd.disks, &odd.battery, &odd.machine, &odd.status, &odd.interfaces}) {
        *answer =
            Value::array({Value::object({{"key", 5}, {"kind", Value::array()}, {"attributes", "none"}}), 7, nullptr});
    }
    EXPECT_NE(textOf(odd, {.all = true}).find("\nmeridal_up 1\n"), std::string::npos);
    odd.machine = {{"disks", 5}, {"network", Value::array({1})}, {"cpu", "much"}, {"memory", {{"total", "all"}}}};
    EXPECT_EQ(textOf(odd, {.all = true}).find("meridal_machine"), std::string::npos);
    EXPECT_EQ(textOf({}), "# HELP meridal_up Whether the daemon answered.\n# TYPE meridal_up gauge\nmeridal_up 0\n");
}

} // namespace
} // namespace meridal
