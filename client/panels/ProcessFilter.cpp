// SPDX-License-Identifier: Apache-2.0
#include "client/panels/ProcessFilter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>

namespace meridal {

namespace {

constexpr std::array<std::string_view, 4> filterFields = {"user", "unit", "name", "command"};

std::optional<std::int64_t> pidFrom(std::string_view digits)
{
    std::int64_t pid = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), pid);
    const bool isPid = error == std::errc() && end == digits.data() + digits.size() && pid > 0;
    return isPid ? std::optional(pid) : std::nullopt;
}

/// Whether the word is a field's, which the filter has then.
bool addField(Value& filter, std::string_view word)
{
    const std::size_t colon = word.find(':');
    if (colon == std::string_view::npos || colon + 1 == word.size()) {
        return false;
    }
    const std::string_view field = word.substr(0, colon);
    const std::string_view value = word.substr(colon + 1);
    const auto pid = field == "pid" ? pidFrom(value) : std::nullopt;
    if (pid) {
        filter["pid"] = *pid;
    } else if (std::find(filterFields.begin(), filterFields.end(), field) != filterFields.end()) {
        filter[std::string(field)] = value;
    } else {
        return false;
    }
    return true;
}

} // namespace

Value processFilterFrom(std::string_view typed)
{
    Value filter = Value::object();
    if (typed.size() > 2 && typed.starts_with('/') && typed.ends_with('/')) {
        filter = {{"text", typed.substr(1, typed.size() - 2)}, {"regex", true}};
        return filter;
    }
    std::string rest;
    while (!typed.empty()) {
        const std::size_t end = std::min(typed.find(' '), typed.size());
        const std::string_view word = typed.substr(0, end);
        typed.remove_prefix(std::min(end + 1, typed.size()));
        if (!word.empty() && !addField(filter, word)) {
            rest += (rest.empty() ? "" : " ") + std::string(word);
        }
    }
    if (!rest.empty()) {
        filter["text"] = rest;
    }
    return filter;
}

} // namespace meridal
