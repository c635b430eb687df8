#include "client/views/UptimeView.h"

#include "base/Text.h"
#include "client/screen/Format.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace meridal {

namespace {

constexpr int uptimeLabelColumns = 13;
constexpr int timeColumns = 21;
constexpr int durationColumns = 13;

std::string formatTime(std::optional<double> time)
{
    if (!time || !(std::abs(*time) < 1e11)) {
        return "-";
    }
    const auto seconds = static_cast<std::time_t>(std::floor(*time));
    std::tm parts{};
    std::array<char, 32> text{};
    if (!::localtime_r(&seconds, &parts) || std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts) == 0) {
        return "-";
    }
    return text.data();
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

void addSubject(Lines& lines, std::string_view label, const std::string& words)
{
    lines.push_back({{Style::Title, fitLeft(label, uptimeLabelColumns)}, {Style::Plain, words}});
}

void addBoots(Lines& lines, const Value& boots)
{
    lines.push_back({});
    lines.push_back({{Style::Heading,
        fitLeft("STARTED", timeColumns) + fitLeft("ENDED", timeColumns) + fitRight("LASTED", durationColumns)
            + fitRight("ASLEEP", durationColumns) + "  END"}});
    for (const Value& boot : boots) {
        const std::string end = text(boot, "end").value_or("-");
        // Without a farewell the record only knows that it lasted at least so long.
        const std::string lasted = (end == "crash" ? "> " : "") + duration(boot, "length");
        lines.push_back(
            {{Style::Plain,
                 fitLeft(formatTime(number(boot, "started")), timeColumns)
                     + fitLeft(formatTime(number(boot, "shutdown")), timeColumns) + fitRight(lasted, durationColumns)
                     + fitRight(duration(boot, "asleep"), durationColumns) + "  "},
                {styleOf(end), describeEnd(end)}});
    }
}

} // namespace

Lines uptimeLines(const Value& answer, bool history)
{
    Lines lines;
    if (const Value* current = find(answer, "current")) {
        addSubject(lines, "up", duration(*current, "uptime"));
        addSubject(lines, "since", formatTime(number(*current, "started")));
        addSubject(lines, "of it asleep", duration(*current, "asleep"));
    }
    addSubject(lines, "longest run", duration(answer, "longest"));
    const auto availability = number(answer, "availability");
    addSubject(lines, "available", availability ? fixed2(*availability * 100) + " %" : "-");
    if (const Value* boots = find(answer, "boots"); history && boots && boots->is_array()) {
        addBoots(lines, *boots);
    }
    return lines;
}

} // namespace meridal
