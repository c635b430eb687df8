// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/XPCValues.h"
#include "base/Value.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace meridal {
namespace {

TEST(XPCValues, KindsSurviveTheWayThereAndBack)
{
    const Value value = {{"type", "1"}, {"yes", true}, {"one", 1}, {"whole", 2.0}, {"negative", -7},
        {"least", std::numeric_limits<std::int64_t>::min()}, {"most", std::numeric_limits<std::uint64_t>::max()},
        {"list", {1, 2.5, false, "é"}}, {"empty", Value::object()}};
    Value withNothing = value;
    withNothing["nothing"] = nullptr;
    withNothing["list"].push_back(nullptr);
    const auto back = valueFromObject(objectFromValue(withNothing));
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, value) << "a client's decoder would refuse all of it";
    EXPECT_TRUE(back->at("yes").is_boolean());
    EXPECT_TRUE(back->at("one").is_number_integer());
    EXPECT_TRUE(back->at("whole").is_number_float());
}

TEST(XPCValues, WhatIsNoTextOrNoPropertyListIsReplaced)
{
    EXPECT_TRUE([objectFromValue("a\xFFz") isEqual:@"a\uFFFDz"]);
    EXPECT_EQ(valueFromObject(@[ NSDate.date, @"x" ]), Value({nullptr, "x"}));
    EXPECT_EQ(valueFromObject(@{@1 : @"dropped", @"k" : @"kept"}), Value({{"k", "kept"}}));
    EXPECT_EQ(valueFromObject(nil), Value());

    const unichar half = 0xD800;
    const auto text = valueFromObject([NSString stringWithCharacters:&half length:1]);
    ASSERT_TRUE(text && text->is_string());
    EXPECT_EQ(serialise(*text), text->dump()) << "valid UTF-8";
}

TEST(XPCValues, DeepAndHugeArgumentsAreRefused)
{
    id nested = @[];
    for (int depth = 1; depth < maximumNesting; ++depth) {
        nested = @[ nested ];
    }
    EXPECT_TRUE(valueFromObject(nested));
    EXPECT_FALSE(valueFromObject(@[ nested ]));

    NSMutableArray* many = [NSMutableArray array];
    for (int count = 0; count < maximumObjects; ++count) {
        [many addObject:@0];
    }
    EXPECT_FALSE(valueFromObject(many));
    [many removeLastObject];
    EXPECT_TRUE(valueFromObject(many));
}

} // namespace
} // namespace meridal
