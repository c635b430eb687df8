// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/ConnectionInbox.h"

#include <algorithm>
#include <utility>

namespace meridal {

bool ConnectionInbox::open(Wake wake)
{
    const std::lock_guard lock(mutex_);
    wake_ = std::move(wake);
    if (outcome_) {
        wakeOnce();
    }
    return !envelopes_.empty() && markNews();
}

void ConnectionInbox::awake()
{
    const std::lock_guard lock(mutex_);
    woken_ = false;
}

ConnectionInbox::Put ConnectionInbox::put(EnvelopePtr envelope)
{
    // The parameter outlives the lock: an envelope that gives way is destroyed outside it.
    const std::lock_guard lock(mutex_);
    if (closed_) {
        return {};
    }
    const auto sameType = std::find_if(
        envelopes_.begin(), envelopes_.end(), [&](const EnvelopePtr& waiting) { return envelope->replaces(*waiting); });
    const bool replaces = sameType != envelopes_.end();
    if (replaces) {
        std::swap(*sameType, envelope);
    } else {
        envelopes_.push_back(std::move(envelope));
    }
    return {.replaced = replaces, .isNews = markNews()};
}

void ConnectionInbox::collected()
{
    const std::lock_guard lock(mutex_);
    hasNews_ = false;
}

void ConnectionInbox::put(JsonRpcOutcome outcome)
{
    const std::lock_guard lock(mutex_);
    if (!closed_) {
        outcome_ = std::move(outcome);
        wakeOnce();
    }
}

EnvelopePtr ConnectionInbox::takeEnvelope()
{
    const std::lock_guard lock(mutex_);
    if (envelopes_.empty()) {
        return nullptr;
    }
    EnvelopePtr oldest = std::move(envelopes_.front());
    envelopes_.erase(envelopes_.begin());
    return oldest;
}

std::optional<JsonRpcOutcome> ConnectionInbox::takeOutcome()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(outcome_, std::nullopt);
}

void ConnectionInbox::close()
{
    Wake wake;
    std::vector<EnvelopePtr> envelopes;
    std::optional<JsonRpcOutcome> outcome;
    const std::lock_guard lock(mutex_);
    closed_ = true;
    wake.swap(wake_);
    envelopes.swap(envelopes_);
    outcome.swap(outcome_);
}

void ConnectionInbox::wakeOnce()
{
    if (wake_ && !woken_) {
        woken_ = true;
        wake_();
    }
}

bool ConnectionInbox::markNews() { return wake_ && !std::exchange(hasNews_, true); }

} // namespace meridal
