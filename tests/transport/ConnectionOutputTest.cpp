// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/ConnectionInbox.h"
#include "daemon/transport/EnvelopeBacklog.h"
#include "daemon/transport/LongRequests.h"
#include "daemon/transport/OutputQueue.h"

#include <gtest/gtest.h>

#include <deque>

namespace meridal {
namespace {

EnvelopePtr numbered(const char* type, int number)
{
    return std::make_shared<const Envelope>(Dictionary{{"type", type}, {"number", number}});
}

TEST(LongRequests, LongRequestsHaveTheirTurns)
{
    const auto gate = std::make_shared<LongRequests>();
    std::vector<LongRequests::Turn> turns;
    int started = 0;
    const auto start = [&](const LongRequests::Turn& turn) {
        ++started;
        if (started <= static_cast<int>(LongRequests::mostAtOnce)) {
            turns.push_back(turn);
        } // the others let go of it at once
    };
    for (int count = 0; count < 10; ++count) {
        gate->enter(start);
    }
    EXPECT_EQ(started, 4);
    turns.pop_back();
    EXPECT_EQ(started, 10);
    gate->enter(start);
    gate->enter([&](const LongRequests::Turn& turn) { turns.push_back(turn); });
    gate->enter(start);
    EXPECT_EQ(started, 11);
    gate->close();
    turns.clear();
    gate->enter(start);
    EXPECT_EQ(started, 11) << "nobody's turn any more";
}

TEST(ConnectionInbox, NewestOfATypeWinsAndKeepsItsPlace)
{
    ConnectionInbox inbox;
    EXPECT_FALSE(inbox.put(numbered("1", 1)).replaced);
    EXPECT_FALSE(inbox.put(numbered("2", 1)).replaced);
    EXPECT_TRUE(inbox.put(numbered("1", 2)).replaced);
    EXPECT_FALSE(inbox.put(numbered("16", 1)).replaced);
    EXPECT_TRUE(inbox.put(numbered("2", 2)).replaced);
    EXPECT_EQ(inbox.takeEnvelope()->dictionary(), (Dictionary{{"type", "1"}, {"number", 2}}));
    EXPECT_EQ(inbox.takeEnvelope()->dictionary(), (Dictionary{{"type", "2"}, {"number", 2}}));
    EXPECT_FALSE(inbox.put(numbered("1", 3)).replaced) << "one that was taken is not replaced";
    EXPECT_EQ(inbox.takeEnvelope()->type(), 16);
    EXPECT_EQ(inbox.takeEnvelope()->type(), 1);
    EXPECT_EQ(inbox.takeEnvelope(), nullptr);
    for (const char* method : {"a.watch", "b.watch", "a.watch"}) {
        inbox.put(std::make_shared<const Envelope>(method, "{}"));
    }
    EXPECT_EQ(inbox.takeEnvelope()->method(), "a.watch");
    EXPECT_EQ(inbox.takeEnvelope()->method(), "b.watch");
    EXPECT_EQ(inbox.takeEnvelope(), nullptr);
}

TEST(EnvelopeBacklog, StalledClientKeepsOnlyTheNewestOfEachType)
{
    EnvelopeBacklog backlog;
    EXPECT_FALSE(backlog.put(numbered("1", 0)));
    EXPECT_FALSE(backlog.put(numbered("16", 0)));
    for (int tick = 1; tick <= 10'000; ++tick) {
        EXPECT_TRUE(backlog.put(numbered("1", tick)));
    }
    const auto waiting = backlog.takeAll();
    ASSERT_EQ(waiting.size(), 2U);
    EXPECT_EQ(waiting[0]->type(), 16);
    EXPECT_EQ(waiting[1]->dictionary().at("number"), 10'000);
    EXPECT_TRUE(backlog.empty());
    EXPECT_FALSE(backlog.put(numbered("1", 1))) << "what was taken is no longer replaced";
}

TEST(ConnectionInbox, WakesOnceUntilHeardAndNeverAfterClosing)
{
    ConnectionInbox inbox;
    int wakes = 0;
    inbox.put(JsonRpcOutcome{});
    inbox.open([&] { ++wakes; });
    EXPECT_EQ(wakes, 1) << "for what came before";
    inbox.put(JsonRpcOutcome{});
    EXPECT_EQ(wakes, 1);
    inbox.awake();
    EXPECT_TRUE(inbox.takeOutcome());
    EXPECT_FALSE(inbox.takeOutcome());
    inbox.put(JsonRpcOutcome{});
    EXPECT_EQ(wakes, 2);
    inbox.awake();
    inbox.close();
    EXPECT_FALSE(inbox.put(numbered("1", 4)).isNews);
    inbox.put(JsonRpcOutcome{});
    EXPECT_EQ(wakes, 2);
    EXPECT_EQ(inbox.takeEnvelope(), nullptr);
    EXPECT_FALSE(inbox.takeOutcome());
}

TEST(ConnectionInbox, EnvelopesAreNewsUntilCollectedAndWakeNobody)
{
    ConnectionInbox inbox;
    int wakes = 0;
    EXPECT_FALSE(inbox.put(numbered("1", 1)).isNews) << "there is nobody to be told yet";
    EXPECT_TRUE(inbox.open([&] { ++wakes; }));
    EXPECT_FALSE(inbox.put(numbered("2", 1)).isNews);
    inbox.put(JsonRpcOutcome{});
    EXPECT_EQ(wakes, 1) << "for the outcome, which waits for no round";
    inbox.awake();
    while (inbox.takeEnvelope()) { }
    EXPECT_FALSE(inbox.put(numbered("1", 2)).isNews) << "being told still";
    inbox.collected();
    EXPECT_TRUE(inbox.put(numbered("1", 3)).isNews);
    EXPECT_EQ(wakes, 1);
}

TEST(OutputQueue, AnswersAndEnvelopesTakeTurnsInWholeLines)
{
    std::deque<SharedLine> waiting;
    OutputQueue output([&] {
        SharedLine next;
        if (!waiting.empty()) {
            next = waiting.front();
            waiting.pop_front();
        }
        return next;
    });
    EXPECT_TRUE(output.front().empty());
    for (const char* text : {"envelope 1\n", "envelope 2\n", "envelope 3\n"}) {
        waiting.push_back(std::make_shared<const std::string>(text));
    }
    output.addAnswer("answer 1\n");
    std::string written;
    for (auto bytes = output.front(); !bytes.empty(); bytes = output.front()) {
        if (written.size() == 3) {
            output.addAnswer("answer 2\n"); // while a line is half written
            EXPECT_EQ(output.unsentAnswers(), 18U);
        }
        const auto count = std::min<std::size_t>(3, bytes.size());
        written += bytes.substr(0, count);
        output.consume(count);
    }
    EXPECT_EQ(written, "envelope 1\nanswer 1\nanswer 2\nenvelope 2\nenvelope 3\n");
    EXPECT_EQ(output.unsentAnswers(), 0U);
}

} // namespace
} // namespace meridal
