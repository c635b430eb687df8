#pragma once

#include <libmnl/libmnl.h>

#include <cstddef>

namespace meridal {

/// Calls `visit(attribute)` for each attribute after a message's own header of `offset` bytes. The library's loops are C.
template <typename Visit>
void forEachAttribute(const nlmsghdr& header, std::size_t offset, Visit visit)
{
    mnl_attr_parse(
        &header, static_cast<unsigned int>(offset),
        [](const nlattr* attribute, void* user) {
            (*static_cast<Visit*>(user))(*attribute);
            return MNL_CB_OK;
        },
        &visit);
}

/// Likewise for the attributes inside one.
template <typename Visit>
void forEachAttribute(const nlattr& nest, Visit visit)
{
    mnl_attr_parse_nested(
        &nest,
        [](const nlattr* attribute, void* user) {
            (*static_cast<Visit*>(user))(*attribute);
            return MNL_CB_OK;
        },
        &visit);
}

} // namespace meridal
