// SPDX-License-Identifier: Apache-2.0
#include "metrics/RecordedStretches.h"

#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <utility>

namespace meridal {

namespace {

struct StretchStep {
    const char* name;
    double seconds = 0;
};
constexpr std::array<StretchStep, 5> stretchSteps = {
    {{"minute", 60}, {"quarter", 900}, {"hour", 3600}, {"day", 86'400}, {"month", 2'629'746}}};

using PeriodStarts = std::vector<double>;

/// From the shortest periods to the longest, each of which takes what the shorter ones do not reach.
class StretchFinder : public std::enable_shared_from_this<StretchFinder> {
public:
    StretchFinder(
        MetricsCaller caller, double from, double until, std::function<void(Result<std::vector<RecordedStretch>>)> done)
        : caller_(std::move(caller)), from_(from), until_(until), done_(std::move(done))
    {
    }

    void next()
    {
        if (step_ == stretchSteps.size() || (reached_ && *reached_ <= from_)) {
            std::reverse(stretches_.begin(), stretches_.end());
            return done_(std::move(stretches_));
        }
        askStarts(from_, 1, [this](const PeriodStarts& starts) {
            if (starts.empty() || (reached_ && starts.front() >= *reached_)) {
                ++step_;
                next();
            } else if (!reached_) {
                add(until_, starts.front());
            } else {
                meet(starts.front());
            }
        });
    }

private:
    /// Where the longer periods end and the shorter ones begin: at a period's start, or some would count twice.
    void meet(double oldest)
    {
        askStarts(*reached_, 2, [this, oldest](const PeriodStarts& starts) {
            const auto found =
                std::find_if(starts.begin(), starts.end(), [this](double start) { return start >= *reached_; });
            if (found != starts.end()) {
                stretches_.back().from = *found;
                add(*found, oldest);
            } else {
                add(starts.empty() ? *reached_ : starts.front(), oldest);
            }
        });
    }

    void add(double until, double oldest)
    {
        const StretchStep& step = stretchSteps.at(step_++);
        stretches_.push_back({.step = step.name, .seconds = step.seconds, .from = from_, .until = until});
        reached_ = oldest;
        next();
    }

    /// Starts of the first periods from the one on that has a moment. The kernel is in each that is recorded.
    void askStarts(double from, int limit, std::function<void(const PeriodStarts&)> use)
    {
        const auto starts = std::make_shared<PeriodStarts>();
        askRecordPages(
            caller_,
            {.method = method::groupsHistory,
                .list = "periods",
                .parameters = {{"group", "kernel"}, {"step", stretchSteps.at(step_).name}, {"from", from},
                    {"until", until_}, {"limit", limit}},
                .onlyFirst = true},
            [starts](const Value& rows, const Value&) {
                for (const Value& row : rows) {
                    starts->push_back(number(row, "time").value_or(0));
                }
            },
            [self = shared_from_this(), starts, use = std::move(use)](const Result<void>& result) {
                if (!result) {
                    return self->done_(unexpected(result.error().code, result.error().message));
                }
                use(*starts);
            });
    }

    const MetricsCaller caller_;
    const double from_;
    const double until_;
    const std::function<void(Result<std::vector<RecordedStretch>>)> done_;
    std::vector<RecordedStretch> stretches_; ///< newest first
    std::size_t step_ = 0;
    std::optional<double> reached_; ///< start of the oldest period so far
};

} // namespace

void findRecordedStretches(const MetricsCaller& caller, double from, double until,
    std::function<void(Result<std::vector<RecordedStretch>>)> done)
{
    std::make_shared<StretchFinder>(caller, from, until, std::move(done))->next();
}

} // namespace meridal
