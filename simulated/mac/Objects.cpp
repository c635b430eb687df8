// SPDX-License-Identifier: Apache-2.0
#include "simulated/mac/Objects.h"

#include "base/Text.h"
#include "simulated/mac/Ledger.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

namespace meridal::test {

namespace {

std::mutex guard; // of the references' counts and of who is there
std::set<const Object*>& alive()
{
    static auto* const objects = new std::set<const Object*>; // to the end: constants are nobody's leak
    return *objects;
}

std::string nameOf(const Object& object)
{
    switch (object.kind) {
    case ObjectKind::String:
        return "string \"" + object.text + '"';
    case ObjectKind::Dictionary:
        return "dictionary";
    case ObjectKind::Array:
        return "array";
    case ObjectKind::Data:
        return "data";
    case ObjectKind::Number:
        return "number " + std::to_string(object.isReal ? object.real : static_cast<double>(object.integer));
    case ObjectKind::Date:
        return "date";
    default:
        return object.text;
    }
}

CFTypeRef constant(ObjectKind kind, std::string text, bool value = false)
{
    Object object{.kind = kind, .isConstant = true, .text = std::move(text)};
    object.integer = value ? 1 : 0;
    return make(std::move(object));
}

bool areEqual(const Object& first, const Object& second)
{
    const auto same = [](CFTypeRef a, CFTypeRef b) { return areEqual(objectAt(a), objectAt(b)); };
    const auto sameEntry = [same](const auto& a, const auto& b) {
        return same(a.first, b.first) && same(a.second, b.second);
    };
    return &first == &second
        || (first.kind == second.kind && first.text == second.text && first.real == second.real
            && first.integer == second.integer
            && std::equal(first.items.begin(), first.items.end(), second.items.begin(), second.items.end(), same)
            && std::equal(
                first.entries.begin(), first.entries.end(), second.entries.begin(), second.entries.end(), sameEntry));
}

/// Units of UTF-16, in which strings are counted.
CFIndex unitsOf(const std::string& utf8)
{
    return std::count_if(utf8.begin(), utf8.end(), [](char byte) {
        const auto value = static_cast<unsigned char>(byte);
        return (value & 0xC0) != 0x80;
    }) + std::count_if(utf8.begin(), utf8.end(), [](char byte) { return static_cast<unsigned char>(byte) >= 0xF0; });
}

} // namespace

Object& objectAt(CFTypeRef reference)
{
    auto* object = static_cast<Object*>(const_cast<void*>(reference));
    const std::lock_guard lock(guard);
    if (!alive().contains(object)) {
        std::fprintf(stderr, "an object is used that is not there, or not any more\n");
        std::abort();
    }
    return *object;
}

CFTypeRef make(Object object)
{
    auto owned = std::make_unique<Object>(std::move(object));
    if (!owned->isConstant) {
        Ledger::current().opened(nameOf(*owned));
    }
    const std::lock_guard lock(guard);
    alive().insert(owned.get());
    return owned.release();
}

CFStringRef stringObject(std::string text)
{
    return makeAs<CFStringRef>({.kind = ObjectKind::String, .text = std::move(text)});
}

CFTypeRef objectOf(const Value& value)
{
    Object object{.kind = ObjectKind::Other, .text = "an object of an unknown kind"};
    if (value.is_string()) {
        return stringObject(value.get<std::string>());
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? kCFBooleanTrue : kCFBooleanFalse;
    }
    if (value.is_binary()) {
        object = {.kind = ObjectKind::Data, .text = {value.get_binary().begin(), value.get_binary().end()}};
    } else if (value.is_number()) {
        object = {.kind = ObjectKind::Number};
        object.isReal = value.is_number_float();
        object.real = object.isReal ? value.get<double>() : 0;
        object.integer = object.isReal ? 0 : value.get<std::int64_t>();
    } else if (value.is_array()) {
        object = {.kind = ObjectKind::Array};
        for (const Value& each : value) {
            object.items.push_back(objectOf(each));
        }
    } else if (value.is_object()) {
        object = {.kind = ObjectKind::Dictionary};
        for (const auto& [key, each] : value.items()) {
            object.entries.emplace_back(stringObject(key), objectOf(each));
        }
    }
    return make(std::move(object));
}

CFTypeRef entryOf(CFTypeRef dictionary, const std::string& key)
{
    const Object& object = objectAt(dictionary);
    const auto found = std::find_if(
        object.entries.begin(), object.entries.end(), [&key](const auto& each) { return textIn(each.first) == key; });
    return found == object.entries.end() ? nullptr : found->second;
}

std::string textIn(CFTypeRef object)
{
    const bool isString = object && objectAt(object).kind == ObjectKind::String;
    return isString ? objectAt(object).text : "";
}

} // namespace meridal::test

