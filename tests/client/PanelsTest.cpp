// SPDX-License-Identifier: Apache-2.0
#include "client/panels/RowCursor.h"
#include "client/panels/TextEntry.h"
#include "client/screen/Utf8.h"
#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

namespace meridal {
namespace {

void type(TextEntry& entry, std::u32string_view text)
{
    for (const char32_t character : text) {
        entry.press(Key::of(character));
    }
}

TEST(RowCursor, StaysWithWhatWasChosenAndKeepsItInSight)
{
    RowCursor cursor;
    EXPECT_EQ(cursor.name(), "");
    cursor.setRows({"a", "b", "c", "d", "e"}, 2);
    cursor.press(Key::of(Key::Kind::PageDown));
    cursor.press(Key::of(Key::Kind::Down));
    EXPECT_EQ(cursor.name(), "d");
    EXPECT_EQ(cursor.first(), 2U);
    EXPECT_EQ(cursor.end(), 4U);
    cursor.setRows({"d", "e", "f"}, 2);
    EXPECT_EQ(cursor.name(), "d");
    EXPECT_EQ(cursor.first(), 0U);
    cursor.press(Key::of(Key::Kind::End));
    cursor.setRows({"d"}, 2); // it has gone
    EXPECT_EQ(cursor.name(), "d");
    EXPECT_FALSE(cursor.press(Key::of('x')));
    cursor.setRows({}, 2);
    EXPECT_TRUE(cursor.press(Key::of(Key::Kind::Up)));
    EXPECT_TRUE(cursor.isEmpty());
}

TEST(TextEntry, IsEditedAndNeverHoldsWhatSteersATerminal)
{
    TextEntry entry("fäx");
    entry.press(Key::of(Key::Kind::Left));
    type(entry, U"n\x1B\x9B猫");
    EXPECT_EQ(entry.text(), "fän猫x");
    entry.press(Key::of(Key::Kind::Backspace));
    entry.press(Key::of(Key::Kind::Delete));
    EXPECT_EQ(entry.text(), "fän");
    EXPECT_EQ(plainText(entry.line("filter: ", 80)), "filter: fän");
    EXPECT_EQ(plainText(entry.line("filter: ", 11)), "filter: än"); // the end is in sight
    EXPECT_EQ(entry.press(Key::of(Key::Kind::Escape)), TextEntry::Outcome::GivenUp);
    EXPECT_EQ(entry.press(Key::of(Key::Kind::Enter)), TextEntry::Outcome::Done);
}

TEST(Utf8, AsciiLikenessIsAsWide)
{
    EXPECT_EQ(asciiLikeness("41 °C ▁▄█ fir… 猫é"), "41  C _=# fir~ ???");
    EXPECT_EQ(utf8(pointsOf("aé猫😀")), "aé猫😀");
    EXPECT_EQ(utf8(char32_t{0xD800}), "\xEF\xBF\xBD");
}

} // namespace
} // namespace meridal
