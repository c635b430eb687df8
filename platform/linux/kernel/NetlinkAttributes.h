// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstring>
#include <libmnl/libmnl.h>
#include <optional>
#include <string>
#include <string_view>

namespace meridal {

/// Visits the attributes in a piece of a message, each within its bounds; stops at the first that does not fit.
template <typename Visit>
void forEachAttributeIn(std::string_view bytes, const Visit& visit)
{
    while (bytes.size() >= sizeof(nlattr)) {
        const auto& attribute = *reinterpret_cast<const nlattr*>(bytes.data()); // aligned to 4, as all of a message is
        if (attribute.nla_len < sizeof(nlattr) || attribute.nla_len > bytes.size()) {
            return;
        }
        visit(attribute);
        const std::size_t step = (std::size_t{attribute.nla_len} + 3) & ~std::size_t{3};
        bytes.remove_prefix(step < bytes.size() ? step : bytes.size());
    }
}

inline std::string_view bytesOf(const nlattr& attribute)
{
    return {static_cast<const char*>(mnl_attr_get_payload(&attribute)), mnl_attr_get_payload_len(&attribute)};
}

/// Visits the attributes behind a message's fixed part. False when the message is shorter than that.
template <typename Header, typename Visit>
bool forEachAttribute(const nlmsghdr& message, const Visit& visit)
{
    std::string_view payload(
        static_cast<const char*>(mnl_nlmsg_get_payload(&message)), mnl_nlmsg_get_payload_len(&message));
    if (payload.size() < sizeof(Header)) {
        return false;
    }
    constexpr std::size_t skipped = (sizeof(Header) + 3) & ~std::size_t{3};
    payload.remove_prefix(skipped < payload.size() ? skipped : payload.size());
    forEachAttributeIn(payload, visit);
    return true;
}

/// Visits the attributes inside another one.
template <typename Visit>
void forEachNested(const nlattr& nest, const Visit& visit)
{
    forEachAttributeIn(bytesOf(nest), visit);
}

/// Text up to its NUL, which may be missing.
inline std::string netlinkText(const nlattr& attribute)
{
    const std::string_view bytes = bytesOf(attribute);
    return std::string(bytes.substr(0, bytes.find('\0')));
}

/// Absent when the attribute is too short.
template <typename Integer>
std::optional<Integer> netlinkInteger(const nlattr& attribute)
{
    Integer value = 0;
    const std::string_view bytes = bytesOf(attribute);
    if (bytes.size() < sizeof value) {
        return std::nullopt;
    }
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

} // namespace meridal
