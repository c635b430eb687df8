// SPDX-License-Identifier: Apache-2.0
#include "base/Value.h"
#include "tests/process/ProcessFixture.h"
#include "wire/RequestKey.h"

namespace meridal {
namespace {

class ProcessListsTest : public test::ProcessFixture {
protected:
    ProcessListsTest()
    {
        set({{1, 0, "launchd"}, {10, 1, "app"}, {11, 10, "helper"}, {12, 1, "tool"}});
        update();
        use(10, 0.1, 100);
        use(11, 0.4, 300);
        use(12, 0.3, 200);
        updateAfter(2);
    }
    void use(std::int32_t pid, double cpu, std::uint64_t bytes)
    {
        source().work(pid, {.cpu = cpu, .read = bytes});
        row(pid).physFootprint = bytes;
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
    collector().setSharingCounts({1, 1, 1, 1, 1});
    collector().processCachePacket({.pid = 12, .downloadBytes = 70, .uploadBytes = 5});
    const double now = machine.runtime.wallTime();

    EXPECT_EQ(Value::parse(collector().cpuProcesses({})),
        Value::parse(R"({"type":"1","processes":[{"key":"11","name":"helper","c":"20.00"}]})"));
    EXPECT_EQ(Value::parse(collector().memoryProcesses({.grouped = true})),
        Value::parse(R"({"type":"2","processes":[{"key":"10","name":"app","m":"400"}],
                         "processes-footprint":[{"key":"10","name":"app","m":"400"}]})"));
    EXPECT_EQ(Value::parse(collector().powerProcesses({})),
        Value::parse(R"({"type":"16","processes":[{"key":"11","name":"helper","score":"20.00","bundle":""}]})"));
    EXPECT_EQ(Value::parse(collector().diskActivityProcesses({.grouped = true})),
        Value::parse(R"({"type":"4","read":[{"key":"10","name":"app","r":200.0,"w":0.0}],
                         "write":[{"key":"1","name":"launchd","r":0.0,"w":0.0}]})"));
    Dictionary disk = Value::parse(collector().diskActivityProcesses2({}));
    EXPECT_EQ(disk["read"][0], Value({{"key", "11"}, {"name", "helper"}, {"r", 150.0}, {"t", now}}));
    EXPECT_EQ(disk["write"][0], Value({{"key", "1"}, {"name", "launchd"}, {"w", 0.0}, {"t", 0.0}}));
    const Dictionary shares{{"kernel", {{"d", 1.5}}}};
    Dictionary network = Value::parse(collector().networkProcesses({}, shares));
    EXPECT_EQ(network["type"], "8");
    EXPECT_EQ(network["kernel"], shares["kernel"]);
    EXPECT_EQ(network["upload"][0], Value({{"key", "12"}, {"name", "tool"}, {"d", 70.0}, {"u", 5.0}}));
    network = Value::parse(collector().networkProcesses2({}, {}));
    EXPECT_EQ(network["download"][0], Value({{"key", "12"}, {"name", "tool"}, {"d", 70.0}, {"t", now}}));
}

TEST_F(ProcessListsTest, RanksLargestFirstAndEqualOnesInTableOrder)
{
    EXPECT_EQ(keys(collector().cpuProcesses({}), "processes"), Keys({"11", "12", "10", "1"}));
    EXPECT_EQ(keys(collector().cpuProcesses({.grouped = true}), "processes"), Keys({"10", "12", "1"}));
    updateAfter(2); // everybody idle
    for (const std::int32_t limit : {4, 100}) {
        collector().setSharingCounts({.sharingProcessCPUCount = limit});
        EXPECT_EQ(keys(collector().cpuProcesses({}), "processes"), Keys({"1", "10", "11", "12"}));
    }
    for (const std::int32_t limit : {0, -3}) {
        collector().setSharingCounts({.sharingProcessCPUCount = limit});
        EXPECT_EQ(keys(collector().cpuProcesses({}), "processes"), Keys());
    }
    for (std::int32_t pid = 100; pid < 1100; ++pid) {
        set(pid);
    }
    updateAfter(2);
    EXPECT_EQ(keys(collector().powerProcesses({}), "processes").size(), 1004U) << "everybody";
}

TEST_F(ProcessListsTest, IdleDiskUsersRankByTheirLastActivity)
{
    pass(12, {.read = 10});
    pass(11, {.read = 10});
    updateAfter(2);
    EXPECT_EQ(keys(collector().diskActivityProcesses({}), "read"), Keys({"11", "12", "10", "1"}));
    pass(1, {.read = 10});
    EXPECT_EQ(keys(collector().diskActivityProcesses({}), "read"), Keys({"1", "11", "12", "10"}));
}

TEST_F(ProcessListsTest, RatesThatNobodyKnowsAreNotZero)
{
    ProcessStatCollector early(machine.context);
    early.setUpdateMask(test::everyList);
    const auto sizes = [&] {
        early.update();
        return std::vector{keys(early.memoryProcesses({}), "processes").size(),
            keys(early.diskActivityProcesses({}), "read").size(),
            keys(early.diskActivityProcesses2({.grouped = true}), "write").size(),
            keys(early.powerProcesses({}), "processes").size()};
    };
    EXPECT_THAT(sizes(), testing::ElementsAre(4, 0, 0, 0));
    machine.runtime.advance(2);
    EXPECT_THAT(sizes(), testing::ElementsAre(4, 4, 3, 4));
    for (const std::uint32_t wanted : {mask(RequestKey::Memory), test::everyList}) {
        early.setUpdateMask(wanted);
        machine.runtime.advance(2);
        EXPECT_THAT(sizes(), testing::ElementsAre(4, 4, 3, 0)) << "scores of before a pause are none";
    }

    set({{13, 1, "young"}, {14, 1, "unreadable"}});
    row(14).present = ProcessFields::Cpu;
    machine.runtime.advance(2);
    early.update();
    EXPECT_EQ(keys(early.memoryProcesses({}), "processes"), Keys({"11", "12", "10", "1", "13", "14"}));
    EXPECT_EQ(keys(early.cpuProcesses({}), "processes"), Keys({"1", "10", "11", "12", "13", "14"}))
        << "behind the idle";
}

TEST_F(ProcessListsTest, NamesPidsForClients)
{
    const auto info = [this](const Value& pids, bool mayShow = true) {
        return collector().infoForPids(pids, [&](std::int32_t pid) { return mayShow || pid == 11; }).dump();
    };
    EXPECT_EQ(info(Value::array()) + info(Value({{"not", "an array"}})), "[][]");
    const Value asked = Value::parse(R"([12, 99, "10", 10.0, -1, 1e300, 18446744073709551615, null, [11], 11])");
    EXPECT_EQ(info(asked), R"([{"name":"tool","pid":12},{"name":"app","pid":10.0},{"name":"helper","pid":11}])");
    EXPECT_EQ(info(asked, false), R"([{"name":"helper","pid":11}])");

    set({{20, 1, "a-desktop-portal"}, {21, 1, "young"}, {22, 1, "a-desktop-portal"}});
    source().paths = {{20, "/usr/a-desktop-portal-gtk"}, {22, "/usr/a-desktop-portal-gnome"}};
    const char* full = R"([{"name":"a-desktop-portal-gtk","pid":20},{"name":"young","pid":21}])";
    EXPECT_EQ(info({20, 21}), full) << "younger than the table";
    EXPECT_EQ(info({22}, false), "[]");
    updateAfter(2);
    EXPECT_EQ(info({20, 21}), full) << "in no list so far";
    EXPECT_EQ(info({22}), R"([{"name":"a-desktop-portal-gnome","pid":22}])");

    source().looks = 0;
    Value many = Value::array();
    for (int pid = 10'000; pid < 12'000; ++pid) {
        many.push_back(pid);
    }
    EXPECT_EQ(info(many), "[]");
    EXPECT_LE(source().looks, 300);
}

} // namespace
} // namespace meridal
