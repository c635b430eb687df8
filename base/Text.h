// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace meridal {

/// Bytes from outside (process names, labels, network names) as valid UTF-8: every byte that does not belong to a
/// well-formed sequence becomes U+FFFD. Overlong forms, surrogates and values above U+10FFFF count as malformed.
std::string validUtf8(std::string_view bytes);

/// Text fit for a terminal or a log line: as validUtf8, with control characters (C0, DEL, C1) shown as "?".
std::string printable(std::string_view bytes);

/// Terminal columns of valid UTF-8 text: wide characters count two, combining marks none.
int displayWidth(std::string_view text);

/// ASCII letters small, all else as it is, whatever the locale says.
std::string lowercase(std::string_view text);

/// "%.2f" and "%.0f" whatever the locale says. Not-finite figures become 0.
std::string fixed2(double value);
std::string fixed0(double value);

/// The decimal number that was meant: a float of 1.048 is 1.0479999780654907 to others. Floats hold seven digits.
double toSevenDigits(double value);

} // namespace meridal
