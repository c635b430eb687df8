// SPDX-License-Identifier: Apache-2.0
#include "metrics/Backfill.h"
#include "metrics/RecordedFamilies.h"
#include "metrics/RecordedSamples.h"

#include "wire/Methods.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace meridal {
namespace {

Value listed(const char* collector, const char* key, const char* unit, Value values = Value::array({"value"}))
{
    const std::string series = std::string(collector) + (*key ? "/" : "") + key;
    return {{"series", series}, {"collector", collector}, {"key", key}, {"name", "N"}, {"origin", "sda"},
        {"unit", unit}, {"values", std::move(values)}};
}

/// "family{labels} of series column" of all that has figures.
std::vector<std::string> familiesOf(const Value& series, const MetricsSnapshot& now, bool all)
{
    std::vector<std::string> told;
    for (const RecordedFamily& family : recordedFamilies(series, now, all)) {
        for (const BackfilledFigure& figure : family.figures) {
            told.push_back(
                std::string(family.family.name) + figure.labels + " of " + figure.series + " " + figure.column);
        }
    }
    return told;
}

TEST(RecordedFamilies, AreCalledAsTheFiguresOfNow)
{
    MetricsSnapshot now;
    now.sensors = Value::array({{{"key", "T001"}, {"chip", "drivetemp-scsi-0-0"}, {"name", "Disk"}}});
    now.battery = {{"primary", "B1"}};
    const Value series = Value::array({listed("sensors", "T001", "°C"), listed("sensors", "T002", "°C"),
        listed("sensors", "X001", "?"), listed("battery", "charge", "%"), listed("load", "", "", {"load1", "load5"}),
        listed("throughput", "sda", "B/s", {"readbytes", "writtenbytes"}), listed("pressure", "", "%", {"cpusome"}),
        listed("later", "", "%"), Value::object(), 7});
    EXPECT_EQ(familiesOf(series, now, false),
        (std::vector<std::string>{
            "sensor_celsius{chip=\"drivetemp-scsi-0-0\",sensor=\"T001\",label=\"Disk\"} of sensors/T001 value",
            "sensor_celsius{chip=\"sda\",sensor=\"T002\",label=\"N\"} of sensors/T002 value",
            "battery_charge_ratio{battery=\"B1\"} of battery/charge value",
            "pressure_ratio{resource=\"cpu\",kind=\"some\"} of pressure cpusome",
            "pressure_ratio{resource=\"memory\",kind=\"some\"} of pressure memorysome",
            "pressure_ratio{resource=\"memory\",kind=\"full\"} of pressure memoryfull",
            "pressure_ratio{resource=\"io\",kind=\"some\"} of pressure iosome",
            "pressure_ratio{resource=\"io\",kind=\"full\"} of pressure iofull"}));
    const auto all = familiesOf(series, now, true);
    EXPECT_EQ(all.back(), "machine_disk_written_bytes_per_second{device=\"sda\"} of throughput/sda writtenbytes");
    EXPECT_EQ(all.size(), 8 + 3 + 2) << "a column that the daemon does not name is asked for in vain";
    const Value several = Value::array(
        {listed("battery", "power", "W"), listed("battery", "power/B1", "W"), listed("battery", "power/B2", "W")});
    EXPECT_EQ(familiesOf(several, now, false),
        (std::vector<std::string>{"battery_watts{battery=\"B1\"} of battery/power/B1 value",
            "battery_watts{battery=\"B2\"} of battery/power/B2 value"}))
        << "their sum is nobody's";
}

/// A record of one series: by resolution its samples, of which a page has two.
struct ScriptedRecord {
    std::map<std::string, std::vector<std::pair<double, Value>>> samples;
    std::vector<std::string> asked;

    MetricsCaller caller()
    {
        return [this](const std::string& method, const Value& parameters, const auto& reply) {
            EXPECT_EQ(method, std::string(method::historySamples));
            reply(page(parameters.at(0)));
        };
    }

    Value page(const Value& question)
    {
        const std::string resolution = question.at("resolution");
        asked.push_back(resolution);
        Value rows = Value::array();
        const auto& all = samples[resolution];
        std::size_t place = question.value("before", all.size());
        while (place > 0 && rows.size() < 2) {
            const auto& [time, value] = all[--place];
            if (time >= question.at("from") && time < question.at("until")) {
                const Value row = {{"time", time}, {"values", Value::array({value, 1})}};
                rows.insert(rows.begin(), row);
            }
        }
        return {{"samples", rows}, {"values", {"value", "other"}}, {"more", place > 0}, {"next", place}};
    }
};

TEST(RecordedSamples, ComeInTheFinestResolutionOfEachMomentAndInOrder)
{
    constexpr double now = 1'000'000;
    ScriptedRecord record;
    record.samples["hour"] = {{now - 20, 7}, {now - 14, nullptr}, {now - 8, 9}};
    record.samples["day"] = {{now - 300, 5}, {now - 156, 6}, {now - 12, 99}};
    record.samples["longterm"] = {{now - 900, 1}, {now - 1200, 0}, {now - 900, 2}, {now - 600, 3}, {now - 300, 99}};
    const auto read = [&](double from, double until) {
        std::vector<std::pair<double, double>> told;
        record.asked.clear();
        readRecordedSamples(record.caller(), "s", from, until, now, [&](const Result<RecordedSamples>& samples) {
            ASSERT_TRUE(samples.has_value());
            EXPECT_EQ(samples->series(), "s");
            samples->forEach("value",
                [&](double time, double value) { told.emplace_back(time - now, std::isnan(value) ? -1 : value); });
            samples->forEach("none", [](double, double) { FAIL(); });
        });
        return told;
    };
    const auto whole = read(now - 5000, now);
    ASSERT_EQ(whole.size(), 8U);
    EXPECT_EQ(whole[0], std::pair(-1200.0, 0.0));
    EXPECT_EQ(whole[1].first, -900) << "once, though a clock that was set back left two";
    EXPECT_EQ((std::vector(whole.begin() + 2, whole.end())),
        (std::vector<std::pair<double, double>>{{-600, 3}, {-300, 5}, {-156, 6}, {-20, 7}, {-14, -1}, {-8, 9}}));
    EXPECT_TRUE(read(now - 5e6, now - 4e6).empty());
    EXPECT_EQ(record.asked, std::vector<std::string>{"longterm"}) << "the others do not reach so far";
}

TEST(Backfill, AFailureLeavesATextWithoutAnEnd)
{
    std::string text;
    std::optional<Error> failure;
    const MetricsCaller caller = [](const std::string& method, const Value&, const auto& reply) {
        if (method == method::historySeries) {
            return reply(unexpected(ErrorCode::Internal, "the record cannot be read now"));
        }
        reply(Value::object());
    };
    askBackfill(
        caller, {.from = 1, .until = 2, .now = 3, .options = {}},
        [&](const std::string& piece) {
            text += piece;
            return true;
        },
        [&](const Result<void>& result) { failure = result ? std::optional<Error>() : result.error(); });
    EXPECT_EQ(failure, (Error{ErrorCode::Internal, "the record cannot be read now"}));
    EXPECT_EQ(text, "");
}

} // namespace
} // namespace meridal
