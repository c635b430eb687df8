// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/commands/Session.h"

#include <cstddef>
#include <functional>
#include <string>

namespace meridal {

/// What to ask of one recorded series.
struct SamplesQuestion {
    std::string series;
    std::string resolution;      ///< one of the daemon's
    double from = 0;             ///< s since 1970
    double until = 0;            ///< exclusive
    std::size_t wanted = 60'000; ///< samples, the newest; more than any series keeps
};

/// Asks history.samples page after page. `use` gets the answer with all samples of all pages in it. One without samples
/// ends the session.
void askSamples(Session& session, const SamplesQuestion& question, std::function<void(Value answer)> use);

} // namespace meridal
