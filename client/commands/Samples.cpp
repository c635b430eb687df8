// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Samples.h"

#include "client/commands/Pages.h"
#include "wire/Methods.h"

#include <utility>

namespace meridal {

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

} // namespace meridal
