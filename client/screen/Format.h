// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <string>
#include <string_view>

namespace meridal {

/// Bytes for people: three significant digits and a binary unit, "1.23 MiB".
std::string formatBytes(double bytes);
/// Bytes a second, "1.23 MiB/s".
std::string formatByteRate(double bytesPerSecond);
/// "12.3"; for percent of one core and scores.
std::string formatFigure(double figure);
/// Seconds in the two largest units that apply: "3 d 4 h", "5 min 2 s".
std::string formatDuration(double seconds);
/// The same without a second unit of which there is nothing: "5 min".
std::string formatSpan(double seconds);
/// Seconds as milliseconds with three significant digits, "0.214 ms".
std::string formatMilliseconds(double seconds);

/// Text cut or filled up with spaces to exactly so many columns; a cut is marked "…". Takes printable text.
std::string fitLeft(std::string_view text, int columns);
/// As fitLeft, with the spaces in front.
std::string fitRight(std::string_view text, int columns);

/// A bar of so many eighths of a column.
std::string blocks(int eighths);
/// ASCII letters as capitals.
std::string upperCase(std::string_view text);

/// JSON on one line, fit for a terminal: DEL and the C1 controls, which JSON allows raw in strings, are escaped too.
std::string terminalJson(const Value& value);
/// The same with a line feed.
std::string jsonLine(const Value& value);

} // namespace meridal
