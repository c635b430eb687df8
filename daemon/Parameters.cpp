// SPDX-License-Identifier: Apache-2.0
#include "daemon/Parameters.h"

#include <fmt/format.h>

#include <utility>

namespace meridal {

Parameters::Parameters(const Value& given)
{
    const Value& parameters = given.is_array() && given.size() == 1 ? given[0] : given;
    if (parameters.is_object()) {
        object_ = &parameters;
    } else if (!parameters.is_null() && !(parameters.is_array() && parameters.empty())) {
        refuse("expected an object with named parameters");
    }
}

void Parameters::refuse(std::string message)
{
    if (!error_) {
        error_ = Error{ErrorCode::InvalidArgument, std::move(message)};
    }
}

const Value* Parameters::entry(const std::string& name) const
{
    const Value* found = object_ ? find(*object_, name) : nullptr;
    return found && !found->is_null() ? found : nullptr;
}

std::optional<std::string> Parameters::text(const std::string& name)
{
    const Value* found = entry(name);
    if (found && !found->is_string()) {
        refuse(fmt::format("\"{}\" must be text", name));
        return std::nullopt;
    }
    return found ? std::optional(found->get<std::string>()) : std::nullopt;
}

std::optional<double> Parameters::moment(const std::string& name)
{
    const auto figure = entry(name) ? number(*object_, name) : std::nullopt;
    if (entry(name) && !figure) {
        refuse(fmt::format("\"{}\" must be a number, in seconds since 1970", name));
    }
    return figure;
}

std::optional<double> Parameters::seconds(const std::string& name)
{
    const auto figure = entry(name) ? number(*object_, name) : std::nullopt;
    if (entry(name) && !figure) {
        refuse(fmt::format("\"{}\" must be a number, in seconds", name));
    }
    return figure;
}

std::optional<std::uint64_t> Parameters::count(const std::string& name)
{
    const auto figure = entry(name) ? integer(*object_, name) : std::nullopt;
    if (entry(name) && (!figure || *figure < 0)) {
        refuse(fmt::format("\"{}\" must be a whole number, not below 0", name));
        return std::nullopt;
    }
    return figure ? std::optional(static_cast<std::uint64_t>(*figure)) : std::nullopt;
}

bool Parameters::flag(const std::string& name)
{
    const Value* found = entry(name);
    if (found && !found->is_boolean()) {
        refuse(fmt::format("\"{}\" must be true or false", name));
    }
    return found && *found == true;
}

std::optional<std::vector<std::string>> Parameters::texts(const std::string& name)
{
    const Value* found = entry(name);
    if (!found) {
        return std::nullopt;
    }
    std::vector<std::string> texts;
    for (const Value& each : found->is_array() ? *found : Value::array()) {
        if (each.is_string()) {
            texts.push_back(each.get<std::string>());
        }
    }
    if (!found->is_array() || texts.size() != found->size()) {
        refuse(fmt::format("\"{}\" must be a list of texts", name));
        return std::nullopt;
    }
    return texts;
}

const Value* Parameters::object(const std::string& name)
{
    const Value* found = entry(name);
    if (found && !found->is_object()) {
        refuse(fmt::format("\"{}\" must be an object", name));
        return nullptr;
    }
    return found;
}

std::optional<std::int64_t> Parameters::wholeNumber(const std::string& name)
{
    const auto figure = entry(name) ? integer(*object_, name) : std::nullopt;
    if (entry(name) && !figure) {
        refuse(fmt::format("\"{}\" must be a whole number", name));
    }
    return figure;
}

std::size_t Parameters::limit(std::size_t standard, std::size_t longest)
{
    if (!entry("limit")) {
        return standard;
    }
    const auto figure = integer(*object_, "limit");
    if (!figure || *figure < 1 || static_cast<std::size_t>(*figure) > longest) {
        refuse(fmt::format("\"limit\" must be a whole number from 1 to {}", longest));
        return standard;
    }
    return static_cast<std::size_t>(*figure);
}

} // namespace meridal
