// Rings, averages, threshold questions and gap filling against a plain reference that keeps every raw sample and works
// each answer out from the definition.

#include "tests/collectors/RecordingCollector.h"

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace meridal::test {
namespace {

struct RawSample {
    std::uint64_t sampleID = 0;
    double time = 0;
    bool empty = true;
    std::vector<double> values;
};

/// Takes a sample into the list of all that were accepted, newest first.
void accept(std::vector<RawSample>& all, const RawSample& sample, bool numbered)
{
    const std::uint64_t last = all.empty() ? 0 : all.front().sampleID;
    if (!numbered || sample.sampleID > last) {
        all.insert(all.begin(), sample);
        all.front().sampleID = numbered ? sample.sampleID : last + 1;
    }
}

double mean(const std::vector<RawSample>& visible, double after, double until, std::size_t value)
{
    double sum = 0;
    int count = 0;
    for (const RawSample& sample : visible) {
        if (!sample.empty && (after <= 0 || (sample.time > after && sample.time <= until))) {
            sum += sample.values[value];
            ++count;
        }
    }
    return count == 0 ? 0 : sum / count;
}

bool stayed(const std::vector<RawSample>& visible, double now, double seconds, double threshold, bool below)
{
    const auto passes = [&](const RawSample& sample) {
        const double sum = std::accumulate(sample.values.begin(), sample.values.end(), 0.0);
        return below ? sum < threshold : sum >= threshold;
    };
    if (visible.empty()) {
        return false;
    }
    if (seconds < 0) {
        return passes(visible.front());
    }
    std::vector<RawSample> recent;
    std::copy_if(visible.begin(), visible.end(), std::back_inserter(recent),
        [&](const RawSample& sample) { return sample.time >= now - seconds; });
    if (!std::all_of(recent.begin(), recent.end(), passes)) {
        return false;
    }
    return recent.size() == visible.size() || (!recent.empty() && visible[recent.size()].time > 1.0);
}

template <typename Store>
void checkSlots(const Store& store, const std::vector<RawSample>& visible)
{
    for (std::size_t slot = 0; slot < visible.size(); ++slot) {
        const statsample sample = store.sampleAtIndex(SlotIndex{slot}, live);
        RC_ASSERT(sample.sampleID == visible[slot].sampleID);
        RC_ASSERT(sample.time == visible[slot].time);
        RC_ASSERT((sample.empty != 0) == visible[slot].empty);
        RC_ASSERT(std::equal(sample.values.begin(), sample.values.end(), visible[slot].values.begin()));
    }
    for (std::uint64_t sampleID = 1; sampleID < 60; ++sampleID) {
        const bool present = std::any_of(
            visible.begin(), visible.end(), [&](const RawSample& sample) { return sample.sampleID == sampleID; });
        const statsample sample = store.sampleWithIdentifier(sampleID, live);
        RC_ASSERT(sample.sampleID == sampleID);
        RC_ASSERT(present || sample.empty == 1);
    }
}

template <typename Store>
void checkFigures(const Store& store, const std::vector<RawSample>& visible, std::size_t values, double hourTime)
{
    const Dictionary averages = store.averagesForIndex(StorageIndex::Hour);
    const char* const keys[] = {"A", "B", "C"};
    for (std::size_t value = 0; value < values; ++value) {
        const double expected = mean(visible, hourTime - 6, hourTime + 0.99, value);
        RC_ASSERT(std::abs(averages.at(keys[value]).template get<double>() - expected) < 1e-9);
    }
}

template <typename Store>
void checkThresholds(const Store& store, const std::vector<RawSample>& visible, std::size_t values, double now)
{
    std::vector<std::size_t> indexes(values);
    std::iota(indexes.begin(), indexes.end(), std::size_t{0});
    for (const double seconds : {-1.0, 0.0, 2.0, 5.0, 20.0}) {
        for (const double threshold : {-20.0, 0.0, 20.0}) {
            RC_ASSERT(store.indexesBelowValueForTime(indexes, threshold, seconds)
                == stayed(visible, now, seconds, threshold, true));
            RC_ASSERT(store.indexesAboveValueForTime(indexes, threshold, seconds)
                == stayed(visible, now, seconds, threshold, false));
        }
    }
}

RC_GTEST_PROP(SampleHistory, RingAveragesAndThresholdsAgreeWithTheRawSamples, ())
{
    FakeMachine machine;
    const auto slots = *rc::gen::inRange<std::size_t>(0, 9);
    const auto values = *rc::gen::inRange<std::size_t>(0, 4);
    StatCollectorTraits traits = ringOf(slots, values);
    traits.layout.storages = 2;
    RecordingCollector collector(machine, traits);
    const auto item = collector.newItemWithKey("x");
    std::vector<RawSample> visible; // in the ring
    machine.runtime.advance(*rc::gen::inRange(0, 100) / 100.0);
    for (int count = *rc::gen::inRange(0, 30); count > 0; --count) {
        machine.runtime.advance(*rc::gen::inRange(0, 30) / 10.0);
        RawSample raw{
            *rc::gen::inRange<std::uint64_t>(1, 60), machine.runtime.wallTime(), *rc::gen::inRange(0, 4) == 0, {}};
        const bool numbered = *rc::gen::arbitrary<bool>();
        Dictionary sample{{"time", raw.time}, {"empty", raw.empty ? 1 : 0}};
        if (numbered) {
            sample["id"] = raw.sampleID;
        }
        for (std::size_t value = 0; value < values; ++value) {
            raw.values.push_back(*rc::gen::inRange(-20, 20));
            sample[std::string(1, static_cast<char>('a' + value))] = raw.values.back();
        }
        accept(visible, raw, numbered);
        collector.addSample(sample, live);
        item->addSample(sample, live);
    }
    if (slots == 0) {
        RC_ASSERT(collector.lastIDForType(live) == 0U);
        return;
    }
    visible.resize(slots, {0, 0, true, std::vector<double>(values)});
    const double hourTime = std::ceil(machine.runtime.wallTime()) - *rc::gen::inRange(0, 12);
    collector.record(StorageIndex::Hour).time = hourTime;
    item->setTimeForSampleIndex(StorageIndex::Hour, hourTime);
    const auto check = [&](const auto& store) {
        checkSlots(store, visible);
        checkFigures(store, visible, values, hourTime);
        checkThresholds(store, visible, values, machine.runtime.wallTime());
    };
    check(collector);
    check(*item);
}

// The ring itself, at its edges.

SampleRing ringWith(std::size_t slots, std::initializer_list<double> times)
{
    SampleRing ring(slots, 1);
    for (std::uint64_t sampleID = 1; const double time : times) {
        ring.shift();
        ring.setLabel(newest, sampleID, time);
        ring.setEmpty(newest, 0);
        ring.setValue(newest, 0, time * 2);
        ++sampleID;
    }
    return ring;
}

TEST(SampleRing, TheOldestFallsOffWhenOneMoreComesThanThereAreSlots)
{
    for (const std::size_t slots : {1U, 2U, 4U}) {
        SampleRing ring = ringWith(slots, {10, 20, 30, 40, 50}); // more than once around
        for (std::size_t slot = 0; slot < slots; ++slot) {
            EXPECT_EQ(ring[SlotIndex{slot}].sampleID, 5 - slot);
            EXPECT_EQ(ring[SlotIndex{slot}].values[0], 100 - 20 * static_cast<double>(slot));
        }
        EXPECT_EQ(ring.find(5 - slots), nullptr);
        EXPECT_NE(ring.find(6 - slots), nullptr);
        EXPECT_FALSE(ring.contains(SlotIndex{slots}));
        ring.setValue(SlotIndex{slots}, 0, 7);
        EXPECT_EQ(ring[newest].values[0], 100);
    }
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
    SampleRing ring = ringWith(5, {10, 20, 990, 30, 40}); // a clock that was ahead for a moment
    ring.setEmpty(newest, 1);
    EXPECT_EQ(ring.averages({.start = 5, .end = 40}).values[0], 40); // of 10, 20 and 30
    EXPECT_EQ(ring.averages({.start = 15, .end = 40}).samples, 2U);
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

// Gap filling, one period after another.

struct Period {
    double sampleID = 0;
    double time = 0;
};

struct ExpectedFill {
    Period last;
    std::vector<Period> written;
};

ExpectedFill walkThroughGap(StorageIndex index, Period from, double nextTime, double now)
{
    const auto interval = static_cast<double>(storageConstants[position(index)].interval);
    ExpectedFill expected{from, {}};
    while (nextTime < now) {
        expected.last = {expected.last.sampleID + 1, nextTime};
        nextTime += interval;
        if (index == StorageIndex::LongTerm || expected.last.time >= now - 602 * interval) {
            expected.written.push_back(expected.last);
        }
    }
    return expected;
}

RC_GTEST_PROP(SampleHistory, GapsAreFilledPeriodByPeriod, ())
{
    FakeMachine machine;
    const auto type = *rc::gen::element(StorageType::Collector, StorageType::Items);
    RecordingCollector collector(machine, historyOf(type));
    const auto item = collector.newItemWithKey("x");
    const auto index = static_cast<StorageIndex>(*rc::gen::inRange(1, 9));
    machine.runtime.advance(*rc::gen::inRange(0, 30'000) / 100.0);
    collector.checkNextTimeAtIndex(index);
    const auto before = *collector.sampleIndex(index);
    collector.inserts.clear();

    machine.runtime.sleepMachine(before.interval * *rc::gen::inRange(0, 90'000) / 100.0); // up to 900 periods
    const double now = machine.runtime.wallTime();
    const ExpectedFill expected = walkThroughGap(index, {before.sampleID, before.time}, before.nextTime, now);
    collector.fillGapsAtIndex(index);
    const auto after = *collector.sampleIndex(index);
    RC_ASSERT(after.fillingGap);
    RC_ASSERT(after.sampleID == expected.last.sampleID);
    RC_ASSERT(after.time == expected.last.time);
    RC_ASSERT(after.nextTime >= now);
    RC_ASSERT(collector.inserts.size() == expected.written.size());
    for (std::size_t row = 0; row < expected.written.size(); ++row) {
        const Dictionary& sample = collector.inserts[row].sample;
        RC_ASSERT(sample.at("sample").get<double>() == expected.written[row].sampleID);
        RC_ASSERT(sample.at("time").get<double>() == expected.written[row].time);
    }
    if (!expected.written.empty()) {
        RC_ASSERT(item->sampleIndex(index)->time == after.time);
        RC_ASSERT(item->sampleIndex(index)->nextTime == after.nextTime);
    }
}

class StorageClockTest : public testing::Test {
protected:
    FakeMachine machine;
    RecordingCollector collector{machine, historyOf(StorageType::Collector)};
};

TEST_F(StorageClockTest, StartsOnceWithAnEmptySample)
{
    machine.runtime.advance(0.5);
    collector.checkNextTimeAtIndex(StorageIndex::Day);
    collector.checkNextTimeAtIndex(StorageIndex::Day);
    const auto record = *collector.sampleIndex(StorageIndex::Day);
    EXPECT_EQ(record.nextTime, 1'700'000'001.0 + 144);
    EXPECT_EQ(record.time, 1'700'000'001.0);
    EXPECT_EQ(record.sampleID, 0);
    ASSERT_EQ(collector.inserts.size(), 1U);
    const Dictionary expected{{"sample", 0}, {"time", 1'700'000'001.0}, {"empty", 1}, {"a", 0}, {"b", 0}};
    EXPECT_EQ(collector.inserts[0].sample, expected);
    EXPECT_EQ(collector.commits, 1);
}

TEST_F(StorageClockTest, LongTermPeriodsLieOnFiveMinutesAndAreNeverShort)
{
    const auto nextAt = [this](double secondsIntoPeriod) {
        const double boundary = std::ceil(machine.runtime.wallTime() / 300) * 300;
        machine.runtime.stepWallClock(boundary + secondsIntoPeriod - machine.runtime.wallTime());
        RecordingCollector fresh(machine, historyOf(StorageType::Collector));
        fresh.checkNextTimeAtIndex(StorageIndex::LongTerm);
        return fresh.sampleIndex(StorageIndex::LongTerm)->nextTime - boundary;
    };
    EXPECT_EQ(nextAt(10), 300);
    EXPECT_EQ(nextAt(240), 300) << "just a minute left";
    EXPECT_EQ(nextAt(240.5), 600);
    EXPECT_EQ(nextAt(0), 300) << "on the boundary itself";
}

TEST_F(StorageClockTest, NothingToFillBeforeTheStartOrWithinThePeriod)
{
    collector.fillGapsAtIndex(StorageIndex::Hour);
    EXPECT_FALSE(collector.sampleIndex(StorageIndex::Hour)->fillingGap);
    collector.checkNextTimeAtIndex(StorageIndex::Hour);
    machine.runtime.stepWallClock(-86'400);
    collector.inserts.clear();
    collector.fillGapsAtIndex(StorageIndex::Hour);
    EXPECT_TRUE(collector.sampleIndex(StorageIndex::Hour)->fillingGap);
    EXPECT_TRUE(collector.inserts.empty());
}

TEST_F(StorageClockTest, AClockSetRightAfterDecadesCostsABoundedFill)
{
    machine.runtime.stepWallClock(-1'699'999'000.0); // booted in 1970
    collector.checkNextTimeAtIndex(StorageIndex::Hour);
    collector.checkNextTimeAtIndex(StorageIndex::LongTerm);
    machine.runtime.stepWallClock(1'699'999'000.0);
    collector.inserts.clear();
    collector.fillGapsAtIndex(StorageIndex::Hour);
    EXPECT_EQ(collector.inserts.size(), 602U);
    collector.fillGapsAtIndex(StorageIndex::LongTerm);
    EXPECT_EQ(collector.longTermSamples, 93 * 288);
    EXPECT_GE(collector.sampleIndex(StorageIndex::LongTerm)->nextTime, machine.runtime.wallTime());
}

} // namespace
} // namespace meridal::test
