// SPDX-License-Identifier: Apache-2.0
#include "base/Value.h"

#include "base/JsonMeasure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

template class nlohmann::basic_json<>;

namespace meridal {

namespace {

/// Of bytes: whether one has to be written in another way within a JSON text, or may be part of what is no UTF-8.
constexpr std::array<bool, 256> needsCare = [] {
    std::array<bool, 256> all{};
    for (std::size_t byte = 0; byte < all.size(); ++byte) {
        all[byte] = byte < 0x20 || byte >= 0x7F || byte == '"' || byte == '\\';
    }
    return all;
}();

bool isPlain(std::string_view text)
{
    bool care = false;
    for (const char c : text) { // names are short: all of one is looked at sooner than where to stop
        care |= needsCare[static_cast<unsigned char>(c)];
    }
    return !care;
}

} // namespace

const Value* find(const Value& dictionary, std::string_view key)
{
    if (!dictionary.is_object()) {
        return nullptr;
    }
    const auto entry = dictionary.find(key);
    return entry == dictionary.end() ? nullptr : &*entry;
}

std::optional<double> number(const Value& dictionary, std::string_view key)
{
    const Value* entry = find(dictionary, key);
    if (!entry || !entry->is_number()) {
        return std::nullopt;
    }
    const double figure = entry->get<double>();
    return std::isfinite(figure) ? std::optional(figure) : std::nullopt;
}

std::optional<std::int64_t> integer(const Value& dictionary, std::string_view key)
{
    const Value* entry = find(dictionary, key);
    if (!entry || !entry->is_number_integer()) {
        return std::nullopt;
    }
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (entry->is_number_unsigned() && entry->get<std::uint64_t>() > largest) {
        return std::nullopt;
    }
    return entry->get<std::int64_t>();
}

std::optional<std::string> text(const Value& dictionary, std::string_view key)
{
    const Value* entry = find(dictionary, key);
    if (!entry || !entry->is_string()) {
        return std::nullopt;
    }
    return entry->get<std::string>();
}

std::string serialise(const Value& value) { return value.dump(-1, ' ', false, Value::error_handler_t::replace); }

void appendText(std::string& json, std::string_view text)
{
    if (!isPlain(text)) {
        json += serialise(Value(text));
        return;
    }
    json.append(text.size() + 2, '"');
    text.copy(json.data() + json.size() - 1 - text.size(), text.size());
}

void appendNumber(std::string& json, double number)
{
    if (number == 0) { // most figures of most processes
        json += std::signbit(number) ? "-0.0" : "0.0";
    } else if (std::isfinite(number)) { // the digits that the library writes, without its serialiser
        std::array<char, 64> digits{};
        const char* end = nlohmann::detail::to_chars(digits.data(), digits.data() + digits.size(), number);
        json.append(digits.data(), static_cast<std::size_t>(end - digits.data()));
    } else {
        json += "null";
    }
}

/// The depth is measured beforehand: a value that nests deeper must never exist, because destroying or copying it recurses. The
/// parser's own way to cut it off, a callback, looks at all elements so far after each object.
std::optional<Value> parseUntrusted(std::string_view text)
{
    if (measureJson(text).depth > maximumNesting) {
        return std::nullopt;
    }
    return parseShallow(text);
}

std::optional<Value> parseShallow(std::string_view text)
{
    Value value = Value::parse(text, nullptr, false);
    return value.is_discarded() ? std::nullopt : std::optional(std::move(value));
}

} // namespace meridal
