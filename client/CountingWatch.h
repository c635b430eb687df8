#pragma once

#include "base/Value.h"

#include <utility>

namespace meridal {

/// Notices in network lists when the daemon counts traffic no more. Whichever client leaves ends that, for all; who stays asks
/// again. Where traffic cannot be counted at all, the answer to that says so, and asking once was enough.
class CountingWatch {
public:
    /// Whether to ask again. Envelopes other than network lists say nothing.
    bool hasEnded(const Dictionary& envelope)
    {
        const auto source = text(envelope, "source");
        return source && std::exchange(isCounting_, *source != "none") && !isCounting_;
    }

private:
    bool isCounting_ = false;
};

} // namespace meridal
