// SPDX-License-Identifier: Apache-2.0
#include "client/commands/NearWords.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace meridal {

std::size_t lettersApart(std::string_view first, std::string_view second)
{
    constexpr std::size_t longestCompared = 64; // bytes; names beyond it are compared by their beginnings
    first = first.substr(0, longestCompared);
    second = second.substr(0, longestCompared);
    std::vector<std::size_t> row(second.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= first.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= second.size(); ++j) {
            const std::size_t changed = diagonal + (first[i - 1] == second[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row.back();
}

std::string wordMeant(std::string_view typed, std::span<const std::string> words)
{
    std::string best;
    std::size_t least = std::max<std::size_t>(1, typed.size() / 3) + 1;
    for (const std::string& word : words) {
        const bool isBegun = typed.size() > 1 && std::string_view(word).starts_with(typed);
        const std::size_t away = isBegun ? 1 : lettersApart(typed, word);
        if (away < least) {
            best = word;
            least = away;
        }
    }
    return best;
}

} // namespace meridal
