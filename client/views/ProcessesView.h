// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/screen/StyledText.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// What a column of the table of processes is called where it is typed, and in the daemon's answers: "memory" is "footprint".
struct ProcessWord {
    std::string_view word;
    const char* column;
};
std::span<const ProcessWord> processWords();
/// The daemon's name of a column; null for no such word.
const char* columnOfProcesses(std::string_view word);

/// An answer of "processes.table" with these columns, by the daemon's names, and how many there are beyond it.
Lines processLines(const Value& answer, const std::vector<std::string>& columns, int room);

} // namespace meridal
