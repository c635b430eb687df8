// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <vector>

namespace meridal::test {

/// The kernel's end of sockets to its control "com.apple.network.statistics".
class StatisticsControl {
public:
    using Bytes = std::vector<std::uint8_t>;
    static StatisticsControl& current();

    /// The kernel, while it takes a request.
    std::function<void(const Bytes& request)> answer;
    std::size_t room = 1000; ///< messages that wait to be read; more are lost
    /// Leaves a message to be read.
    void say(Bytes message);

    /// Descriptors that are open. Closes this end of the others.
    std::vector<int> open();
    void reset();

    // What the calls are made of.
    std::map<int, int> ends; ///< descriptors, with this end
    std::deque<Bytes> waiting;
};

} // namespace meridal::test
