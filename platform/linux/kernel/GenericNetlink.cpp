// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/GenericNetlink.h"

#include <utility>

namespace meridal {

namespace {

/// One entry of CTRL_ATTR_MCAST_GROUPS.
void takeGroup(GenericFamily& family, const nlattr& nest)
{
    std::string name;
    std::optional<std::uint32_t> identifier;
    forEachNested(nest, [&](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == CTRL_ATTR_MCAST_GRP_NAME) {
            name = netlinkText(attribute);
        } else if (mnl_attr_get_type(&attribute) == CTRL_ATTR_MCAST_GRP_ID) {
            identifier = netlinkInteger<std::uint32_t>(attribute);
        }
    });
    if (identifier && !name.empty()) {
        family.groups.insert_or_assign(std::move(name), *identifier);
    }
}

} // namespace

nlmsghdr& beginGenericRequest(void* memory, std::uint16_t family, std::uint8_t command, std::uint16_t flags)
{
    nlmsghdr* request = mnl_nlmsg_put_header(memory);
    request->nlmsg_type = family;
    request->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    auto* header = static_cast<genlmsghdr*>(mnl_nlmsg_put_extra_header(request, sizeof(genlmsghdr)));
    header->cmd = command;
    header->version = 1;
    return *request;
}

nlmsghdr& beginFamilyRequest(void* memory, const char* name)
{
    nlmsghdr& request = beginGenericRequest(memory, GENL_ID_CTRL, CTRL_CMD_GETFAMILY);
    mnl_attr_put_strz(&request, CTRL_ATTR_FAMILY_NAME, name);
    return request;
}

std::optional<GenericFamily> parseGenericFamily(const nlmsghdr& message)
{
    GenericFamily family;
    forEachGenericAttribute(message, CTRL_CMD_NEWFAMILY, [&family](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == CTRL_ATTR_FAMILY_ID) {
            family.identifier = netlinkInteger<std::uint16_t>(attribute).value_or(0);
        } else if (mnl_attr_get_type(&attribute) == CTRL_ATTR_MCAST_GROUPS) {
            forEachNested(attribute, [&family](const nlattr& group) { takeGroup(family, group); });
        }
    });
    return family.identifier >= NLMSG_MIN_TYPE ? std::optional(std::move(family)) : std::nullopt;
}

} // namespace meridal
