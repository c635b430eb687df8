// SPDX-License-Identifier: Apache-2.0
#include "client/views/UptimeView.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"
#include "client/screen/WallClock.h"

#include <string>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

std::string moment(const Value& from, std::string_view key)
{
    return formatTime(number(from, key), "%Y-%m-%d %H:%M:%S");
}

std::string duration(const Value& from, std::string_view key)
{
    const auto seconds = number(from, key);
    return seconds ? formatDuration(*seconds) : "-";
}

std::string describeEnd(const std::string& end)
{
    if (end == "crash") {
        return "crash or loss of power";
    }
    if (end == "asleep") {
        return "did not wake";
    }
    return end == "running" ? "running" : end == "orderly" ? "shut down" : printable(end);
}

Style styleOf(const std::string& end)
{
    return end == "crash" || end == "asleep" ? Style::Warning : end == "running" ? Style::Title : Style::Plain;
}

Lines bootLines(const Value& boots)
{
    TextTable table(
        {{"STARTED", 21}, {"ENDED", 21}, {"LASTED", 13, Align::Right}, {"ASLEEP", 13, Align::Right, 2}, {"END"}});
    for (const Value& boot : boots) {
        const std::string end = text(boot, "end").value_or("-");
        // Without a farewell the record only knows that it lasted at least so long.
        table.add(
            {moment(boot, "started"), moment(boot, "shutdown"), (end == "crash" ? "> " : "") + duration(boot, "length"),
                duration(boot, "asleep"), {styleOf(end), describeEnd(end)}});
    }
    return table.lines();
}

} // namespace

Lines uptimeLines(const Value& answer, bool history)
{
    Lines lines;
    const auto add = [&lines](std::string_view label, std::string words) {
        lines.push_back(subjectLine(label, {{Style::Plain, std::move(words)}}));
    };
    if (const Value* current = find(answer, "current")) {
        add("up", duration(*current, "uptime"));
        add("since", moment(*current, "started"));
        add("of it asleep", duration(*current, "asleep"));
    }
    add("longest run", duration(answer, "longest"));
    const auto availability = number(answer, "availability");
    add("available", availability ? fixed2(*availability * 100) + " %" : "-");
    if (const Value* boots = find(answer, "boots"); history && boots && boots->is_array()) {
        lines.push_back({});
        appendLines(lines, bootLines(*boots));
    }
    return lines;
}

} // namespace meridal
