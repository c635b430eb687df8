// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/screen/Key.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace meridal {

/// Which row of a list is chosen, and which part of the list is shown. The row is known by its name, so that the choice stays with what was
/// chosen while rows come, go and change places; where that has gone it stays at the place.
class RowCursor {
public:
    /// The rows there are now and how many can be shown; call before drawing and before keys.
    void setRows(const std::vector<std::string>& names, int shown);

    bool isEmpty() const { return names_.empty(); }
    std::size_t chosen() const { return chosen_; } ///< its place among all rows; of an empty list 0
    std::size_t first() const { return first_; }   ///< the first row that is shown
    std::size_t end() const { return std::min(names_.size(), first_ + shown_); } ///< behind the last one
    /// The name of the chosen row; empty when there is none.
    const std::string& name() const;

    void choose(std::size_t place);
    void choose(const std::string& name);
    /// Arrows up and down, pages, home, end and the wheel; false for any other key.
    bool press(const Key& key);

private:
    void keepInSight();

    std::vector<std::string> names_;
    std::size_t chosen_ = 0;
    std::size_t first_ = 0;
    std::size_t shown_ = 1;
};

} // namespace meridal
