#pragma once

#include "base/Value.h"

#include <gmock/gmock.h>

#include <utility>

namespace meridal::test {

/// An object with these members, whatever others it has. Null says that there is no such member.
class HasMembersMatcher {
public:
    using is_gtest_matcher = void;
    explicit HasMembersMatcher(Value members) : members_(std::move(members)) { }
    bool MatchAndExplain(const Value& object, std::ostream* listener) const
    {
        for (const auto& [key, expected] : members_.items()) {
            const Value* found = find(object, key);
            if (found ? *found != expected : !expected.is_null()) {
                if (listener) {
                    *listener << "whose \"" << key << "\" is " << (found ? found->dump() : "missing");
                }
                return false;
            }
        }
        return object.is_object();
    }
    void DescribeTo(std::ostream* os) const { *os << "has the members " << members_.dump(); }
    void DescribeNegationTo(std::ostream* os) const { *os << "lacks one of the members " << members_.dump(); }

private:
    Value members_;
};

inline testing::Matcher<const Value&> hasMembers(Value members) { return HasMembersMatcher(std::move(members)); }

} // namespace meridal::test
