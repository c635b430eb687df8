// SPDX-License-Identifier: Apache-2.0
#include "daemon/ProcessTableParameters.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t longestFilter = 256; // bytes

std::optional<std::int32_t> pidIn(Parameters& parameters, const std::string& name)
{
    const auto pid = parameters.count(name);
    if (pid && *pid > std::numeric_limits<std::int32_t>::max()) {
        parameters.refuse(fmt::format("\"{}\" is no process id", name));
        return std::nullopt;
    }
    return pid ? std::optional(static_cast<std::int32_t>(*pid)) : std::nullopt;
}

TextFilter textFilter(Parameters& filter, const std::string& name, bool isPattern)
{
    const auto text = filter.text(name);
    if (!text || text->empty()) {
        return {};
    }
    if (!isPattern) {
        if (text->size() > longestFilter) {
            filter.refuse(fmt::format("\"{}\" has {} bytes at most", name, longestFilter));
        }
        return TextFilter(*text);
    }
    auto pattern = Pattern::of(*text);
    if (!pattern) {
        filter.refuse(fmt::format("\"{}\": {}", name, pattern.error().message));
        return {};
    }
    return TextFilter(*std::move(pattern));
}

ProcessFilter filterIn(Parameters& parameters)
{
    const Value* given = parameters.object("filter");
    if (!given) {
        return {};
    }
    Parameters members(*given);
    const bool isPattern = members.flag("regex");
    ProcessFilter filter;
    filter.any = textFilter(members, "text", isPattern);
    filter.name = textFilter(members, "name", isPattern);
    filter.unit = textFilter(members, "unit", isPattern);
    filter.command = textFilter(members, "command", isPattern);
    filter.user = members.text("user").value_or("");
    filter.pid = pidIn(members, "pid");
    if (!members.valid()) {
        parameters.refuse("in \"filter\": " + members.failure().error.message);
    }
    return filter;
}

ProcessColumn columnIn(Parameters& parameters, const std::string& name)
{
    const auto column = columnNamed(name);
    if (!column) {
        std::string known;
        for (const ProcessColumnTraits& each : processColumns()) {
            known += fmt::format("{}{}", known.empty() ? "" : ", ", each.name);
        }
        parameters.refuse(fmt::format("there is no column \"{}\" but {}", name.substr(0, longestFilter), known));
    }
    return column.value_or(ProcessColumn::Cpu);
}

} // namespace

ProcessTableQuery processTableQuery(Parameters& parameters)
{
    ProcessTableQuery query;
    if (const auto names = parameters.texts("columns")) {
        for (const std::string& name : *names) {
            const ProcessColumn column = columnIn(parameters, name);
            if (std::find(query.columns.begin(), query.columns.end(), column) == query.columns.end()) {
                query.columns.push_back(column);
            }
        }
    } else {
        for (const ProcessColumnTraits& each : processColumns()) {
            query.columns.push_back(each.column);
        }
    }
    if (const auto sort = parameters.text("sort")) {
        query.sort = columnIn(parameters, *sort);
    }
    query.isReversed = parameters.flag("reversed");
    query.filter = filterIn(parameters);
    query.grouped = parameters.flag("grouped");
    query.group = pidIn(parameters, "group");
    if (query.group && query.grouped) {
        parameters.refuse("\"group\" lists the members of one, which \"grouped\" does not show");
    }
    query.offset = parameters.count("offset").value_or(0);
    query.limit = parameters.limit(usualTableRows, mostTableRows);
    return query;
}

} // namespace meridal
