// SPDX-License-Identifier: Apache-2.0
#include "base/Pattern.h"

#include <fmt/format.h>

#include <algorithm>
#include <bitset>
#include <optional>
#include <string>
#include <utility>

namespace meridal {

namespace {

using Bytes = std::bitset<258>; // and the two marks

constexpr int mostRepeats = 64;
/// Parts of a pattern that are put together, counting repeated ones: those without a character have no bound in positions.
constexpr int mostParts = 1024;

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

std::size_t indexOf(char c) { return static_cast<unsigned char>(c); }

void addByte(Bytes& set, char c)
{
    constexpr std::size_t between = 'a' - 'A';
    set.set(indexOf(c));
    if (isLetter(c)) {
        set.set(c >= 'a' ? indexOf(c) - between : indexOf(c) + between);
    }
}

Bytes opposite(Bytes set)
{
    for (std::size_t byte = 0; byte < 256; ++byte) {
        set.flip(byte);
    }
    return set;
}

/// What "\d" and its like stand for; absent for another letter.
std::optional<Bytes> classOf(char letter)
{
    Bytes set;
    const auto kind = static_cast<char>(letter | 0x20);
    for (int byte = 0; byte < 128; ++byte) {
        const auto c = static_cast<char>(byte);
        const bool isSpace = c == ' ' || (c >= '\t' && c <= '\r');
        const bool isIn = kind == 'd' ? isDigit(c)
            : kind == 's'             ? isSpace
            : kind == 'w'             ? isDigit(c) || isLetter(c) || c == '_'
                                      : false;
        set.set(indexOf(c), isIn);
    }
    if (set.none()) {
        return std::nullopt;
    }
    return letter == kind ? set : opposite(set);
}

/// A part of a pattern as it was written.
struct Part {
    enum class Kind : std::uint8_t { Nothing, Set, Sequence, Choice, Repeat } kind = Kind::Nothing;
    Bytes set = {};
    int least = 0;
    int most = 0; ///< -1: any number
    std::vector<Part> parts = {};
};

/// Reads a pattern into its parts. After the first thing wrong all reads give nothing.
class PatternReader {
public:
    explicit PatternReader(std::string_view text) : rest_(text) { }

    Part read()
    {
        Part all = choice(0);
        if (!rest_.empty()) {
            refuse("a \")\" without its \"(\"");
        }
        return all;
    }
    const std::string& refusal() const { return refusal_; }

private:
    Part choice(int depth);
    Part sequence(int depth);
    Part repeated(Part part);
    Part single(int depth);
    Bytes escaped();
    Bytes bracketed();
    bool readCounts(int& least, int& most);
    std::optional<int> readCount();

    bool takes(char c)
    {
        const bool isNext = rest_.starts_with(c);
        rest_.remove_prefix(isNext ? 1 : 0);
        return isNext;
    }
    char take()
    {
        const char c = rest_.front();
        rest_.remove_prefix(1);
        return c;
    }
    void refuse(std::string why)
    {
        if (refusal_.empty()) {
            refusal_ = std::move(why);
        }
        rest_ = {};
    }

