// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace meridal {

/// What a piece of text is, not how it looks: that is up to the medium.
enum class Style { Plain, Title, Heading, Faint, Medium, High, Warning, Chosen };

/// Printable text of one style.
struct Span {
    Style style = Style::Plain;
    std::string text;
    bool operator==(const Span&) const = default;
};

using Line = std::vector<Span>;
using Lines = std::vector<Line>;

void appendLines(Lines& lines, const Lines& more);

/// The bare text, without spaces at the end.
std::string plainText(const Line& line);
/// The text with colours for a terminal (SGR sequences of ECMA-48).
std::string colouredText(const Line& line);

} // namespace meridal
