// SPDX-License-Identifier: Apache-2.0
#include "client/screen/WallClock.h"

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <cmath>
#include <ctime>

namespace meridal {

double wallTime() { return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count(); }

std::string formatTime(std::optional<double> time, const char* format, TimeZone zone)
{
    constexpr double latest = 1e11; // s since 1970
    const auto seconds = static_cast<std::time_t>(std::floor(time && std::abs(*time) < latest ? *time : 0));
    std::tm parts{};
    std::array<char, 32> text{};
    const bool isTold = time && std::abs(*time) < latest
        && (zone == TimeZone::Utc ? ::gmtime_r(&seconds, &parts) : ::localtime_r(&seconds, &parts))
        && std::strftime(text.data(), text.size(), format, &parts) != 0;
    return isTold ? text.data() : "-";
}

namespace {

/// "+02:00"
std::string zoneOffsetAt(double time)
{
    std::string offset = formatTime(time, "%z");
    if (constexpr std::size_t minutes = 3; offset.size() > minutes) {
        offset.insert(minutes, ":");
    }
    return offset;
}

} // namespace

std::string isoTime(double time)
{
    const double whole = std::floor(time);
    const auto milliseconds = static_cast<int>((time - whole) * 1000); // not rounded up into the next second
    const std::string offset = zoneOffsetAt(whole);
    const std::string fraction = milliseconds > 0 ? fmt::format(".{:03}", milliseconds) : "";
    return formatTime(whole, "%Y-%m-%dT%H:%M:%S") + fraction + (offset == "+00:00" ? "Z" : offset);
}

std::string formatWithZone(double time)
{
    const std::string zone = formatTime(time, "%Z");
    const std::string offset = zoneOffsetAt(time);
    return formatTime(time, "%a %Y-%m-%d %H:%M:%S ") + zone + (zone == "UTC" ? "" : " (UTC" + offset + ")");
}

} // namespace meridal