    std::string_view rest_;
    std::string refusal_;
};

Part PatternReader::choice(int depth)
{
    Part first = sequence(depth);
    if (!rest_.starts_with('|')) {
        return first;
    }
    Part all{.kind = Part::Kind::Choice};
    all.parts.push_back(std::move(first));
    while (takes('|')) {
        all.parts.push_back(sequence(depth));
    }
    return all;
}

Part PatternReader::sequence(int depth)
{
    Part all{.kind = Part::Kind::Sequence};
    while (!rest_.empty() && rest_.front() != '|' && rest_.front() != ')') {
        all.parts.push_back(repeated(single(depth)));
    }
    return all;
}

Part PatternReader::repeated(Part part)
{
    for (int signs = 0; !rest_.empty(); ++signs) {
        int least = 0;
        int most = -1;
        if (takes('+')) {
            least = 1;
        } else if (takes('?')) {
            most = 1;
        } else if (takes('{')) {
            if (!readCounts(least, most)) {
                refuse(fmt::format("\"{{\" begins a count, as in \"{{2,5}}\", of {} at most", mostRepeats));
            }
        } else if (!takes('*')) {
            break;
        }
        if (signs > 0) {
            refuse("one sign of repetition upon another");
        }
        Part inner = std::exchange(part, Part{.kind = Part::Kind::Repeat, .least = least, .most = most});
        part.parts.push_back(std::move(inner));
    }
    return part;
}

bool PatternReader::readCounts(int& least, int& most)
{
    const auto first = readCount();
    std::optional<int> second = first;
    if (takes(',')) {
        second = rest_.starts_with('}') ? -1 : readCount();
    }
    if (!first || !second || !takes('}') || (*second >= 0 && *second < *first)) {
        return false;
    }
    least = *first;
    most = *second;
    return true;
}

std::optional<int> PatternReader::readCount()
{
    std::optional<int> count;
    while (!rest_.empty() && isDigit(rest_.front())) {
        count = count.value_or(0) * 10 + (take() - '0');
        if (*count > mostRepeats) {
            return std::nullopt;
        }
    }
    return count;
}

Part PatternReader::single(int depth)
{
    Part part{.kind = Part::Kind::Set};
    switch (const char c = take()) {
    case '(':
        if (depth == Pattern::deepest || rest_.starts_with('?')) {
            refuse(depth == Pattern::deepest ? "groups in too many groups" : "groups with \"(?\" are not known here");
            return {};
        }
        part = choice(depth + 1);
        if (!takes(')')) {
            refuse("a \"(\" without its \")\"");
        }
        return part;
    case '*':
    case '+':
    case '?':
    case '{':
        refuse("nothing before a sign of repetition");
        return {};
    case '.':
        part.set = opposite({});
        return part;
    case '^':
        part.set.set(256);
        return part;
    case '$':
        part.set.set(257);
        return part;
    case '[':
        part.set = bracketed();
        return part;
    case '\\':
        part.set = escaped();
        return part;
    default:
        addByte(part.set, c);
        return part;
    }
}

/// What stands behind a backslash.
Bytes PatternReader::escaped()
{
    Bytes set;
    if (rest_.empty()) {
        refuse("nothing behind a \"\\\"");
        return set;
    }
    const char c = take();
    if (const auto known = classOf(c)) {
        return *known;
    }
    if (isLetter(c) || isDigit(c)) {
        refuse(fmt::format("\"\\{}\" means nothing here", c));
    }
    addByte(set, c);
    return set;
}

/// What stands behind "[".
Bytes PatternReader::bracketed()
{
    Bytes set;
    const bool isOpposite = takes('^');
    for (bool isFirst = true; isFirst || !rest_.starts_with(']'); isFirst = false) {
        if (rest_.empty()) {
            refuse("a \"[\" without its \"]\"");
            return set;
        }
        const char from = take();
        if (from == '\\') {
            set |= escaped();
            continue;
        }
        if (indexOf(from) >= 128 || (from == '[' && rest_.starts_with(':'))) {
            refuse("only characters of ASCII can be in \"[...]\", each by itself or from one to another");
            return set;
        }
        if (rest_.size() < 2 || rest_[0] != '-' || rest_[1] == ']') {
            addByte(set, from);
            continue;
        }
        take();
        const char to = take();
        if (indexOf(to) >= 128 || to < from) {
            refuse("\"[a-z]\" goes up, from one character of ASCII to another");
            return set;
        }
        for (int c = from; c <= to; ++c) {
            addByte(set, static_cast<char>(c));
        }
    }
    takes(']');
    return isOpposite ? opposite(set) : set;
}

} // namespace

/// Gives each character of a pattern its position, and finds out which may follow which.
class PatternCompiler {
public:
    using Positions = Pattern::Positions;

    /// False when it is too large.
    bool add(const Part& all)
    {
        const Piece piece = put(all);
        tables->first = piece.first;
        tables->last = piece.last;
        tables->matchesNothing = piece.mayBeEmpty;
        for (std::size_t group = 0; group < tables->after.size(); ++group) {
            for (std::size_t bits = 0; bits < 256; ++bits) {
                for (std::size_t bit = 0; bit < 8; ++bit) {
                    tables->after[group][bits] |= bits >> bit & 1U ? follow_[group * 8 + bit] : 0;
                }
            }
        }
        return !isTooLarge_;
    }

