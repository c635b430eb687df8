// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/check/CheckReport.h"

#include <fmt/format.h>

#include <string>
#include <string_view>
#include <utility>

namespace meridal {

inline CheckedTopic topicNamed(std::string name) { return {.topic = std::move(name)}; }

/// A topic of which the daemon says nothing.
inline CheckedTopic withoutAnswer(CheckedTopic topic)
{
    topic.summary = "not known";
    topic.findings.push_back(
        {"meridald", topic.topic, CheckState::Unknown, topic.topic, "the daemon tells nothing of it"});
    return topic;
}

/// "no disk", "1 disk", "2 disks".
inline std::string countOf(double count, std::string_view one, std::string_view many)
{
    return count == 0 ? fmt::format("no {}", one) : fmt::format("{:.0f} {}", count, count == 1 ? one : many);
}

} // namespace meridal
