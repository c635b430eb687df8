// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "wire/Envelope.h"

#include <vector>

namespace meridal {

/// Envelopes that wait until their client takes more: at most one of each type, the newest, so that a client that has
/// stopped reading costs bounded memory. Oldest first. Not thread-safe.
class EnvelopeBacklog {
public:
    /// Adds an envelope behind the others. True when it took the place of an older one of its type.
    bool put(EnvelopePtr envelope);
    /// Everything that waits; nothing waits afterwards.
    std::vector<EnvelopePtr> takeAll();
    bool empty() const { return waiting_.empty(); }

private:
    std::vector<EnvelopePtr> waiting_;
};

} // namespace meridal
