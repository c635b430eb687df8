// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Samples.h"

#include "client/commands/Pages.h"
#include "client/screen/Format.h"
#include "client/screen/WallClock.h"
#include "client/views/HistoryView.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

struct KeptResolution {
    std::string_view name;
    double span = 0; ///< s that it reaches back
    double interval() const { return span / 600; }
};
constexpr std::array<KeptResolution, 7> keptResolutions = {{
    {"hour", 3600},
    {"day", day},
    {"week", 7 * day},
    {"month", 30 * day},
    {"threemonth", 90 * day},
    {"sixmonth", 180 * day},
    {"year", 365 * day},
}};

} // namespace

void askSamples(Session& session, const SamplesQuestion& question, std::function<void(Value answer)> use)
{
    constexpr std::size_t largestPage = 1000; // the daemon's own limit
    const auto join = [use = std::move(use)](Value samples, const Value& last) {
        Value answer = last;
        answer.erase("more");
        answer.erase("next");
        answer["samples"] = std::move(samples);
        use(std::move(answer));
    };
    askPages(session,
        {.method = method::historySamples,
            .list = "samples",
            .cursor = "before",
            .isBackwards = true,
            .parameters = {{"series", question.series}, {"resolution", question.resolution}, {"from", question.from},
                {"until", question.until}, {"band", true}},
            .wanted = question.wanted,
            .page = largestPage},
        join);
}

std::string resolutionFor(double from, double until, double now)
{
    constexpr double slack = 60; // s: "-1h" was typed a moment ago
    constexpr double mostSamplesDrawn = 3000;
    const auto kept = std::find_if(keptResolutions.begin(), keptResolutions.end(),
        [&](const KeptResolution& each) { return now - from <= each.span + slack; });
    const double interval = longTermInterval(now - from);
    const bool isFiner =
        kept == keptResolutions.end() || (interval < kept->interval() && (until - from) / interval <= mostSamplesDrawn);
    return std::string(isFiner ? "longterm" : kept->name);
}

} // namespace meridal
