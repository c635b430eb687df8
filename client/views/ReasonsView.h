// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/screen/StyledText.h"
#include "client/views/Reasons.h"

#include <string_view>

namespace meridal {

/// The causes, what goes with them, and what is not known.
Lines verdictLines(const Evidence& evidence, const Verdict& verdict);
/// {"complaint", "time", "now", "known", "standsOut", "causes": [{"text", "since"?}], "remarks", "notKnown"}
Value verdictValue(std::string_view complaint, const Evidence& evidence, const Verdict& verdict);

} // namespace meridal
