// SPDX-License-Identifier: Apache-2.0
#include "client/panels/TextEntry.h"

#include "base/Text.h"
#include "client/screen/Utf8.h"

#include <algorithm>
#include <utility>

namespace meridal {

TextEntry::TextEntry(std::string text) : text_(pointsOf(printable(text))), place_(text_.size()) { }

TextEntry::Outcome TextEntry::press(const Key& key)
{
    switch (key.kind) {
    case Key::Kind::Enter:
        return Outcome::Done;
    case Key::Kind::Escape:
        return Outcome::GivenUp;
    case Key::Kind::Left:
        place_ -= place_ > 0 ? 1 : 0;
        break;
    case Key::Kind::Right:
        place_ = std::min(place_ + 1, text_.size());
        break;
    case Key::Kind::Home:
        place_ = 0;
        break;
    case Key::Kind::End:
        place_ = text_.size();
        break;
    case Key::Kind::Backspace:
        if (place_ > 0) {
            text_.erase(--place_, 1);
        }
        break;
    case Key::Kind::Delete:
        text_.erase(place_, 1);
        break;
    case Key::Kind::Character:
        insert(key.character);
        break;
    default:
        break;
    }
    return Outcome::Typing;
}

void TextEntry::insert(char32_t character)
{
    const std::string bytes = utf8(character);
    if (text_.size() < longest && printable(bytes) == bytes) {
        text_.insert(place_++, 1, character);
    }
}

std::string TextEntry::text() const { return utf8(text_); }

Line TextEntry::line(std::string_view label, int columns) const
{
    const std::u32string under = place_ < text_.size() ? text_.substr(place_, 1) : U" ";
    std::u32string before = text_.substr(0, place_);
    const int room = std::max(columns - displayWidth(label) - displayWidth(utf8(under)), 0);
    while (displayWidth(utf8(before)) > room) {
        before.erase(0, 1); // the end is where a person types
    }
    return {{Style::Title, std::string(label)}, {Style::Plain, utf8(before)}, {Style::Heading, utf8(under)},
        {Style::Plain, place_ < text_.size() ? utf8(text_.substr(place_ + 1)) : ""}};
}

} // namespace meridal
