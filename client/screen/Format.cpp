// SPDX-License-Identifier: Apache-2.0
#include "client/screen/Format.h"

#include "base/Text.h"

#include <fmt/format.h>

#include <array>
#include <cmath>

namespace meridal {

namespace {

/// Three significant digits without an exponent: 1.23, 12.3, 123.
std::string threeDigits(double value)
{
    const double size = std::abs(value);
    const int decimals = size < 9.995 ? 2 : size < 99.95 ? 1 : 0;
    return size < 1e6 ? fmt::format("{:.{}f}", value, decimals) : fmt::format("{:.3g}", value);
}

/// The longest beginning of valid UTF-8 text that is no wider than so many columns.
std::string_view cutToWidth(std::string_view text, int columns)
{
    std::size_t end = 0;
    for (int width = 0; end < text.size();) {
        std::size_t next = end + 1;
        while (next < text.size() && (static_cast<unsigned char>(text[next]) & 0xC0U) == 0x80) {
            ++next;
        }
        width += displayWidth(text.substr(end, next - end));
        if (width > columns) {
            break;
        }
        end = next;
    }
    return text.substr(0, end);
}

std::string spaces(int count) { return std::string(static_cast<std::size_t>(count > 0 ? count : 0), ' '); }

/// Text that fits, marked when it was cut.
std::string cut(std::string_view text, int columns)
{
    if (displayWidth(text) <= columns) {
        return std::string(text);
    }
    return columns > 0 ? std::string(cutToWidth(text, columns - 1)) + "…" : std::string();
}

} // namespace

std::string formatBytes(double bytes)
{
    constexpr std::array units = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (!std::isfinite(bytes)) {
        return "-";
    }
    if (std::abs(bytes) < 999.5) {
        return fmt::format("{:.0f} B", bytes);
    }
    std::size_t unit = 0;
    double value = bytes;
    while (std::abs(value) >= 999.5 && unit + 1 < units.size()) {
        value /= 1024;
        ++unit;
    }
    return fmt::format("{} {}", threeDigits(value), units.at(unit));
}

std::string formatByteRate(double bytesPerSecond) { return formatBytes(bytesPerSecond) + "/s"; }

std::string formatFigure(double figure)
{
    if (!std::isfinite(figure)) {
        return "-";
    }
    return std::abs(figure) < 1e6 ? fmt::format("{:.1f}", figure) : fmt::format("{:.3g}", figure);
}

std::string formatDuration(double seconds)
{
    if (!(seconds >= 0) || seconds > 1e12) {
        return "-";
    }
    const auto whole = static_cast<long long>(seconds);
    const long long minutes = whole / 60;
    const long long hours = minutes / 60;
    if (hours >= 24) {
        return fmt::format("{} d {} h", hours / 24, hours % 24);
    }
    if (hours > 0) {
        return fmt::format("{} h {} min", hours, minutes % 60);
    }
    return minutes > 0 ? fmt::format("{} min {} s", minutes, whole % 60) : fmt::format("{} s", whole);
}

std::string formatSpan(double seconds)
{
    std::string words = formatDuration(seconds);
    const std::size_t second = words.find(" 0 ");
    return second == std::string::npos ? words : words.substr(0, second);
}

std::string formatMilliseconds(double seconds)
{
    const double milliseconds = seconds * 1000;
    return milliseconds < 1 ? fmt::format("{:.3g} ms", milliseconds) : threeDigits(milliseconds) + " ms";
}

std::string fitLeft(std::string_view text, int columns)
{
    const std::string shown = cut(text, columns);
    return shown + spaces(columns - displayWidth(shown));
}

std::string fitRight(std::string_view text, int columns)
{
    const std::string shown = cut(text, columns);
    return spaces(columns - displayWidth(shown)) + shown;
}

std::string blocks(int eighths)
{
    static constexpr std::array<const char*, 8> parts = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    std::string text;
    for (int full = 0; full < eighths / 8; ++full) {
        text += "█";
    }
    return text + parts.at(static_cast<std::size_t>(eighths % 8));
}

std::string upperCase(std::string_view text)
{
    std::string capitals(text);
    for (char& letter : capitals) {
        letter = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
    }
    return capitals;
}

std::string terminalJson(const Value& value)
{
    const std::string json = serialise(value);
    std::string result;
    result.reserve(json.size());
    for (std::size_t i = 0; i < json.size(); ++i) {
        const auto byte = static_cast<unsigned char>(json[i]);
        const auto next = i + 1 < json.size() ? static_cast<unsigned char>(json[i + 1]) : 0U;
        if (byte == 0x7F) {
            result += "\\u007f";
        } else if (byte == 0xC2 && next < 0xA0) { // U+0080 to U+009F; they stand in strings only
            result += fmt::format("\\u{:04x}", next);
            ++i;
        } else {
            result += json[i];
        }
    }
    return result;
}

std::string jsonLine(const Value& value) { return terminalJson(value) + '\n'; }

} // namespace meridal
