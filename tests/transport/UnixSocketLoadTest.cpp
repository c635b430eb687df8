// SPDX-License-Identifier: Apache-2.0
#include "tests/support/SlowBuild.h"
#include "tests/transport/SocketFixture.h"

#include <fcntl.h>
#include <fstream>
#include <sys/resource.h>

namespace meridal::test {
namespace {

class UnixSocketLoadTest : public SocketFixture {
protected:
    UnixSocketLoadTest() { getrlimit(RLIMIT_NOFILE, &descriptorLimit); }
    ~UnixSocketLoadTest() override { setrlimit(RLIMIT_NOFILE, &descriptorLimit); }

    bool limitDescriptors(rlim_t count) const
    {
        const rlimit limit{std::min(count, descriptorLimit.rlim_max), descriptorLimit.rlim_max};
        return setrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur == count;
    }
    rlimit descriptorLimit{};
};

/// Bytes of memory in use by this process; 0 where /proc does not tell.
std::int64_t residentBytes()
{
    std::ifstream statm("/proc/self/statm");
    std::int64_t total = 0;
    std::int64_t resident = 0;
    statm >> total >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

/// A client that asks as fast as it is answered until told to stop or turned out.
void flood(const std::filesystem::path& path, const std::string& request, const std::atomic<bool>& stop)
{
    Client client(path);
    std::string batch;
    for (int i = 0; i < 64; ++i) {
        batch += request + "\n";
    }
    while (!stop && client.send(batch)) {
        for (int i = 0; i < 64; ++i) {
            if (!client.line()) {
                return;
            }
        }
    }
}

TEST_F(UnixSocketLoadTest, FourFloodingClientsDelayNobodysEnvelopes)
{
    // Everything in the hook runs on the listener's thread, between two requests of the flood: an envelope is handed
    // over, and the requests are counted that are served before it is written.
    constexpr int envelopes = 200;
    std::shared_ptr<ClientLink> patient;
    int handedOver = 0;
    int servedSince = 0;
    int longestWait = 0;
    std::promise<void> finished;
    prepare = [&](FakeExportedConnection& exported, std::size_t index) {
        exported.recording = false;
        if (index == 0) {
            return;
        }
        exported.onCall = [&](const std::string&, const Value&) {
            if (handedOver > envelopes) {
                return;
            }
            ++servedSince;
            if (listener->statistics().envelopesSent < static_cast<std::uint64_t>(handedOver)) {
                return;
            }
            longestWait = std::max(longestWait, servedSince);
            servedSince = 0;
            if (++handedOver > envelopes) {
                finished.set_value();
                return;
            }
            patient->daemonResponse(envelope("1", handedOver));
        };
    };
    listen();
    Client fifth(path);
    patient = client(0).link;
    std::atomic<bool> stop{false};
    std::vector<std::thread> flooders;
    for (const char* method : {"exists:", "version:", "enableHierachy", "setFanSet:"}) {
        const std::string request = requestOf(method, std::string_view(method) == "setFanSet:" ? "[1]" : "[]");
        flooders.emplace_back([this, request, &stop] { flood(path, request, stop); });
    }
    for (int number = 1; number <= envelopes; ++number) {
        const auto line = fifth.line();
        ASSERT_TRUE(line);
        EXPECT_EQ(envelopeIn(*line)["number"], number);
    }
    finished.get_future().wait();
    stop = true;
    for (auto& flooder : flooders) {
        flooder.join();
    }
    listener.reset();
    EXPECT_LE(longestWait, 16) << "requests that were served before an envelope";
    EXPECT_LE(mainQueue.deepest(), 5) << "one fence for each client";
}

TEST_F(UnixSocketLoadTest, TwoThousandClientsAreServedAndCostLittle)
{
    constexpr std::size_t count = slowBuild ? 400 : 2000;
    if (!limitDescriptors(2 * count + 200)) {
        GTEST_SKIP() << "this user may not open " << 2 * count + 200 << " files";
    }
    prepare = [](FakeExportedConnection& exported, std::size_t) { exported.recording = false; };
    listen();
    const auto before = residentBytes();
    std::vector<Client> clients;
    clients.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        clients.emplace_back(path);
        ASSERT_TRUE(clients.back().send(existsRequest + "\n"));
    }
    for (Client& each : clients) {
        ASSERT_EQ(each.line(), existsAnswer);
    }
    EXPECT_EQ(listener->statistics().openConnections, count);
    const auto shared = envelope("1", 1, 50'000);
    const std::string expected =
        R"({"jsonrpc":"2.0","method":"daemonResponse:","params":[)" + serialise(shared->dictionary()) + "]}";
    for (std::size_t i = 0; i < count; ++i) {
        client(i).link->daemonResponse(shared);
    }
    for (Client& each : clients) {
        ASSERT_EQ(each.line(), expected);
        ASSERT_TRUE(each.send(existsRequest + "\n"));
    }
    for (Client& each : clients) {
        ASSERT_EQ(each.line(), existsAnswer);
    }
    EXPECT_EQ(listener->envelopesEncoded(), 1U) << "once for all";
    const auto perConnection = (residentBytes() - before) / static_cast<std::int64_t>(count);
    RecordProperty("bytes_per_connection", static_cast<int>(perConnection));
    if (!slowBuild) {
        EXPECT_LT(perConnection, 8'000) << "both ends, and the fake daemon's object";
    }
    clients.clear();
    EXPECT_TRUE(eventually([&] { return listener->statistics().openConnections == 1; }));
}

class ExhaustedDescriptorsTest : public UnixSocketLoadTest {
protected:
    /// Eight clients that asked a question, and descriptors for at most three of them on the listener's side.
    void connectMoreThanCanBeAccepted()
    {
        listen();
        clients = std::vector<Client>(8);
        const int lowestFree = open("/dev/null", O_RDONLY);
        ASSERT_GE(lowestFree, 0);
        close(lowestFree);
        ASSERT_TRUE(limitDescriptors(static_cast<rlim_t>(lowestFree) + 3));
        for (Client& each : clients) {
            ASSERT_TRUE(each.connect(path));
            ASSERT_TRUE(each.send(existsRequest + "\n"));
        }
        EXPECT_EQ(clients[0].line(), existsAnswer);
        EXPECT_LE(listener->statistics().acceptedConnections, 3U);
    }
    std::vector<Client> clients;
};

TEST_F(ExhaustedDescriptorsTest, ALeavingClientMakesRoomForAWaitingOne)
{
    connectMoreThanCanBeAccepted();
    for (std::size_t i = 1; i < clients.size(); ++i) {
        clients[i - 1].close();
        EXPECT_EQ(clients[i].line(), existsAnswer);
    }
}

TEST_F(ExhaustedDescriptorsTest, AcceptingIsTriedAgainByItself)
{
    connectMoreThanCanBeAccepted();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &descriptorLimit), 0);
    for (std::size_t i = 1; i < clients.size(); ++i) {
        EXPECT_EQ(clients[i].line(), existsAnswer);
    }
}

TEST_F(UnixSocketLoadTest, AFloodOfMalformedMessagesEndsNothingAndGrowsNothing)
{
    const std::string malformed[] = {"nonsense", "{\"jsonrpc\":\"2.0\",\"id\":1}", "[[[[", "\"\xFF\"", "[]",
        std::string("\0\0", 2), R"({"jsonrpc":"2.0","id":7,"method":"exists:","params":{"a":1}})",
        R"({"jsonrpc":"2.0","id":8,"method":"?"})",
        R"({"jsonrpc":"2.0","id":{"deep":[1,[2,[3]]]},"method":"exists:"})"};
    constexpr int perBatch = 1024;
    constexpr int batches = (slowBuild ? 20'000 : 100'000) / perBatch;
    std::string batch;
    for (int i = 0; i < perBatch; ++i) {
        batch += malformed[static_cast<std::size_t>(i) % std::size(malformed)] + "\n";
    }
    listen();
    Client half(path);
    ASSERT_TRUE(half.send(R"({"jsonrpc":"2.0","id":1,"meth)")); // and then silence
    client(0);
    Client hostile(path);
    std::int64_t afterAFew = 0;
    for (int i = 0; i < batches; ++i) {
        ASSERT_TRUE(hostile.send(batch));
        for (int k = 0; k < perBatch; ++k) {
            const auto line = hostile.line();
            ASSERT_TRUE(line);
            if (i == 0) {
                EXPECT_NE(line->find("\"error\""), std::string::npos) << *line;
            }
        }
        if (i == batches / 10) {
            afterAFew = residentBytes();
        }
    }
    if (!slowBuild) {
        EXPECT_LT(residentBytes() - afterAFew, 2 << 20) << "the smallest block a message would be more";
    }
    EXPECT_EQ(hostile.ask(existsRequest), existsAnswer);
    EXPECT_EQ(listener->statistics().badRequests, static_cast<std::uint64_t>(batches) * perBatch);
    EXPECT_EQ(client(1).exported->calls().size(), 1U);
    EXPECT_EQ(half.ask(R"(od":"exists:"})"), existsAnswer);
}

/// A long request is read, and an answer written out, beside the thread that serves the others.
TEST_F(UnixSocketLoadTest, ALongRequestHoldsUpNobody)
{
    std::promise<void> othersWereServed;
    prepare = [&](FakeExportedConnection& connection, std::size_t index) {
        connection.recording = index != 0;
        if (index == 0) {
            connection.onCall = [served = othersWereServed.get_future().share()](const std::string&, const Value&) {
                EXPECT_EQ(served.wait_for(std::chrono::seconds(30)), std::future_status::ready);
            };
        }
    };
    listen();
    Client greedy(path);
    client(0);
    std::string pids = "1";
    while (pids.size() < 100'000) {
        pids += ",1";
    }
    greedy.send(requestOf("infoForPids:reply:", "[[" + pids + "]]") + "\n" + existsRequest + "\n");
    Client leaving(path);
    leaving.send(requestOf("setFanSet:", "[\"" + pids + "\"]") + "\n");
    leaving.close();
    Client usual(path);
    EXPECT_EQ(usual.ask(existsRequest), existsAnswer);
    EXPECT_TRUE(client(1).exported->calls().empty()) << "neither called nor told of the end";
    othersWereServed.set_value();
    EXPECT_GT(greedy.line().value_or("").size(), 1'000'000U);
    EXPECT_EQ(greedy.line(), existsAnswer) << "in order";
    EXPECT_TRUE(eventually([&] { return client(1).exported->calls().size() == 2; }));
    EXPECT_EQ(client(1).exported->calls().back(), "ended []");
}

TEST_F(UnixSocketLoadTest, LongUnfinishedLinesOfAllClientsTogetherAreBounded)
{
    listen();
    std::vector<Client> clients;
    const std::string almost((1 << 20) - 100, ' ');
    for (int i = 0; i < 60; ++i) {
        clients.emplace_back(path);
        clients.back().send(almost);
    }
    EXPECT_TRUE(eventually([&] { return listener->statistics().openConnections < 50; }));
    EXPECT_GT(listener->statistics().openConnections, 10U);
    Client usual(path);
    EXPECT_EQ(usual.ask(existsRequest), existsAnswer) << "a short line is always welcome";
    clients.clear();
    EXPECT_TRUE(eventually([&] { return listener->statistics().openConnections == 2; }));
    EXPECT_EQ(usual.ask(existsRequest + almost.substr(existsRequest.size())), existsAnswer)
        << "and long ones are again";
}

TEST_F(UnixSocketLoadTest, AListenerUnderLoadIsDestroyedCleanly)
{
    for (int round = 0; round < 5; ++round) {
        {
            const std::lock_guard lock(mutex);
            served.clear();
        }
        listen();
        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        for (const char* method : {"exists:", "enableHierachy", "stopT2Fans:"}) {
            threads.emplace_back([this, method, &stop] { flood(path, requestOf(method), stop); });
        }
        client(2);
        threads.emplace_back([&, links = std::vector{client(0).link, client(1).link, client(2).link}] {
            for (int number = 0; !stop; ++number) {
                links[static_cast<std::size_t>(number) % 3]->daemonResponse(envelope("1", number));
            }
        });
        while (listener->statistics().requests < 200) {
            mainQueue.runAndWait([] {});
        }
        listener.reset();
        for (std::size_t i = 0; i < 3; ++i) {
            const auto calls = client(i).exported->calls();
            EXPECT_EQ(std::count(calls.begin(), calls.end(), "ended []"), 1);
            EXPECT_EQ(calls.back(), "ended []");
        }
        stop = true;
        for (auto& thread : threads) {
            thread.join();
        }
    }
}

} // namespace
} // namespace meridal::test