    std::shared_ptr<Pattern::Tables> tables = std::make_shared<Pattern::Tables>();

private:
    /// Where a part may begin and end.
    struct Piece {
        Positions first = 0;
        Positions last = 0;
        bool mayBeEmpty = true;
    };

    Piece put(const Part& part);
    Piece putSet(const Bytes& set);
    Piece putRepeated(const Part& part);
    Piece joined(const Piece& before, const Piece& behind);
    void link(Positions from, Positions to)
    {
        for (std::size_t position = 0; position < size_; ++position) {
            follow_[position] |= from >> position & 1U ? to : 0;
        }
    }

    std::array<Positions, Pattern::mostPositions> follow_ = {};
    std::size_t size_ = 0;
    int parts_ = 0;
    bool isTooLarge_ = false;
};

PatternCompiler::Piece PatternCompiler::put(const Part& part)
{
    isTooLarge_ = isTooLarge_ || ++parts_ > mostParts;
    if (isTooLarge_) {
        return {};
    }
    Piece piece;
    switch (part.kind) {
    case Part::Kind::Nothing:
        break;
    case Part::Kind::Set:
        return putSet(part.set);
    case Part::Kind::Sequence:
        for (const Part& each : part.parts) {
            piece = joined(piece, put(each));
        }
        break;
    case Part::Kind::Choice:
        piece.mayBeEmpty = false;
        for (const Part& each : part.parts) {
            const Piece one = put(each);
            piece = {piece.first | one.first, piece.last | one.last, piece.mayBeEmpty || one.mayBeEmpty};
        }
        break;
    case Part::Kind::Repeat:
        return putRepeated(part);
    }
    return piece;
}

PatternCompiler::Piece PatternCompiler::putSet(const Bytes& set)
{
    if (size_ == Pattern::mostPositions) {
        isTooLarge_ = true;
        return {};
    }
    const Positions position = Positions{1} << size_++;
    for (std::size_t byte = 0; byte < set.size(); ++byte) {
        tables->taking[byte] |= set[byte] ? position : 0;
    }
    return {position, position, false};
}

/// As often as it must be, each time anew, then as often as it may be.
PatternCompiler::Piece PatternCompiler::putRepeated(const Part& part)
{
    Piece all;
    const int copies = part.most < 0 ? std::max(part.least, 1) : part.most;
    for (int copy = 0; copy < copies && !isTooLarge_; ++copy) {
        Piece one = put(part.parts.front());
        if (part.most < 0 && copy == copies - 1) {
            link(one.last, one.first);
        }
        one.mayBeEmpty = one.mayBeEmpty || copy >= part.least;
        all = joined(all, one);
    }
    return all;
}

PatternCompiler::Piece PatternCompiler::joined(const Piece& before, const Piece& behind)
{
    link(before.last, behind.first);
    return {before.first | (before.mayBeEmpty ? behind.first : 0), behind.last | (behind.mayBeEmpty ? before.last : 0),
        before.mayBeEmpty && behind.mayBeEmpty};
}

Result<Pattern> Pattern::of(std::string_view text)
{
    if (text.size() > longest) {
        return unexpected(ErrorCode::InvalidArgument, fmt::format("a pattern has {} bytes at most", longest));
    }
    PatternReader reader(text);
    const Part all = reader.read();
    if (!reader.refusal().empty()) {
        return unexpected(ErrorCode::InvalidArgument, "not a pattern: " + reader.refusal());
    }
    PatternCompiler compiler;
    if (!compiler.add(all)) {
        return unexpected(ErrorCode::InvalidArgument,
            fmt::format("a pattern has {} characters at most, repeated ones counted as often", mostPositions));
    }
    return Pattern(std::move(compiler.tables));
}

bool Pattern::isFoundIn(std::string_view text) const
{
    const Tables& tables = *tables_;
    Positions at = 0;
    const auto step = [&](std::size_t symbol) {
        Positions next = tables.first; // a match may begin anywhere
        for (std::size_t group = 0; group < tables.after.size(); ++group) {
            next |= tables.after[group][at >> group * 8 & 0xFFU];
        }
        at = next & tables.taking[symbol];
        return (at & tables.last) != 0;
    };
    if (tables.matchesNothing || step(beginMark)) {
        return true;
    }
    for (const char c : text) {
        if (step(static_cast<unsigned char>(c))) {
            return true;
        }
    }
    return step(endMark);
}

} // namespace meridal
