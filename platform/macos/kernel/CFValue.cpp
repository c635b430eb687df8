// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/CFValue.h"

#include "base/Text.h"
#include "platform/macos/kernel/CFRef.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace meridal {

namespace {

Value valueAtDepth(CFTypeRef object, int depth);

Value numberValue(CFNumberRef number)
{
    if (CFNumberIsFloatType(number)) {
        double figure = 0;
        CFNumberGetValue(number, kCFNumberDoubleType, &figure);
        return figure;
    }
    // Drivers store signed figures as unsigned 64-bit numbers: the same bits, read with their sign.
    std::int64_t figure = 0;
    CFNumberGetValue(number, kCFNumberSInt64Type, &figure);
    return figure;
}

Value arrayValue(CFArrayRef array, int depth)
{
    Value values = Value::array();
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        values.push_back(valueAtDepth(CFArrayGetValueAtIndex(array, i), depth + 1));
    }
    return values;
}

Value dictionaryValue(CFDictionaryRef dictionary, int depth)
{
    const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
    std::vector<const void*> keys(count);
    std::vector<const void*> entries(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), entries.data());
    Value values = Value::object();
    for (std::size_t i = 0; i < count; ++i) {
        if (const auto key = textOf(keys[i])) {
            values[validUtf8(*key)] = valueAtDepth(entries[i], depth + 1);
        }
    }
    return values;
}

Value valueAtDepth(CFTypeRef object, int depth)
{
    if (!object || depth > maximumNesting) {
        return nullptr;
    }
    if (const auto text = textOf(object)) {
        return validUtf8(*text);
    }
    const CFTypeID type = CFGetTypeID(object);
    if (type == CFBooleanGetTypeID()) {
        return CFBooleanGetValue(static_cast<CFBooleanRef>(object)) != 0;
    }
    if (type == CFNumberGetTypeID()) {
        return numberValue(static_cast<CFNumberRef>(object));
    }
    if (type == CFDateGetTypeID()) {
        return CFDateGetAbsoluteTime(static_cast<CFDateRef>(object)) + kCFAbsoluteTimeIntervalSince1970;
    }
    if (type == CFArrayGetTypeID()) {
        return arrayValue(static_cast<CFArrayRef>(object), depth);
    }
    return type == CFDictionaryGetTypeID() ? dictionaryValue(static_cast<CFDictionaryRef>(object), depth) : Value();
}

} // namespace

Value valueOf(CFTypeRef object) { return valueAtDepth(object, 1); }

} // namespace meridal
