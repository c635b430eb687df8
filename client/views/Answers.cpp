// SPDX-License-Identifier: Apache-2.0
#include "client/views/Answers.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/screen/WallClock.h"
#include "client/views/HistoryView.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

namespace {

/// Entries of these names are moments, unless the number is so small that it is a length or a count: a battery's "time" is minutes.
bool isMoment(std::string_view key, const Value& value)
{
    constexpr std::array<std::string_view, 14> names = {"time", "from", "until", "start", "end", "since", "began",
        "started", "shutdown", "wallTime", "bootTime", "boottime", "sourceTime", "manufactureTime"};
    constexpr double earliest = 1e8; // s since 1970: in 1973
    return value.is_number() && std::find(names.begin(), names.end(), key) != names.end()
        && value.get<double>() >= earliest && value.get<double>() < 1e11;
}

void tellMoments(Value& value)
{
    if (value.is_object()) {
        for (auto& [key, entry] : value.get_ref<Value::object_t&>()) {
            if (isMoment(key, entry)) {
                entry = isoTime(entry.get<double>());
            } else {
                tellMoments(entry);
            }
        }
    } else if (value.is_array()) {
        for (Value& entry : value) {
            tellMoments(entry);
        }
    }
}

const Value* entryAt(const Value& row, std::string_view column)
{
    const std::size_t dot = column.find('.');
    const Value* entry = find(row, column.substr(0, dot));
    return !entry || dot == std::string_view::npos ? entry : find(*entry, column.substr(dot + 1));
}

std::string fieldOf(std::string_view column, const Value& entry)
{
    if (entry.is_null()) {
        return {};
    }
    if (entry.is_array()) {
        std::string all;
        for (const Value& each : entry) {
            all += (all.empty() ? "" : " ") + (each.is_string() ? each.get<std::string>() : serialise(each));
        }
        return csvField(printable(all));
    }
    return entry.is_string()      ? csvField(printable(entry.get_ref<const std::string&>()))
        : isMoment(column, entry) ? isoTime(entry.get<double>())
                                  : serialise(entry);
}

} // namespace

std::string answerLine(Value answer)
{
    tellMoments(answer);
    return jsonLine(answer);
}

std::string csvOf(const Value& rows, std::span<const char* const> columns)
{
    std::vector<std::string_view> present;
    std::copy_if(columns.begin(), columns.end(), std::back_inserter(present), [&](const char* column) {
        return rows.empty()
            || std::any_of(rows.begin(), rows.end(), [&](const Value& row) { return entryAt(row, column); });
    });
    std::string out;
    for (const std::string_view column : present) {
        out += (out.empty() ? "" : ",") + std::string(column);
    }
    for (const Value& row : rows) {
        out += '\n';
        for (std::size_t index = 0; index < present.size(); ++index) {
            const Value* entry = entryAt(row, present[index]);
            out += index == 0 ? "" : ",";
            out += entry ? fieldOf(present[index], *entry) : "";
        }
    }
    return out + '\n';
}

} // namespace meridal
