// SPDX-License-Identifier: Apache-2.0
#include "database/StatementBatch.h"

#include <iterator>

namespace meridal {

void StatementBatch::add(const std::shared_ptr<const StatementText>& text, std::span<SqlValue> args)
{
    if (runs_.empty() || runs_.back().text != text || runs_.back().argsPerStatement != args.size()) {
        runs_.push_back({.text = text, .argsPerStatement = args.size(), .statements = 0});
    }
    ++runs_.back().statements;
    args_.insert(args_.end(), std::make_move_iterator(args.begin()), std::make_move_iterator(args.end()));
    ++size_;
}

} // namespace meridal
