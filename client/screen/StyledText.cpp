// SPDX-License-Identifier: Apache-2.0
#include "client/screen/StyledText.h"

#include <string_view>

namespace meridal {

namespace {

std::string_view sequence(Style style)
{
    switch (style) {
    case Style::Title:
        return "\x1B[1m";
    case Style::Heading:
        return "\x1B[7m";
    case Style::Faint:
        return "\x1B[2m";
    case Style::Medium:
        return "\x1B[33m";
    case Style::High:
        return "\x1B[1;31m";
    case Style::Warning:
        return "\x1B[1;33m";
    case Style::Chosen:
        return "\x1B[1;7m";
    case Style::Plain:
        break;
    }
    return {};
}

} // namespace

void appendLines(Lines& lines, const Lines& more) { lines.insert(lines.end(), more.begin(), more.end()); }

std::string plainText(const Line& line)
{
    std::string result;
    for (const Span& span : line) {
        result += span.text;
    }
    result.erase(result.find_last_not_of(' ') + 1);
    return result;
}

std::string colouredText(const Line& line)
{
    std::string result;
    for (const Span& span : line) {
        const std::string_view start = sequence(span.style);
        result += start;
        result += span.text;
        result += start.empty() ? "" : "\x1B[0m";
    }
    return result;
}

} // namespace meridal
