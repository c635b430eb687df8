// SPDX-License-Identifier: Apache-2.0
#include "database/SqlValue.h"

#include "base/Text.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace meridal {

SqlValue sqlValue(const Value& value)
{
    switch (value.type()) {
    case Value::value_t::boolean:
        return std::int64_t{value.get<bool>() ? 1 : 0};
    case Value::value_t::number_integer:
        return value.get<std::int64_t>();
    case Value::value_t::number_unsigned: {
        const auto figure = value.get<std::uint64_t>();
        constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
        return figure <= largest ? SqlValue(static_cast<std::int64_t>(figure)) : SqlValue(static_cast<double>(figure));
    }
    case Value::value_t::number_float: {
        const auto figure = value.get<double>();
        return std::isfinite(figure) ? SqlValue(figure) : SqlValue();
    }
    case Value::value_t::string:
        return value.get_ref<const std::string&>();
    default:
        return {};
    }
}

Value valueOf(const SqlValue& value)
{
    if (const auto* whole = std::get_if<std::int64_t>(&value)) {
        return *whole;
    }
    if (const auto* figure = std::get_if<double>(&value)) {
        return *figure;
    }
    if (const auto* words = std::get_if<std::string>(&value)) {
        return validUtf8(*words);
    }
    return nullptr;
}

double sqlNumber(const SqlValue& value)
{
    if (const auto* whole = std::get_if<std::int64_t>(&value)) {
        return static_cast<double>(*whole);
    }
    const auto* figure = std::get_if<double>(&value);
    return figure ? *figure : 0;
}

std::int64_t sqlInteger(const SqlValue& value)
{
    constexpr double most = 9e18;
    const auto* whole = std::get_if<std::int64_t>(&value);
    return whole ? *whole : static_cast<std::int64_t>(std::clamp(sqlNumber(value), -most, most));
}

std::string sqlWords(const SqlValue& value)
{
    const auto* words = std::get_if<std::string>(&value);
    return words ? validUtf8(*words) : std::string();
}

std::string sqlText(std::string_view format, std::string_view table)
{
    std::string text;
    text.reserve(format.size() + table.size());
    for (std::size_t mark = format.find("%@"); mark != std::string_view::npos; mark = format.find("%@")) {
        text.append(format.substr(0, mark)).append(table);
        format.remove_prefix(mark + 2);
    }
    return text.append(format);
}

} // namespace meridal
