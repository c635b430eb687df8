// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/AskedAside.h"

#include "tests/support/HandWork.h"

#include <gtest/gtest.h>

namespace meridal {
namespace {

TEST(AskedAside, AQuestionThatHangsHoldsNobodyUpAndIsForgotten)
{
    const auto script = std::make_shared<test::HandWork::Script>();
    int figure = 0;
    AskedAside<int> aside(std::make_shared<test::HandWork>(script), [&figure] { return ++figure; });
    EXPECT_EQ(aside.ask(), 1);
    EXPECT_EQ(aside.ask(), 2);

    script->hang = 0;
    EXPECT_EQ(aside.ask(), 2) << "the one before";
    const int waits = script->waits;
    EXPECT_EQ(aside.ask(), std::nullopt) << "and no longer";
    EXPECT_EQ(aside.ask(), std::nullopt);
    EXPECT_EQ(script->posts, 3) << "it is not asked again beside itself";
    EXPECT_EQ(script->waits, waits) << "nor waited for again";

    script->hanging.front()(); // late
    EXPECT_EQ(aside.ask(), 4);
    EXPECT_EQ(aside.ask(), 5);
}

TEST(AskedAside, NoAnswerIsNotTheAnswerThatThereIsNone)
{
    const auto script = std::make_shared<test::HandWork::Script>();
    script->hang = 0;
    std::optional<int> figure;
    AskedAside<std::optional<int>> aside(std::make_shared<test::HandWork>(script), [&figure] { return figure; });
    constexpr int unknown = -1;
    EXPECT_EQ(aside.ask().value_or(unknown), unknown) << "late";
    EXPECT_EQ(aside.ask().value_or(unknown), unknown) << "still";
    script->hanging.front()();
    EXPECT_EQ(aside.ask().value_or(unknown), std::nullopt) << "answered";
    figure = 7;
    EXPECT_EQ(aside.ask().value_or(unknown), 7);
}

TEST(AskedAside, WhatIsAskedNowAndThenIsNeverAnsweredByTheLastTime)
{
    const auto script = std::make_shared<test::HandWork::Script>();
    int figure = 0;
    AskedAside<int> aside(
        std::make_shared<test::HandWork>(script), [&figure] { return ++figure; }, false);
    EXPECT_EQ(aside.ask(), 1);
    script->hang = 0;
    EXPECT_EQ(aside.ask(), std::nullopt);
    script->hanging.front()();
    script->hang = 0;
    EXPECT_EQ(aside.ask(), std::nullopt) << "and not what has come for who asked before";
    script->hanging.back()();
    script->hang = -1;
    EXPECT_EQ(aside.ask(), 4);
}

} // namespace
} // namespace meridal
