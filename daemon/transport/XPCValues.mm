// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/XPCValues.h"

#include "base/Text.h"
#include "base/Value.h"

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

NSString* stringFromText(const std::string& text)
{
    const std::string valid = validUtf8(text);
    NSString* string = [[NSString alloc] initWithBytes:valid.data() length:valid.size() encoding:NSUTF8StringEncoding];
    return string ? string : @"";
}

id objectAtDepth(const Value& value, int depth);

NSArray* arrayFromValue(const Value& value, int depth)
{
    NSMutableArray* array = [NSMutableArray arrayWithCapacity:value.size()];
    for (const Value& element : value) {
        id object = objectAtDepth(element, depth + 1);
        if (object != NSNull.null) {
            [array addObject:object];
        }
    }
    return array;
}

NSDictionary* dictionaryFromValue(const Value& value, int depth)
{
    NSMutableDictionary* dictionary = [NSMutableDictionary dictionaryWithCapacity:value.size()];
    for (const auto& entry : value.items()) {
        id object = objectAtDepth(entry.value(), depth + 1);
        if (object != NSNull.null) {
            dictionary[stringFromText(entry.key())] = object;
        }
    }
    return dictionary;
}

/// `depth` is the number of arrays and dictionaries around the value.
id objectAtDepth(const Value& value, int depth)
{
    switch (value.type()) {
    case Value::value_t::boolean:
        return value.get<bool>() ? @YES : @NO;
    case Value::value_t::number_integer:
        return @(value.get<std::int64_t>());
    case Value::value_t::number_unsigned:
        return @(value.get<std::uint64_t>());
    case Value::value_t::number_float:
        return @(value.get<double>());
    case Value::value_t::string:
        return stringFromText(value.get_ref<const std::string&>());
    case Value::value_t::array:
        return depth < maximumNesting ? arrayFromValue(value, depth) : NSNull.null;
    case Value::value_t::object:
        return depth < maximumNesting ? dictionaryFromValue(value, depth) : NSNull.null;
    case Value::value_t::null:
    case Value::value_t::binary:
    case Value::value_t::discarded:
        break;
    }
    return NSNull.null;
}

std::string textFromString(NSString* string)
{
    // Lossy, because half a surrogate pair has no form in UTF-8.
    NSData* data = [string dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES];
    return data ? validUtf8({static_cast<const char*>(data.bytes), data.length}) : std::string();
}

Value valueFromNumber(NSNumber* number)
{
    if (CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID()) {
        return static_cast<bool>(number.boolValue);
    }
    if (CFNumberIsFloatType((__bridge CFNumberRef)number)) {
        return number.doubleValue;
    }
    const auto beyondSigned = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const std::uint64_t bits = number.unsignedLongLongValue;
    if (bits > beyondSigned && std::string_view(number.objCType) == @encode(unsigned long long)) {
        return bits;
    }
    return static_cast<std::int64_t>(number.longLongValue);
}

/// Walks one argument and counts what it meets.
class Reader {
public:
    std::optional<Value> read(id object, int depth)
    {
        if (--objectsLeft_ < 0) {
            return std::nullopt;
        }
        if ([object isKindOfClass:NSString.class]) {
            return textFromString(object);
        }
        if ([object isKindOfClass:NSNumber.class]) {
            return valueFromNumber(object);
        }
        if ([object isKindOfClass:NSArray.class]) {
            return readArray(object, depth);
        }
        if ([object isKindOfClass:NSDictionary.class]) {
            return readDictionary(object, depth);
        }
        return Value();
    }

private:
    std::optional<Value> readArray(NSArray* array, int depth)
    {
        if (depth >= maximumNesting) {
            return std::nullopt;
        }
        Value value = Value::array();
        for (id element in array) {
            auto converted = read(element, depth + 1);
            if (!converted) {
                return std::nullopt;
            }
            value.push_back(std::move(*converted));
        }
        return value;
    }

    std::optional<Value> readDictionary(NSDictionary* dictionary, int depth)
    {
        if (depth >= maximumNesting) {
            return std::nullopt;
        }
        Value value = Value::object();
        for (id key in dictionary) {
            auto converted = read(dictionary[key], depth + 1);
            if (!converted || --objectsLeft_ < 0) {
                return std::nullopt;
            }
            if ([key isKindOfClass:NSString.class]) {
                value[textFromString(key)] = std::move(*converted);
            }
        }
        return value;
    }

    int objectsLeft_ = maximumObjects;
};

} // namespace

id objectFromValue(const Value& value) { return objectAtDepth(value, 0); }

std::optional<Value> valueFromObject(id object) { return Reader().read(object, 0); }

} // namespace meridal
