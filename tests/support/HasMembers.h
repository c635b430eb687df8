// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <gmock/gmock.h>

#include <utility>

namespace meridal::test {

MATCHER_P(HasMembers, members, "has the members " + members.dump())
{
    for (const auto& [key, expected] : members.items()) {
        const Value* found = find(arg, key);
        if (found ? *found != expected : !expected.is_null()) {
            *result_listener << "whose \"" << key << "\" is " << (found ? found->dump() : "missing");
            return false;
        }
    }
    return arg.is_object();
}

/// An object with these members, whatever others it has. Null says that there is no such member.
inline auto hasMembers(Value members) { return HasMembers(std::move(members)); }

} // namespace meridal::test