using namespace meridal::test;

CFStringRef constantString(const char* text)
{
    static std::mutex mutex;
    static std::map<std::string, CFStringRef> strings;
    const std::lock_guard lock(mutex);
    const auto [place, isNew] = strings.try_emplace(text);
    if (isNew) {
        place->second = static_cast<CFStringRef>(constant(ObjectKind::String, text));
    }
    return place->second;
}

extern "C" {

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFBooleanRef kCFBooleanTrue = static_cast<CFBooleanRef>(constant(ObjectKind::Boolean, "true", true));
const CFBooleanRef kCFBooleanFalse = static_cast<CFBooleanRef>(constant(ObjectKind::Boolean, "false"));
const CFArrayCallBacks kCFTypeArrayCallBacks = {};
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {};
const double kCFAbsoluteTimeIntervalSince1970 = 978307200;

CFTypeRef CFRetain(CFTypeRef reference)
{
    Object& object = objectAt(reference);
    const std::lock_guard lock(guard);
    ++object.references;
    return reference;
}

void CFRelease(CFTypeRef reference)
{
    Object& object = objectAt(reference);
    std::unique_lock lock(guard);
    if (object.isConstant || --object.references > 0) {
        return;
    }
    alive().erase(&object);
    lock.unlock();
    const std::unique_ptr<Object> last(&object);
    for (CFTypeRef each : last->items) {
        CFRelease(each);
    }
    for (const auto& [key, value] : last->entries) {
        CFRelease(key);
        CFRelease(value);
    }
    if (last->ended) {
        last->ended();
    }
    Ledger::current().closed(nameOf(*last));
}

CFTypeID CFGetTypeID(CFTypeRef object) { return static_cast<CFTypeID>(objectAt(object).kind); }
Boolean CFEqual(CFTypeRef first, CFTypeRef second) { return areEqual(objectAt(first), objectAt(second)) ? 1 : 0; }

CFTypeID CFStringGetTypeID() { return static_cast<CFTypeID>(ObjectKind::String); }
CFTypeID CFDataGetTypeID() { return static_cast<CFTypeID>(ObjectKind::Data); }
CFTypeID CFNumberGetTypeID() { return static_cast<CFTypeID>(ObjectKind::Number); }
CFTypeID CFBooleanGetTypeID() { return static_cast<CFTypeID>(ObjectKind::Boolean); }
CFTypeID CFDateGetTypeID() { return static_cast<CFTypeID>(ObjectKind::Date); }
CFTypeID CFArrayGetTypeID() { return static_cast<CFTypeID>(ObjectKind::Array); }
CFTypeID CFDictionaryGetTypeID() { return static_cast<CFTypeID>(ObjectKind::Dictionary); }

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex size, CFStringEncoding, Boolean)
{
    std::string text(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
    return meridal::validUtf8(text) == text ? stringObject(std::move(text)) : nullptr;
}

CFStringRef CFStringCreateWithFormat(CFAllocatorRef, CFDictionaryRef, CFStringRef format, ...)
{
    std::string text = textIn(format);
    va_list arguments;
    va_start(arguments, format);
    for (auto place = text.find("%@"); place != std::string::npos; place = text.find("%@", place)) {
        const std::string word = textIn(va_arg(arguments, CFTypeRef));
        text.replace(place, 2, word);
        place += word.size();
    }
    va_end(arguments);
    return stringObject(std::move(text));
}

CFIndex CFStringGetLength(CFStringRef string) { return unitsOf(objectAt(string).text); }
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding) { return 3 * length; }

CFIndex CFStringGetBytes(
    CFStringRef string, CFRange range, CFStringEncoding, UInt8, Boolean, UInt8* buffer, CFIndex size, CFIndex* used)
{
    const std::string& text = objectAt(string).text;
    if (static_cast<CFIndex>(text.size()) > size) {
        Ledger::misuse("a string's bytes do not fit where they are wanted");
        *used = 0;
        return 0;
    }
    std::memcpy(buffer, text.data(), text.size());
    *used = static_cast<CFIndex>(text.size());
    return range.length;
}

