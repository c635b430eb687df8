// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/EnvelopeBacklog.h"

#include <utility>

namespace meridal {

bool EnvelopeBacklog::put(EnvelopePtr envelope)
{
    const auto replaced = std::erase_if(waiting_, [&](const auto& older) { return envelope->replaces(*older); });
    waiting_.push_back(std::move(envelope));
    return replaced > 0;
}

std::vector<EnvelopePtr> EnvelopeBacklog::takeAll() { return std::exchange(waiting_, {}); }

} // namespace meridal
