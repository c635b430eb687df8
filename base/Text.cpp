// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdint>
#include <locale.h>
#include <locale> // on macOS newlocale and uselocale come with it alone
#include <wchar.h>

namespace meridal {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

struct Decoded {
    char32_t point = 0;
    std::size_t length = 0; ///< 0: malformed
};

Decoded decode(std::string_view rest)
{
    const auto lead = static_cast<unsigned char>(rest[0]);
    if (lead < 0x80) {
        return {lead, 1};
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || rest.size() < length) {
        return {};
    }
    char32_t point = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(rest[i]);
        if ((next & 0xC0) != 0x80) {
            return {};
        }
        point = (point << 6) | (next & 0x3FU);
    }
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
    if (point < smallest[length] || surrogate || point > 0x10FFFF) {
        return {};
    }
    return {point, length};
}

bool isControl(char32_t point) { return point < 0x20 || (point >= 0x7F && point < 0xA0); }

/// As the C library has it of Unicode, whatever the locale of the program: terminals go by the same tables.
int columnsOf(char32_t point)
{
    static const locale_t unicode = [] {
        locale_t found = nullptr;
        for (const char* name : {"C.UTF-8", "UTF-8", "en_US.UTF-8"}) { // the last two are macOS's
            found = found ? found : ::newlocale(LC_CTYPE_MASK, name, nullptr);
        }
        return found;
    }();
    const locale_t before = ::uselocale(unicode);
    const int columns = ::wcwidth(static_cast<wchar_t>(point));
    ::uselocale(before);
    return isControl(point) ? 0 : columns < 0 ? 1 : columns;
}

template <typename Each>
void forEachPoint(std::string_view bytes, const Each& each)
{
    while (!bytes.empty()) {
        const Decoded decoded = decode(bytes);
        const std::size_t length = decoded.length ? decoded.length : 1;
        each(decoded, bytes.substr(0, length));
        bytes.remove_prefix(length);
    }
}

} // namespace

std::string validUtf8(std::string_view bytes)
{
    std::string result;
    result.reserve(bytes.size());
    forEachPoint(
        bytes, [&](const Decoded& decoded, std::string_view raw) { result += decoded.length ? raw : replacement; });
    return result;
}

std::string lowercase(std::string_view text)
{
    std::string result(text);
    for (char& letter : result) {
        if (letter >= 'A' && letter <= 'Z') {
            letter = static_cast<char>(letter - 'A' + 'a');
        }
    }
    return result;
}

std::string printable(std::string_view bytes)
{
    std::string result;
    result.reserve(bytes.size());
    forEachPoint(bytes, [&](const Decoded& decoded, std::string_view raw) {
        if (!decoded.length) {
            result += replacement;
        } else if (isControl(decoded.point)) {
            result += '?';
        } else {
            result += raw;
        }
    });
    return result;
}

int displayWidth(std::string_view text)
{
    int width = 0;
    forEachPoint(text, [&](const Decoded& decoded, std::string_view) {
        width += decoded.point > 0x1F && decoded.point < 0x7F ? 1 : columnsOf(decoded.point);
    });
    return width;
}

std::string fixed2(double value)
{
    if (value == 0 || !std::isfinite(value)) { // the figure of most processes
        return "0.00";
    }
    // Digits of an integer are found much faster. Not where it may be that half a hundredth is left: that is for all digits.
    constexpr double largest = 1e9;
    const double hundredths = value * 100;
    if (value > 0 && value < largest && std::abs(hundredths - std::nearbyint(hundredths)) < 0.4999) {
        const auto whole = static_cast<std::uint64_t>(std::llrint(hundredths));
        std::string text = fmt::to_string(whole / 100);
        text += {'.', static_cast<char>('0' + whole / 10 % 10), static_cast<char>('0' + whole % 10)};
        return text;
    }
    return fmt::format("{:.2f}", value);
}

std::string fixed0(double value)
{
    constexpr double exactIntegers = 9007199254740992.0; // 2^53
    if (value >= 0 && value < exactIntegers) {           // digits of an integer are found much faster
        return fmt::to_string(std::llrint(value));
    }
    return fmt::format("{:.0f}", std::isfinite(value) ? value : 0.0);
}

double toSevenDigits(double value)
{
    constexpr int digits = 7;
    constexpr int mostDecimals = 12;
    if (!std::isfinite(value) || value == 0) {
        return value;
    }
    const int whole = static_cast<int>(std::floor(std::log10(std::abs(value)))) + 1;
    if (whole >= digits || digits - whole > mostDecimals) {
        return value;
    }
    const double scale = std::pow(10.0, digits - whole);
    return std::round(value * scale) / scale;
}

} // namespace meridal
