// SPDX-License-Identifier: Apache-2.0
#include "metrics/RecordedSamples.h"

#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <limits>
#include <numeric>
#include <utility>

namespace meridal {

namespace {

struct SampleResolution {
    const char* name;
    double span = 0; ///< s that it reaches back, with some to spare; those between are coarser than the last one
};

constexpr std::array<SampleResolution, 3> sampleResolutions = {
    {{"hour", 2 * 3600.0}, {"day", 2 * 86'400.0}, {"longterm", std::numeric_limits<double>::infinity()}}};

constexpr int samplesOnPage = 1000; ///< the daemon's own limit

} // namespace

class RecordedSamplesReader : public std::enable_shared_from_this<RecordedSamplesReader> {
public:
    RecordedSamplesReader(MetricsCaller caller, const std::string& series, double from, double until, double now,
        std::function<void(Result<RecordedSamples>)> done)
        : caller_(std::move(caller)), from_(from), until_(until), now_(now), done_(std::move(done))
    {
        samples_.series_ = series;
    }

    /// The finest first: what it does not reach is asked of the next one.
    void ask()
    {
        while (resolution_ < sampleResolutions.size() && until_ < now_ - sampleResolutions.at(resolution_).span) {
            ++resolution_;
        }
        if (resolution_ == sampleResolutions.size() || until_ <= from_) {
            return finish();
        }
        askRecordPages(
            caller_,
            {.method = method::historySamples,
                .list = "samples",
                .cursor = "before",
                .parameters = {{"series", samples_.series_}, {"resolution", sampleResolutions.at(resolution_).name},
                    {"from", from_}, {"until", until_}, {"limit", samplesOnPage}}},
            [self = shared_from_this()](const Value& rows, const Value& page) { self->take(rows, page); },
            [self = shared_from_this()](const Result<void>& result) {
                if (!result) {
                    return self->done_(unexpected(result.error().code, result.error().message));
                }
                self->until_ = std::min(self->until_, self->oldest_);
                ++self->resolution_;
                self->ask();
            });
    }

private:
    void take(const Value& rows, const Value& page)
    {
        auto& columns = samples_.columns_;
        const Value* names = find(page, "values");
        for (const Value& name : columns.empty() && names && names->is_array() ? *names : Value::array()) {
            columns.push_back(name.is_string() ? name.get<std::string>() : "");
        }
        for (const Value& row : rows) {
            const auto time = number(row, "time");
            const Value* values = find(row, "values");
            if (!time || *time >= until_ || !values || values->size() != columns.size()) {
                continue;
            }
            oldest_ = std::min(oldest_, *time);
            samples_.cells_.push_back(*time);
            for (const Value& value : *values) {
                samples_.cells_.push_back(
                    value.is_number() ? value.get<double>() : std::numeric_limits<double>::quiet_NaN());
            }
        }
    }

    void finish()
    {
        const std::size_t width = samples_.columns_.size() + 1;
        auto& order = samples_.order_;
        order.resize(samples_.cells_.size() / width);
        std::iota(order.begin(), order.end(), std::size_t{0});
        // Pages come backwards, and a clock that was set back leaves rows that are out of order.
        std::sort(order.begin(), order.end(), [&cells = samples_.cells_, width](std::size_t first, std::size_t second) {
            return cells[first * width] < cells[second * width];
        });
        done_(std::move(samples_));
    }

    const MetricsCaller caller_;
    const double from_;
    double until_;
    const double now_;
    const std::function<void(Result<RecordedSamples>)> done_;
    RecordedSamples samples_;
    std::size_t resolution_ = 0;
    double oldest_ = std::numeric_limits<double>::infinity();
};

void RecordedSamples::forEach(std::string_view column, const std::function<void(double time, double value)>& use) const
{
    const auto found = std::find(columns_.begin(), columns_.end(), column);
    if (found == columns_.end()) {
        return;
    }
    constexpr double apart = 0.001; // s, as finely as times are written
    const auto place = static_cast<std::size_t>(found - columns_.begin()) + 1;
    double latest = -std::numeric_limits<double>::infinity();
    for (const std::size_t row : order_) {
        const double* cells = &cells_[row * (columns_.size() + 1)];
        if (cells[0] >= latest + apart) {
            latest = cells[0];
            use(latest, cells[place]);
        }
    }
}

void readRecordedSamples(const MetricsCaller& caller, const std::string& series, double from, double until, double now,
    std::function<void(Result<RecordedSamples>)> done)
{
    std::make_shared<RecordedSamplesReader>(caller, series, from, until, now, std::move(done))->ask();
}

} // namespace meridal
