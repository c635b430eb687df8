// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/NetlinkAttributes.h"

#include <cstdint>
#include <libmnl/libmnl.h>
#include <linux/genetlink.h>
#include <map>
#include <optional>
#include <string>

namespace meridal {

/// A family of generic netlink, as the kernel's controller describes it. Numbers are given out at boot.
struct GenericFamily {
    std::uint16_t identifier = 0;
    std::map<std::string, std::uint32_t> groups; ///< of announcements, by name
};

/// Begins a message in memory that is zero, aligned to 4 and large enough for the attributes that follow.
nlmsghdr& beginGenericRequest(void* memory, std::uint16_t family, std::uint8_t command, std::uint16_t flags = 0);

/// Begins the question to the controller for a family.
nlmsghdr& beginFamilyRequest(void* memory, const char* name);
/// Absent when the message is another one, or lacks the number.
std::optional<GenericFamily> parseGenericFamily(const nlmsghdr& message);

/// Visits the attributes; false when the message is too short or carries another command.
template <typename Visit>
bool forEachGenericAttribute(const nlmsghdr& message, std::uint8_t command, const Visit& visit)
{
    if (mnl_nlmsg_get_payload_len(&message) < sizeof(genlmsghdr)
        || static_cast<const genlmsghdr*>(mnl_nlmsg_get_payload(&message))->cmd != command) {
        return false;
    }
    return forEachAttribute<genlmsghdr>(message, visit);
}

} // namespace meridal
