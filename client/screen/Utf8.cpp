// SPDX-License-Identifier: Apache-2.0
#include "client/screen/Utf8.h"

#include "base/Text.h"

#include <algorithm>
#include <array>

namespace meridal {

namespace {

constexpr char32_t replacement = 0xFFFD;

/// Blocks of U+2581 to U+2588 by height, and of U+2588 to U+258F by width.
constexpr std::string_view heights = "_.-=+*#@";
constexpr std::string_view widths = "##+++-- ";

char likenessOf(char32_t point)
{
    struct Pair {
        char32_t point;
        char ascii;
    };
    static constexpr std::array<Pair, 22> pairs = {
        {{U'…', '~'}, {U'°', ' '}, {U'µ', 'u'}, {U'·', '.'}, {U'×', 'x'}, {U'–', '-'}, {U'—', '-'}, {U'│', '|'},
            {U'┤', '|'}, {U'├', '|'}, {U'└', '`'}, {U'↑', '^'}, {U'↓', 'v'}, {U'→', '>'}, {U'←', '<'}, {U'▶', '>'},
            {U'▸', '>'}, {U'▾', 'v'}, {U'▲', '^'}, {U'▼', 'v'}, {U'░', '.'}, {U'•', '*'}}};
    const auto found = std::find_if(pairs.begin(), pairs.end(), [&](const Pair& pair) { return pair.point == point; });
    return found != pairs.end()              ? found->ascii
        : point >= 0x2581 && point <= 0x2587 ? heights[point - 0x2581]
        : point >= 0x2588 && point <= 0x258F ? widths[point - 0x2588]
        : point >= 0x2500 && point <= 0x2501 ? '-'
        : point >= 0x2500 && point <= 0x257F ? '+'
        : point == 0x2800                    ? ' '
        : point > 0x2800 && point <= 0x28FF  ? ':'
                                             : '?';
}

} // namespace

std::string utf8(char32_t character)
{
    if (character > 0x10FFFF || (character >= 0xD800 && character < 0xE000)) {
        return utf8(replacement);
    }
    const auto tail = [character](int shift) { return static_cast<char>(0x80U | ((character >> shift) & 0x3FU)); };
    if (character < 0x80) {
        return {static_cast<char>(character)};
    }
    if (character < 0x800) {
        return {static_cast<char>(0xC0U | (character >> 6U)), tail(0)};
    }
    if (character < 0x10000) {
        return {static_cast<char>(0xE0U | (character >> 12U)), tail(6), tail(0)};
    }
    return {static_cast<char>(0xF0U | (character >> 18U)), tail(12), tail(6), tail(0)};
}

std::string utf8(const std::u32string& text)
{
    std::string bytes;
    for (const char32_t point : text) {
        bytes += utf8(point);
    }
    return bytes;
}

std::u32string pointsOf(std::string_view text)
{
    std::u32string points;
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if ((byte & 0xC0U) == 0x80U && !points.empty()) {
            points.back() = (points.back() << 6U) | (byte & 0x3FU);
        } else {
            points += byte < 0x80 ? byte : byte < 0xE0 ? byte & 0x1FU : byte < 0xF0 ? byte & 0xFU : byte & 0x7U;
        }
    }
    return points;
}

std::string asciiLikeness(std::string_view text)
{
    if (std::all_of(text.begin(), text.end(), [](char byte) { return static_cast<unsigned char>(byte) < 0x80; })) {
        return std::string(text);
    }
    std::string ascii;
    for (const char32_t point : pointsOf(text)) {
        ascii += point < 0x80 ? std::string(1, static_cast<char>(point))
                              : std::string(static_cast<std::size_t>(displayWidth(utf8(point))), likenessOf(point));
    }
    return ascii;
}

} // namespace meridal
