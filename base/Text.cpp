#include "base/Text.h"

#include <fmt/format.h>

#include <cmath>

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

bool isCombining(char32_t point)
{
    return (point >= 0x300 && point < 0x370) || (point >= 0x200B && point <= 0x200F)
        || (point >= 0x20D0 && point < 0x2100) || (point >= 0xFE00 && point <= 0xFE0F)
        || (point >= 0xFE20 && point < 0xFE30);
}

bool isWide(char32_t point)
{
    return (point >= 0x1100 && point < 0x1160) || (point >= 0x2E80 && point < 0xA4D0)
        || (point >= 0xAC00 && point < 0xD7A4) || (point >= 0xF900 && point < 0xFB00)
        || (point >= 0xFE30 && point < 0xFE70) || (point >= 0xFF00 && point < 0xFF61)
        || (point >= 0xFFE0 && point < 0xFFE7) || (point >= 0x1F300 && point < 0x1F650)
        || (point >= 0x1F900 && point < 0x1FA00) || (point >= 0x20000 && point < 0x3FFFE);
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
        width += isCombining(decoded.point) || isControl(decoded.point) ? 0 : isWide(decoded.point) ? 2 : 1;
    });
    return width;
}

std::string fixed2(double value)
{
    if (value == 0 || !std::isfinite(value)) { // the figure of most processes
        return "0.00";
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
