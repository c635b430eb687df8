#include "client/commands/Samples.h"

#include "client/screen/Format.h"
#include "client/screen/WallClock.h"
#include "client/views/HistoryView.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr std::size_t largestSamplesPage = 1000; // the daemon's own limit

class SamplePages : public std::enable_shared_from_this<SamplePages> {
public:
    SamplePages(Session& session, SamplesQuestion question, std::function<void(Value)> use)
        : session_(session), question_(std::move(question)), use_(std::move(use))
    {
    }

    void ask(const Value& before)
    {
        Value parameters{{"series", question_.series}, {"resolution", question_.resolution}, {"from", question_.from},
            {"until", question_.until}, {"limit", std::min(question_.wanted, largestSamplesPage)}};
        if (!before.is_null()) {
            parameters["before"] = before;
        }
        session_.call(method::historySamples, Value::array({parameters}),
            [self = shared_from_this()](const Value& page) { self->take(page); });
    }

private:
    void take(const Value& page)
    {
        const Value* samples = find(page, "samples");
        if (!samples || !samples->is_array()) {
            return session_.fail(exitStatus::refused, "the daemon's answer tells no samples: " + terminalJson(page));
        }
        pages_.push_back(*samples);
        count_ += samples->size();
        const Value* more = find(page, "more");
        const Value* next = find(page, "next"); // a page may be empty and still not the last
        if (more && *more == true && next && count_ < question_.wanted) {
            return ask(*next);
        }
        Value answer = page;
        answer.erase("more");
        answer.erase("next");
        Value all = Value::array();
        for (auto each = pages_.rbegin(); each != pages_.rend(); ++each) { // the newest page came first
            all.insert(all.end(), each->begin(), each->end());
        }
        answer["samples"] = std::move(all);
        use_(std::move(answer));
    }

    Session& session_;
    const SamplesQuestion question_;
    std::function<void(Value)> use_;
    std::vector<Value> pages_;
    std::size_t count_ = 0;
};

struct KeptResolution {
    std::string_view name;
    double span = 0;     ///< s that it reaches back
    double interval = 0; ///< s
};
constexpr std::array<KeptResolution, 7> keptResolutions = {{
    {"hour", 3600, 6},
    {"day", day, 144},
    {"week", 7 * day, 1008},
    {"month", 30 * day, 4320},
    {"threemonth", 90 * day, 12'960},
    {"sixmonth", 180 * day, 25'920},
    {"year", 365 * day, 52'560},
}};

} // namespace

void askSamples(Session& session, SamplesQuestion question, std::function<void(Value answer)> use)
{
    std::make_shared<SamplePages>(session, std::move(question), std::move(use))->ask({});
}

std::string resolutionFor(double from, double until, double now)
{
    constexpr double slack = 60; // s: "-1h" was typed a moment ago
    constexpr double mostSamplesDrawn = 3000;
    const auto kept = std::find_if(keptResolutions.begin(), keptResolutions.end(),
        [&](const KeptResolution& each) { return now - from <= each.span + slack; });
    const double interval = longTermInterval(now - from);
    const bool isFiner =
        kept == keptResolutions.end() || (interval < kept->interval && (until - from) / interval <= mostSamplesDrawn);
    return std::string(isFiner ? "longterm" : kept->name);
}

} // namespace meridal
