// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace meridal {

/// A regular expression from outside, which is looked for in texts that may be as hostile as itself. One step a byte, whatever
/// either says, no recursion over the text and no memory but the pattern's own: it runs all places that it may be at as the
/// bits of one number. That bounds it to 64 of them, and leaves out what is not regular: back-references and looking around.
///
/// Characters, "." (any byte), classes "[a-z]" and "[^a-z]", "\d \w \s" and their opposites, groups, "|", "*", "+", "?",
/// "{n}", "{n,}", "{n,m}", "^" and "$" (the ends of the text), "\" before a character that means something. Bytes, of which
/// letters of ASCII count alike, large or small.
class Pattern {
public:
    /// InvalidArgument with a reason fit for who typed it.
    static Result<Pattern> of(std::string_view text);

    /// Whether it matches anywhere in a text.
    bool isFoundIn(std::string_view text) const;

    static constexpr std::size_t longest = 256;      ///< bytes
    static constexpr std::size_t mostPositions = 64; ///< characters and classes, repeated ones as often as they are
    static constexpr int deepest = 16;               ///< groups in groups

private:
    friend class PatternCompiler;
    /// What a text is for it: its bytes between two marks, which "^" and "$" stand for.
    static constexpr std::size_t beginMark = 256;
    static constexpr std::size_t endMark = 257;
    /// One bit a position.
    using Positions = std::uint64_t;

    struct Tables {
        std::array<Positions, 258> taking = {};               ///< by byte or mark: who takes it
        std::array<std::array<Positions, 256>, 8> after = {}; ///< by eight positions each: who may come next
        Positions first = 0;
        Positions last = 0;
        bool matchesNothing = false; ///< the empty text, and so any
    };

    explicit Pattern(std::shared_ptr<const Tables> tables) : tables_(std::move(tables)) { }

    std::shared_ptr<const Tables> tables_;
};

} // namespace meridal
