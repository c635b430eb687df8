// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "wire/Link.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace meridal::test {

/// A client that keeps what it is sent.
class FakeClient final : public ClientLink {
public:
    explicit FakeClient(Peer who = {.uid = 1000, .gid = 1000, .known = true}) : peer_(who) { }

    void daemonResponse(const EnvelopePtr& envelope) override { received.push_back(envelope); }
    const Peer& peer() const override { return peer_; }

    /// The types received, in order.
    std::vector<int> types() const
    {
        std::vector<int> all;
        for (const auto& envelope : received) {
            all.push_back(envelope->type());
        }
        return all;
    }
    std::ptrdiff_t count(int type) const
    {
        return std::count_if(received.begin(), received.end(), [type](const auto& e) { return e->type() == type; });
    }

    std::vector<EnvelopePtr> received;

private:
    Peer peer_;
};

} // namespace meridal::test
