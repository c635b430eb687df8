// SPDX-License-Identifier: Apache-2.0
#include "client/panels/RowCursor.h"

#include <utility>

namespace meridal {

namespace {

constexpr std::size_t wheelRows = 3;

const std::string noName;

} // namespace

void RowCursor::setRows(const std::vector<std::string>& names, int shown)
{
    const std::string before = std::as_const(*this).name();
    names_ = names;
    shown_ = static_cast<std::size_t>(std::max(shown, 1));
    choose(before);
    choose(chosen_);
}

const std::string& RowCursor::name() const { return chosen_ < names_.size() ? names_[chosen_] : noName; }

void RowCursor::choose(std::size_t place)
{
    chosen_ = names_.empty() ? 0 : std::min(place, names_.size() - 1);
    keepInSight();
}

void RowCursor::choose(const std::string& name)
{
    const auto found = std::find(names_.begin(), names_.end(), name);
    if (found != names_.end()) {
        choose(static_cast<std::size_t>(found - names_.begin()));
    }
}

bool RowCursor::press(const Key& key)
{
    const auto back = [this](std::size_t rows) { choose(chosen_ - std::min(rows, chosen_)); };
    switch (key.kind) {
    case Key::Kind::Up:
        back(1);
        return true;
    case Key::Kind::Down:
        choose(chosen_ + 1);
        return true;
    case Key::Kind::PageUp:
        back(shown_);
        return true;
    case Key::Kind::PageDown:
        choose(chosen_ + shown_);
        return true;
    case Key::Kind::Home:
        choose(std::size_t{0});
        return true;
    case Key::Kind::End:
        choose(names_.size());
        return true;
    case Key::Kind::WheelUp:
        back(wheelRows);
        return true;
    case Key::Kind::WheelDown:
        choose(chosen_ + wheelRows);
        return true;
    default:
        return false;
    }
}

void RowCursor::keepInSight()
{
    const std::size_t last = names_.size() > shown_ ? names_.size() - shown_ : 0;
    first_ = std::min({first_, chosen_, last});
    first_ = std::max(first_, chosen_ >= shown_ ? chosen_ - shown_ + 1 : 0);
}

} // namespace meridal
