// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/StatCollector.h"
#include "history/HistoryRecorder.h"
#include "tests/support/FakeHost.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace meridal::test {

inline constexpr std::array<const char*, 3> itemKeys{"fan", "battery", "disk"};

struct Sample {
    std::uint64_t sampleID = 0;
    double time = 0;
    bool empty = true;
    double value = 0;
    double low = 0; ///< of the live samples behind it
    double high = 0;
};

/// Every sample of one thing, by storage, oldest first.
class Series {
public:
    void addLive(double time, bool empty, double value)
    {
        auto& list = lists_[0];
        list.push_back({0, time, empty, value, value, value});
        if (list.size() > 2000) { // far more than the live ring holds
            list.erase(list.begin(), list.begin() + 1000);
        }
    }
    /// The average that a period's sample must have: of its source's samples, from the newest back to the period's start.
    Sample expected(StorageIndex index, std::uint64_t sampleID, double end) const
    {
        const StorageConstants& constants = storageConstants[position(index)];
        const auto& source = lists_[position(constants.historyIndex)];
        const std::size_t slots = position(constants.historyIndex) == 0 ? 301
            : constants.historyIndex == StorageIndex::Hour              ? 168
                                                                        : 365;
        const double allowance = constants.historyIndex == StorageIndex::Live ? 0.99 : 0;
        double sum = 0;
        int count = 0;
        double low = 0;
        double high = 0;
        const Sample* const oldest = source.data() + (source.size() - std::min(source.size(), slots));
        for (const Sample* sample = source.data() + source.size(); sample != oldest;) {
            --sample;
            if (sample->empty || sample->time > end + allowance) {
                continue;
            }
            if (sample->time <= end - static_cast<double>(constants.interval)) {
                break;
            }
            sum += sample->value;
            low = count == 0 ? sample->low : std::min(low, sample->low);
            high = count == 0 ? sample->high : std::max(high, sample->high);
            ++count;
        }
        return {sampleID, end, count == 0, count == 0 ? 0 : sum / count, low, high};
    }
    void add(StorageIndex index, const Sample& sample) { lists_[position(index)].push_back(sample); }
    const std::vector<Sample>& list(StorageIndex index) const { return lists_[position(index)]; }
    /// The daemon starts again: what was in memory only is gone, and so is what had not been written.
    void restart(const std::array<std::int64_t, storageCount>& written)
    {
        lists_[0].clear();
        for (std::size_t index = 1; index < storageCount; ++index) {
            std::erase_if(lists_[index],
                [&](const Sample& sample) { return static_cast<std::int64_t>(sample.sampleID) > written[index]; });
        }
    }

private:
    std::array<std::vector<Sample>, storageCount> lists_;
};

/// What the collector must do, kept across its restarts.
struct Reference {
    std::map<std::string, Series> series;
    std::size_t wrong = 0;
    std::string firstWrong;
    std::size_t measured = 0; ///< averages compared that are not empty

    void fail(const std::string& what)
    {
        if (wrong++ == 0) {
            firstWrong = what;
        }
    }
    void take(const std::string& key, StorageIndex index, Sample got)
    {
        Series& own = series[key];
        const auto& list = own.list(index);
        const std::uint64_t last = list.empty() ? 0 : list.back().sampleID;
        const bool inOrder = index == StorageIndex::LongTerm ? got.sampleID == last + 1 : got.sampleID > last;
        if (!list.empty() && !inOrder) {
            fail("identifiers do not rise in storage " + std::to_string(position(index)));
        }
        if (got.sampleID > 0) {
            const Sample want = own.expected(index, got.sampleID, got.time);
            measured += want.empty ? 0U : 1U;
            got.low = want.low; // the row will tell
            got.high = want.high;
            if (want.empty != got.empty || std::abs(want.value - got.value) > 1e-6) {
                fail(fmt::format("{} storage {} sample {} at {}: {} {}, not {} {}", key, position(index), got.sampleID,
                    got.time, got.empty, got.value, want.empty, want.value));
            }
        }
        own.add(index, got);
    }
};

/// Compares each finished period with the reference on its way to the tables.
class ChainRecorder final : public HistoryRecorder {
public:
    ChainRecorder(Context& context, HistoryTraits traits, Reference& reference)
        : HistoryRecorder(context, std::move(traits)), reference_(reference)
    {
    }

protected:
    void insertSampleIntoTableAtIndex(const PeriodSample& sample, StorageIndex index) override
    {
        const auto take = [&](const std::string& key, const SampleAverages& got) {
            const bool isEmpty = got.samples == 0;
            reference_.take(key, index, {sample.sampleID, sample.time, isEmpty, isEmpty ? 0 : got.values[0]});
        };
        if (traits().storageType == StorageType::Collector) {
            take("own", sample.own);
        } else {
            for (const char* key : itemKeys) {
                const auto item = std::find_if(
                    sample.items.begin(), sample.items.end(), [&](const auto& each) { return each.key == key; });
                take(key, item == sample.items.end() ? SampleAverages() : item->averages);
            }
        }
        HistoryRecorder::insertSampleIntoTableAtIndex(sample, index);
    }

private:
    Reference& reference_;
};

/// A collector that records: itself, or three items that do not answer now and then.
class ChainCollector final : public StatCollector {
public:
    ChainCollector(Context& context, StorageType type, Reference& reference, std::mt19937& random)
        : StatCollector(context, "Chain")
        , history(context,
              {.description = "Chain",
                  .columns = {"value"},
                  .storageType = type,
                  .dbTablePrefix = type == StorageType::Collector ? "own" : "item",
                  .dbpath = context.paths.support / "short" / "chain.db",
                  .dbpathLong = context.paths.support / "long" / "chainlong.db"},
              reference)
        , reference_(reference)
        , random_(random)
    {
        for (const char* key : itemKeys) {
            samples[key] = type == StorageType::Items ? history.item(key) : nullptr;
        }
    }

    void updateStats() override
    {
        if (history.traits().storageType == StorageType::Collector) {
            measure("own", history.own());
            return;
        }
        for (const char* key : itemKeys) {
            if (random_() % 10 != 0 && samples[key]) {
                measure(key, *samples[key]);
            }
        }
    }
    void updateHistory() override { history.updateHistory(); }

    ChainRecorder history;
    std::map<std::string, std::shared_ptr<SampleStorages>> samples; ///< of the items

private:
    void measure(const std::string& key, SampleStorages& to)
    {
        const double now = context().runtime.wallTime();
        std::optional<double> value = static_cast<double>(random_() % 8000) / 8;
        if (random_() % 50 == 0) {
            value.reset();
        }
        reference_.series[key].addLive(now, !value, value.value_or(0));
        to.addSample(now, {&value, 1});
    }

    Reference& reference_;
    std::mt19937& random_;
};

} // namespace meridal::test