CFComparisonResult CFStringCompare(CFStringRef first, CFStringRef second, CFStringCompareFlags)
{
    return textIn(first).compare(textIn(second));
}

const UInt8* CFDataGetBytePtr(CFDataRef data) { return reinterpret_cast<const UInt8*>(objectAt(data).text.data()); }
CFIndex CFDataGetLength(CFDataRef data) { return static_cast<CFIndex>(objectAt(data).text.size()); }

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType, const void* value)
{
    Object number{.kind = ObjectKind::Number};
    std::memcpy(&number.integer, value, sizeof number.integer);
    return makeAs<CFNumberRef>(std::move(number));
}

Boolean CFNumberGetValue(CFNumberRef reference, CFNumberType type, void* value)
{
    const Object& number = objectAt(reference);
    const double real = number.isReal ? number.real : static_cast<double>(number.integer);
    std::memcpy(value, type == kCFNumberDoubleType ? static_cast<const void*>(&real) : &number.integer, sizeof real);
    return 1;
}

Boolean CFNumberIsFloatType(CFNumberRef number) { return objectAt(number).isReal ? 1 : 0; }
Boolean CFBooleanGetValue(CFBooleanRef boolean) { return objectAt(boolean).integer != 0 ? 1 : 0; }
CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) { return objectAt(date).real; }

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex count, const CFArrayCallBacks*)
{
    Object array{.kind = ObjectKind::Array};
    for (CFIndex i = 0; i < count; ++i) {
        array.items.push_back(CFRetain(values[i]));
    }
    return makeAs<CFArrayRef>(std::move(array));
}

CFIndex CFArrayGetCount(CFArrayRef array) { return static_cast<CFIndex>(objectAt(array).items.size()); }
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index)
{
    return objectAt(array).items.at(static_cast<std::size_t>(index));
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values, CFIndex count,
    const CFDictionaryKeyCallBacks* keyCallbacks, const CFDictionaryValueCallBacks* valueCallbacks)
{
    const CFMutableDictionaryRef made = CFDictionaryCreateMutable(allocator, count, keyCallbacks, valueCallbacks);
    for (CFIndex i = 0; i < count; ++i) {
        CFDictionarySetValue(made, keys[i], values[i]);
    }
    return made;
}

CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef, CFIndex, const CFDictionaryKeyCallBacks*, const CFDictionaryValueCallBacks*)
{
    return makeAs<CFMutableDictionaryRef>({.kind = ObjectKind::Dictionary});
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value)
{
    for (auto& [known, before] : objectAt(dictionary).entries) {
        if (CFEqual(known, key)) {
            CFRelease(std::exchange(before, CFRetain(value)));
            return;
        }
    }
    objectAt(dictionary).entries.emplace_back(CFRetain(key), CFRetain(value));
}

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key)
{
    if (objectAt(dictionary).kind != ObjectKind::Dictionary) {
        Ledger::misuse("an entry is asked of what is no dictionary");
    }
    return entryOf(dictionary, textIn(key));
}
CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary)
{
    return static_cast<CFIndex>(objectAt(dictionary).entries.size());
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values)
{
    for (const auto& [key, value] : objectAt(dictionary).entries) {
        *keys++ = key;
        *values++ = value;
    }
}

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef, UInt8 byte0, UInt8 byte1, UInt8 byte2, UInt8 byte3,
    UInt8 byte4, UInt8 byte5, UInt8 byte6, UInt8 byte7, UInt8 byte8, UInt8 byte9, UInt8 byte10, UInt8 byte11,
    UInt8 byte12, UInt8 byte13, UInt8 byte14, UInt8 byte15)
{
    static std::vector<CFUUIDRef> known;
    const CFUUIDBytes bytes = {byte0, byte1, byte2, byte3, byte4, byte5, byte6, byte7, byte8, byte9, byte10, byte11,
        byte12, byte13, byte14, byte15};
    for (CFUUIDRef each : known) {
        if (objectAt(each).uuid == bytes) {
            return each;
        }
    }
    Object uuid{.kind = ObjectKind::UUID, .isConstant = true, .text = "an identifier"};
    uuid.uuid = bytes;
    return known.emplace_back(makeAs<CFUUIDRef>(std::move(uuid)));
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) { return objectAt(uuid).uuid; }

/// The program is not in a bundle.
CFBundleRef CFBundleGetMainBundle() { return nullptr; }
CFStringRef CFBundleGetIdentifier(CFBundleRef) { return nullptr; }
}
