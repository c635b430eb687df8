// SPDX-License-Identifier: Apache-2.0
#include "database/StatementBatch.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace meridal {

namespace {

template <typename Number>
void pack(std::vector<char>& packed, Number number)
{
    std::array<char, sizeof number> bytes{};
    std::memcpy(bytes.data(), &number, sizeof number);
    packed.insert(packed.end(), bytes.begin(), bytes.end());
}

template <typename Number>
Number unpack(const char*& packed)
{
    Number number{};
    std::memcpy(&number, packed, sizeof number);
    packed += sizeof number;
    return number;
}

/// Into the room that the value before it had, where both are texts.
void unpackText(const char*& packed, SqlValue& into)
{
    const auto size = unpack<std::size_t>(packed);
    if (auto* words = std::get_if<std::string>(&into)) {
        words->assign(packed, size);
    } else {
        into.emplace<std::string>(packed, size);
    }
    packed += size;
}

} // namespace

void StatementBatch::add(const std::shared_ptr<const StatementText>& text, std::span<const SqlValue> args)
{
    if (runs_.empty() || runs_.back().text != text || runs_.back().argsPerStatement != args.size()) {
        runs_.push_back(
            {.text = text, .argsPerStatement = args.size(), .statements = 0, .firstArgument = packed_.size()});
    }
    const std::size_t before = packed_.size();
    try {
        append(args);
    } catch (...) {
        packed_.resize(before); // so that no statement is half there
        throw;
    }
    ++runs_.back().statements;
    ++size_;
}

void StatementBatch::append(std::span<const SqlValue> args)
{
    for (const SqlValue& value : args) {
        packed_.push_back(static_cast<char>(value.index()));
        if (const auto* words = std::get_if<std::string>(&value)) {
            pack(packed_, words->size());
            packed_.insert(packed_.end(), words->begin(), words->end());
        } else if (const auto* whole = std::get_if<std::int64_t>(&value)) {
            pack(packed_, *whole);
        } else if (const auto* figure = std::get_if<double>(&value)) {
            pack(packed_, *figure);
        }
    }
}

StatementBatch::Arguments::Arguments(const StatementBatch& batch, const Run& run)
    : next_(batch.packed_.data() + run.firstArgument), row_(run.argsPerStatement)
{
}

std::span<const SqlValue> StatementBatch::Arguments::next()
{
    static_assert(std::is_same_v<SqlValue, std::variant<std::monostate, std::int64_t, double, std::string>>);
    for (SqlValue& value : row_) {
        switch (*next_++) {
        case 0:
            value = {};
            break;
        case 1:
            value = unpack<std::int64_t>(next_);
            break;
        case 2:
            value = unpack<double>(next_);
            break;
        default:
            unpackText(next_, value);
        }
    }
    return row_;
}

} // namespace meridal
