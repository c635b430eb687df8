#include "base/Value.h"
#include "tests/process/ProcessFixture.h"

namespace meridal {
namespace {

class ProcessListsTest : public test::ProcessFixture {
protected:
    ProcessListsTest()
    {
        set({{1, 0, "launchd"}, {10, 1, "app"}, {11, 10, "helper"}, {12, 1, "tool"}});
        for (auto& each : source().rows) {
            each.diskBytesRead = each.diskBytesWritten = 1;
        }
        update();
        use(10, 1, 100);
        use(11, 4, 300);
        use(12, 3, 200);
        updateAfter(2);
    }
    void use(std::int32_t pid, std::uint64_t tenths, std::uint64_t bytes)
    {
        row(pid).userTime += tenths * second / 10;
        row(pid).physFootprint = bytes;
        row(pid).diskBytesRead += bytes;
    }
    static std::vector<std::string> keys(const std::string& json, const char* list)
    {
        const Value parsed = Value::parse(json);
        std::vector<std::string> result;
        for (const Value& entry : parsed.at(list)) {
            result.push_back(entry.at("key").get<std::string>());
        }
        return result;
    }
    using Keys = std::vector<std::string>;
};

TEST_F(ProcessListsTest, EachListHasItsShape)
{
    collector().setSharingProcessCPUCount(1);
    collector().setSharingProcessMemoryCount(1);
    collector().setSharingProcessDiskActivityCount(1);
    collector().setSharingProcessNetworkCount(1);
    collector().setSharingProcessPowerCount(1);
    collector().processCachePacket({.pid = 12, .downloadBytes = 70, .uploadBytes = 5});
    const double now = machine.runtime.wallTime();

    EXPECT_EQ(Value::parse(collector().cpuProcesses(false)),
        Value::parse(R"({"type":"1","processes":[{"key":"11","name":"helper","c":"20.00"}]})"));
    EXPECT_EQ(Value::parse(collector().memoryProcesses(true)),
        Value::parse(R"({"type":"2","processes":[{"key":"10","name":"app","m":"400"}],
                         "processes-footprint":[{"key":"10","name":"app","m":"400"}]})"));
    EXPECT_EQ(Value::parse(collector().powerProcesses(false)),
        Value::parse(R"({"type":"16","processes":[{"key":"11","name":"helper","score":"20.00","bundle":""}]})"));
    EXPECT_EQ(Value::parse(collector().diskActivityProcesses(true)),
        Value::parse(R"({"type":"4","read":[{"key":"10","name":"app","r":200.0,"w":0.0}],
                         "write":[{"key":"1","name":"launchd","r":0.0,"w":0.0}]})"));
    Dictionary disk = Value::parse(collector().diskActivityProcesses2(false));
    EXPECT_EQ(disk["read"][0], Value({{"key", "11"}, {"name", "helper"}, {"r", 150.0}, {"t", now}}));
    EXPECT_EQ(disk["write"][0], Value({{"key", "1"}, {"name", "launchd"}, {"w", 0.0}, {"t", 0.0}}));
    const Dictionary shares{{"kernel", {{"d", 1.5}}}};
    Dictionary network = Value::parse(collector().networkProcesses(false, shares));
    EXPECT_EQ(network["type"], "8");
    EXPECT_EQ(network["kernel"], shares["kernel"]);
    EXPECT_EQ(network["upload"][0], Value({{"key", "12"}, {"name", "tool"}, {"d", 70.0}, {"u", 5.0}}));
    network = Value::parse(collector().networkProcesses2(false, {}));
    EXPECT_EQ(network["download"][0], Value({{"key", "12"}, {"name", "tool"}, {"d", 70.0}, {"u", 5.0}, {"t", now}}));
}

TEST_F(ProcessListsTest, RanksLargestFirstAndEqualOnesInTableOrder)
{
    EXPECT_EQ(keys(collector().cpuProcesses(false), "processes"), Keys({"11", "12", "10", "1"}));
    EXPECT_EQ(keys(collector().cpuProcesses(true), "processes"), Keys({"10", "12", "1"}));
    updateAfter(2); // everybody idle
    for (const std::int32_t limit : {4, 100}) {
        collector().setSharingProcessCPUCount(limit);
        EXPECT_EQ(keys(collector().cpuProcesses(false), "processes"), Keys({"1", "10", "11", "12"}));
    }
    for (const std::int32_t limit : {0, -3}) {
        collector().setSharingProcessCPUCount(limit);
        EXPECT_EQ(keys(collector().cpuProcesses(false), "processes"), Keys());
    }
}

TEST_F(ProcessListsTest, IdleDiskUsersRankByTheirLastActivity)
{
    pass(12, {.read = 10});
    pass(11, {.read = 10});
    updateAfter(2);
    EXPECT_EQ(keys(collector().diskActivityProcesses(false), "read"), Keys({"11", "12", "10", "1"}));
    pass(1, {.read = 10});
    EXPECT_EQ(keys(collector().diskActivityProcesses(false), "read"), Keys({"1", "11", "12", "10"}));
}

TEST_F(ProcessListsTest, EnergyListsEverybody)
{
    for (std::int32_t pid = 100; pid < 1100; ++pid) {
        set(pid);
    }
    updateAfter(2);
    EXPECT_EQ(Value::parse(collector().powerProcesses(false))["processes"].size(), 1004u);
}

TEST_F(ProcessListsTest, NamesPidsForClients)
{
    EXPECT_EQ(collector().infoForPids(Value::array()), Value::array());
    EXPECT_EQ(collector().infoForPids(Value({{"not", "an array"}})), Value::array());
    const Value asked = Value::parse(R"([12, 99, "10", 10.0, -1, 1e300, 18446744073709551615, null, [11], 11])");
    EXPECT_EQ(collector().infoForPids(asked).dump(),
        R"([{"name":"tool","pid":12},{"name":"app","pid":10.0},{"name":"helper","pid":11}])");
}

} // namespace
} // namespace meridal
