#pragma once

#include "tests/collectors/RecordingCollector.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace meridal::test {

inline constexpr std::array<const char*, 3> itemKeys{"fan", "battery", "disk"};

struct Sample {
    std::uint64_t sampleID = 0;
    double time = 0;
    bool empty = true;
    double value = 0;
};

/// Every sample of one thing, by storage, oldest first.
class Series {
public:
    void addLive(double time, bool empty, double value)
    {
        auto& list = lists_[0];
        list.push_back({0, time, empty, value});
        if (list.size() > 2000) { // far more than the live ring holds
            list.erase(list.begin(), list.begin() + 1000);
        }
    }
    /// The average that a period's sample must have: of its source's samples, from the newest back to the period's start.
    Sample expected(StorageIndex index, std::uint64_t sampleID, double end) const
    {
        const StorageConstants& constants = storageConstants[position(index)];
        const auto& source = lists_[position(constants.historyIndex)];
        const std::size_t slots = StorageLayout::forHistory().slots[position(constants.historyIndex)];
        const double allowance = constants.historyIndex == StorageIndex::Live ? 0.99 : 0;
        double sum = 0;
        int count = 0;
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
            ++count;
        }
        return {sampleID, end, count == 0, count == 0 ? 0 : sum / count};
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
    void take(const std::string& key, StorageIndex index, const Sample& got)
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
            if (want.empty != got.empty || std::abs(want.value - got.value) > 1e-6) {
                fail(fmt::format("{} storage {} sample {} at {}: {} {}, not {} {}", key, position(index), got.sampleID,
                    got.time, got.empty, got.value, want.empty, want.value));
            }
        }
        own.add(index, got);
    }
};

class ChainCollector final : public StatCollector {
public:
    ChainCollector(Context& context, StorageType type, Reference& reference, std::mt19937& random)
        : StatCollector(context,
            {.description = "Chain", .sampleCount = 1, .storageType = type, .layout = StorageLayout::forHistory()})
        , reference_(reference)
        , random_(random)
    {
        config() = historyConfiguration(type);
        setDbTablePrefix(type == StorageType::Collector ? "own" : "item");
        setDbpath(context.paths.support / "short" / "chain.db");
        setDbpathLong(context.paths.support / "long" / "chainlong.db");
        if (type == StorageType::Items) {
            for (const char* key : itemKeys) {
                newItemWithKey(key);
            }
        }
    }

    std::shared_ptr<StatCollectorItem> makeItem() override
    {
        return std::make_shared<StatCollectorItem>(context(), 1, StorageLayout::forHistory());
    }

    void updateStats() override
    {
        if (storageType() == StorageType::Collector) {
            addSample(measure("own"), StorageIndex::Live);
            return;
        }
        for (const auto& item : items()) {
            if (random_() % 10 != 0) { // a sensor that does not answer now and then
                item->addSample(measure(*item->key()), StorageIndex::Live);
            }
        }
    }

    void insertSampleIntoTableAtIndex(const Dictionary& sample, StorageIndex index) override
    {
        const auto taken = [&](const Dictionary& from) {
            return Sample{sample.at("sample").get<std::uint64_t>(), sample.at("time").get<double>(),
                isEmptySample(from), number(from, "value").value_or(0)};
        };
        if (storageType() == StorageType::Collector) {
            reference_.take("own", index, taken(sample));
        } else {
            const Dictionary missing{{"empty", 1}};
            const Value* items = find(sample, "items");
            for (const char* key : itemKeys) {
                const Dictionary* own = &missing;
                for (std::size_t place = 0; items && place < items->size(); ++place) {
                    own = (*items)[place].at("uuid") == key ? &(*items)[place] : own;
                }
                reference_.take(key, index, taken(*own));
            }
        }
        StatCollector::insertSampleIntoTableAtIndex(sample, index);
    }

private:
    Dictionary measure(const std::string& key)
    {
        const double now = context().runtime.wallTime();
        const double value = static_cast<double>(random_() % 8000) / 8;
        const bool empty = random_() % 50 == 0;
        reference_.series[key].addLive(now, empty, value);
        return {{"time", now}, {"value", value}, {"empty", empty ? 1 : 0}};
    }

    Reference& reference_;
    std::mt19937& random_;
};

} // namespace meridal::test
