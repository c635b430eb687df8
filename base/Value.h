// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Instantiated once, in Value.cpp: most of what a source spends on this library is making these members again.
extern template class nlohmann::basic_json<>;

namespace meridal {

/// How deep arrays and objects from outside may nest. Deeper input would overflow the stack when it is copied.
constexpr int maximumNesting = 32;

/// The entry under a key, or null where the dictionary (or the thing that should be one) has none.
const Value* find(const Value& dictionary, std::string_view key);

/// The entry as a number; absent when missing, not a number, or not finite.
std::optional<double> number(const Value& dictionary, std::string_view key);
std::optional<std::int64_t> integer(const Value& dictionary, std::string_view key);
/// The entry as text; absent when missing or not a string.
std::optional<std::string> text(const Value& dictionary, std::string_view key);

/// Adds an entry, unless there is nothing to add.
template <typename Figure>
void put(Dictionary& into, const char* key, const std::optional<Figure>& figure)
{
    if (figure) {
        into[key] = *figure;
    }
}

/// The one place where values become JSON text. Bytes that are not UTF-8 are replaced; never throws for content.
std::string serialise(const Value& value);
/// Appends a text or a number as JSON, as serialise would, to JSON that is written piece by piece: for lists, which cost
/// several times as much as values.
void appendText(std::string& json, std::string_view text);
void appendNumber(std::string& json, double number);

/// Parses one JSON text from outside. Absent on malformed text and on nesting beyond maximumNesting.
std::optional<Value> parseUntrusted(std::string_view text);
/// The same of a text whose depth has been measured already (base/JsonMeasure.h).
std::optional<Value> parseShallow(std::string_view text);

} // namespace meridal
