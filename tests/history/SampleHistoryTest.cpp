// SPDX-License-Identifier: Apache-2.0
// Rings, averages and threshold questions against a plain reference that keeps every raw sample and works each answer out
// from the definition.

#include "history/HistoryReader.h"
#include "history/SampleStorages.h"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

namespace meridal::test {
namespace {

constexpr SlotIndex newest{0};

struct RawSample {
    std::uint64_t sampleID = 0;
    double time = 0;
    std::vector<double> values; ///< absentFigure where there is none

    bool empty() const
    {
        return std::all_of(values.begin(), values.end(), [](double value) { return std::isnan(value); });
    }
};

double mean(const std::vector<RawSample>& visible, AverageWindow window, std::size_t value)
{
    double sum = 0;
    int count = 0;
    for (const RawSample& sample : visible) {
        const bool isInside = window.start <= 0 || (sample.time > window.start && sample.time <= window.end);
        if (isInside && !std::isnan(sample.values[value])) {
            sum += sample.values[value];
            ++count;
        }
    }
    return count == 0 ? absentFigure : sum / count;
}

bool stayed(const std::vector<RawSample>& visible, const ThresholdQuery& query, bool below)
{
    const auto passes = [&](const RawSample& sample) {
        const double sum = std::accumulate(sample.values.begin(), sample.values.end(), 0.0,
            [](double total, double value) { return std::isnan(value) ? total : total + value; });
        return below ? sum < query.threshold : sum >= query.threshold;
    };
    if (query.seconds < 0) {
        return passes(visible.front());
    }
    std::vector<RawSample> recent;
    std::copy_if(visible.begin(), visible.end(), std::back_inserter(recent),
        [&](const RawSample& sample) { return sample.time >= query.now - query.seconds; });
    if (!std::all_of(recent.begin(), recent.end(), passes)) {
        return false;
    }
    return recent.size() == visible.size() || (!recent.empty() && visible[recent.size()].time > 1.0);
}

bool isSame(double first, double second)
{
    return std::isnan(first) ? std::isnan(second) : std::abs(first - second) < 1e-9;
}

RC_GTEST_PROP(SampleHistory, RingAveragesAndThresholdsAgreeWithTheRawSamples, ())
{
    const auto slots = *rc::gen::inRange<std::size_t>(1, 16); // some are more than the first room
    const auto values = *rc::gen::inRange<std::size_t>(0, 4);
    SampleRing ring(slots, values);
    std::vector<RawSample> visible; // newest first
    double now = 1000;
    for (int count = *rc::gen::inRange(0, 40); count > 0; --count) {
        now += *rc::gen::inRange(0, 30) / 10.0;
        RawSample raw{*rc::gen::inRange<std::uint64_t>(1, 60), now, {}};
        for (std::size_t value = 0; value < values; ++value) {
            raw.values.push_back(*rc::gen::inRange(0, 4) == 0 ? absentFigure : *rc::gen::inRange(-20, 20));
        }
        ring.push(raw.sampleID, raw.time, raw.values);
        visible.insert(visible.begin(), raw);
    }
    visible.resize(slots, {0, 0, std::vector<double>(values, absentFigure)});
    for (std::size_t slot = 0; slot < slots; ++slot) {
        const statsample sample = ring[SlotIndex{slot}];
        RC_ASSERT(sample.sampleID == visible[slot].sampleID);
        RC_ASSERT(sample.time == visible[slot].time);
        RC_ASSERT(sample.empty == visible[slot].empty());
        RC_ASSERT(std::equal(sample.values.begin(), sample.values.end(), visible[slot].values.begin(), isSame));
    }
    const double end = now - *rc::gen::inRange(0, 12);
    const AverageWindow window{.start = end - *rc::gen::element(6.0, 1e9), .end = end};
    const SampleAverages averages = ring.averages(window);
    for (std::size_t value = 0; value < values; ++value) {
        const double found = averages.samples == 0 ? absentFigure : averages.figures()[value];
        RC_ASSERT(isSame(found, mean(visible, window, value)));
    }
    std::vector<std::size_t> indexes(values);
    std::iota(indexes.begin(), indexes.end(), std::size_t{0});
    for (const double seconds : {-1.0, 0.0, 2.0, 5.0, 20.0}) {
        for (const double threshold : {-20.0, 0.0, 20.0}) {
            const ThresholdQuery query{indexes, threshold, seconds, now};
            RC_ASSERT(ring.below(query) == stayed(visible, query, true));
            RC_ASSERT(ring.above(query) == stayed(visible, query, false));
        }
    }
}

// The ring itself, at its edges.

SampleRing ringWith(std::size_t slots, std::initializer_list<double> times)
{
    SampleRing ring(slots, 1);
    for (std::uint64_t sampleID = 1; const double time : times) {
        const double value = time * 2;
        ring.push(sampleID++, time, {&value, 1});
    }
    return ring;
}

TEST(SampleRing, TheOldestFallsOffWhenOneMoreComesThanThereAreSlots)
{
    for (const std::size_t slots : {1U, 2U, 4U}) {
        const SampleRing ring = ringWith(slots, {10, 20, 30, 40, 50}); // more than once around
        for (std::size_t slot = 0; slot < slots; ++slot) {
            EXPECT_EQ(ring[SlotIndex{slot}].sampleID, 5 - slot);
            EXPECT_EQ(ring[SlotIndex{slot}].values[0], 100 - 20 * static_cast<double>(slot));
        }
        EXPECT_FALSE(ring.find(5 - slots));
        EXPECT_TRUE(ring.find(6 - slots));
    }
}

TEST(SampleRing, TakesMemoryAsItFillsAndNeverMoreThanItsSlots)
{
    constexpr std::size_t slots = 365;
    constexpr std::size_t full = slots * (16 + 3 * sizeof(double));
    SampleRing ring(slots, 3);
    EXPECT_EQ(ring.memory(), 0U);
    for (std::uint64_t sampleID = 1; sampleID <= 2 * slots + 7; ++sampleID) {
        const auto time = static_cast<double>(sampleID);
        ring.push(sampleID, time, std::array{time, absentFigure, -time});
        ASSERT_LE(ring.memory(), std::min<std::uint64_t>(full, 320 + sampleID * 60)) << sampleID;
        const auto held = static_cast<double>(std::min<std::uint64_t>(sampleID, slots));
        const SampleAverages averages = ring.averages({}); // of all that is held, wherever the circle begins
        ASSERT_EQ(averages.samples, static_cast<std::size_t>(held));
        ASSERT_EQ(averages.newest, sampleID);
        ASSERT_DOUBLE_EQ(averages.values[0], time - (held - 1) / 2);
        ASSERT_DOUBLE_EQ(averages.values[2], (held - 1) / 2 - time);
        ASSERT_EQ(ring[SlotIndex{slots - 1}].sampleID, sampleID < slots ? 0 : sampleID - slots + 1);
    }
    EXPECT_EQ(ring.memory(), full);
}

TEST(SampleRing, AWindowTakesItsEndAndNotItsStart)
{
    const SampleRing ring = ringWith(4, {10, 20, 30, 40});
    EXPECT_EQ(ring.averages({.start = 10, .end = 30}).values[0], 50); // of 20 and 30
    EXPECT_EQ(ring.averages({.start = 10, .end = 30}).samples, 2U);
    EXPECT_EQ(ring.averages({.start = 9.9, .end = 29.9}).values[0], 30); // of 10 and 20
    EXPECT_EQ(ring.averages({.start = 40, .end = 50}).samples, 0U);
    EXPECT_EQ(ring.averages({.start = 0, .end = 10}).samples, 4U) << "no start takes all";
}

TEST(SampleRing, WhatIsLaterThanTheWindowOrEmptyIsPassedOver)
{
    SampleRing ring = ringWith(5, {10, 20, 990, 30}); // a clock that was ahead for a moment
    for (const double nonsense : {HUGE_VAL, -HUGE_VAL, absentFigure, 1e301}) {
        SampleRing other = ringWith(2, {10});
        other.push(5, 40, {&nonsense, 1});
        EXPECT_TRUE(other[newest].empty) << nonsense;
        EXPECT_EQ(other.averages({}).values[0], 20);
    }
    ring.push(5, 40, {});
    EXPECT_EQ(ring.averages({.start = 5, .end = 40}).values[0], 40); // of 10, 20 and 30
    EXPECT_EQ(ring.averages({.start = 15, .end = 40}).samples, 2U);
}

// The storages of one thing

TEST(SampleStorages, APeriodAveragesItsSourceAndForgivesLiveSamplesAMoment)
{
    SampleStorages storages(2);
    const auto add = [&](double time, std::optional<double> first, std::optional<double> second) {
        const std::array values = {first, second};
        storages.addSample(time, values);
    };
    add(994, 100, 100);
    add(995, 1, {});
    add(1000, 3, {});
    add(1000.9, 5, 8);
    add(1001, 100, 100);
    EXPECT_THAT(storages.averagesForIndex(StorageIndex::Hour, 1000).figures(), testing::ElementsAre(3, 8));
    EXPECT_EQ(storages.storageForType(StorageIndex::Live).newestID(), 5U);
    for (const auto& [sampleID, time] : {std::pair<std::uint64_t, double>{7, 1000}, {7, 1000.5}, {8, 1000.5}}) {
        storages.addSample(StorageIndex::Hour, sampleID, time, std::array{time});
    }
    EXPECT_EQ(storages.storageForType(StorageIndex::Hour)[SlotIndex{1}].time, 1000) << "what is not newer is dropped";
    EXPECT_EQ(storages.averagesForIndex(StorageIndex::Day, 1000).values[0], 1000) << "a stored sample is on time";
    EXPECT_TRUE(storages.averagesForIndex(StorageIndex::Day, 5000).figures().empty());
}

TEST(SampleStorages, StoredRowsGoBehindWhatHasComeSince)
{
    StoredStorage stored;
    stored.samples.rows = {{1, 10, false}, {2, 0, false}, {3, 30, false}, {4, 40, false}, {6, 60, false}};
    stored.items = {.rows = {{3, 30, false}, {3, 30, false}, {4, 40, false}},
        .values = {33, 99, 44},
        .lowest = {},
        .highest = {},
        .byKey = {{"fan", {0, 2}}, {"disk", {1}}},
        .valueCount = 1};
    SampleStorages storages(1);
    for (const std::uint64_t sampleID : {4U, 7U}) { // one that is stored by now, too
        storages.addSample(StorageIndex::Hour, sampleID, 10.0 * static_cast<double>(sampleID), std::array{70.0});
    }
    storages.addStoredRows(StorageIndex::Hour, stored, "nobody");
    EXPECT_EQ(storages.storageForType(StorageIndex::Hour)[SlotIndex{2}].sampleID, 0U);
    storages.addStoredRows(StorageIndex::Hour, stored, "fan");
    const SampleRing& ring = storages.storageForType(StorageIndex::Hour);
    std::vector<double> found;
    for (std::size_t slot = 0; slot < 5; ++slot) {
        const statsample sample = ring[SlotIndex{slot}];
        found.push_back(static_cast<double>(sample.sampleID) * 100 + (sample.empty ? 0 : sample.values[0]));
    }
    EXPECT_THAT(found, testing::ElementsAre(770, 600, 444, 333, 100)) << "a row without a time is none";
}

TEST(StorageConstants, AreThoseThatFilesAndClientsGoBy)
{
    const std::array<std::int64_t, storageCount> intervals{1, 6, 144, 1008, 4320, 12960, 25920, 52560, 300};
    const std::array<int, storageCount> sources{0, 0, 1, 1, 2, 2, 2, 2, 0};
    const std::array<std::string_view, storageCount> prefixes{
        "", "hour_", "day_", "week_", "month_", "threemonth_", "sixmonth_", "year_", ""};
    for (std::size_t place = 0; place < storageCount; ++place) {
        EXPECT_EQ(storageConstants[place].interval, intervals[place]) << place;
        EXPECT_EQ(static_cast<int>(storageConstants[place].historyIndex), sources[place]) << place;
        EXPECT_EQ(storageConstants[place].tablePrefix, prefixes[place]) << place;
    }
}

} // namespace
} // namespace meridal::test
