// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace meridal::test {

/// What kind of object a reference leads to. The numbers are the types' identifiers; 0 is what no type has.
enum class ObjectKind : CFTypeID { String = 7, Null, Dictionary, Array, Data, Boolean, Number, Date, UUID, Other };

/// An object of Core Foundation, with its count of references. Each that is not constant is in the ledger.
struct Object {
    ObjectKind kind = ObjectKind::Other;
    int references = 1;
    bool isConstant = false;
    std::string text{}; ///< a string's, as UTF-8; data's bytes; of an Other what it is
    double real = 0;
    std::int64_t integer = 0;
    bool isReal = false;
    std::vector<CFTypeRef> items{};                         ///< retained
    std::vector<std::pair<CFTypeRef, CFTypeRef>> entries{}; ///< retained
    CFUUIDBytes uuid{};
    std::function<void()> ended{}; ///< what an Other does when its last reference goes
};

/// The object, or a failed test and the end of the program if there is none any more.
Object& objectAt(CFTypeRef reference);
/// A new object with one reference.
CFTypeRef make(Object object);
template <typename Ref>
Ref makeAs(Object object)
{
    return static_cast<Ref>(const_cast<void*>(make(std::move(object))));
}

/// A property list. A binary value becomes data, a null an object of a kind that nobody knows.
CFTypeRef objectOf(const Value& value);
CFStringRef stringObject(std::string text);
/// The entry of a dictionary; null where it has none, or is no dictionary.
CFTypeRef entryOf(CFTypeRef dictionary, const std::string& key);
/// Text of a string; empty for anything else.
std::string textIn(CFTypeRef object);

} // namespace meridal::test
