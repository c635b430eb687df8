// SPDX-License-Identifier: Apache-2.0
#include "tests/transport/SocketFixture.h"

#include <algorithm>
#include <climits>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace meridal::test {
namespace {

class UnixSocketListenerTest : public SocketFixture { };

mode_t modeOf(const std::filesystem::path& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST_F(UnixSocketListenerTest, SocketIsForEveryoneAndLeavesNothingBehind)
{
    const mode_t before = umask(077);
    listen();
    umask(before);
    EXPECT_EQ(modeOf(path), 0666);
    EXPECT_EQ(modeOf(path.parent_path()), 0755);
    EXPECT_EQ(Client(path).ask(existsRequest), existsAnswer);
    listener.reset();
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(UnixSocketListenerTest, StaleSocketIsTakenOverAndOtherFilesAreNot)
{
    std::filesystem::create_directories(path.parent_path());
    const int dead = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(dead, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    close(dead);
    listen();
    EXPECT_EQ(Client(path).ask(existsRequest), existsAnswer);
    listener.reset();

    std::ofstream(path) << "someone's file";
    const auto refused = UnixSocketListener::listen(path, *this, nullptr, mainQueue);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code, ErrorCode::InvalidArgument);
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_FALSE(UnixSocketListener::listen(folder.root() / std::string(200, 'x'), *this, nullptr, mainQueue));
}

TEST_F(UnixSocketListenerTest, PeerIsWhoTheKernelSays)
{
    listen();
    Client someone(path);
    const Peer peer = client(0).link->peer();
    EXPECT_TRUE(peer.known);
    if (std::filesystem::exists("/proc/self")) { // elsewhere the system does not tell
        std::vector<gid_t> groups(NGROUPS_MAX);
        groups.resize(static_cast<std::size_t>(std::max(getgroups(NGROUPS_MAX, groups.data()), 0)));
        EXPECT_EQ(peer.groups, groups);
    }
    EXPECT_EQ(peer.uid, getuid());
    EXPECT_EQ(peer.gid, getgid());
    EXPECT_EQ(someone.ask(requestOf("status")), resultOf(fmt::format(R"({{"uid":{}}})", getuid())));
}

TEST_F(UnixSocketListenerTest, EnvelopesOfACallComeBeforeItsAnswer)
{
    prepare = [this](FakeExportedConnection& exported, std::size_t index) {
        exported.onCall = [this, index](const std::string& selector, const Value& arguments) {
            if (selector == "startRequestWithKey:interval:") {
                const auto type = std::to_string(arguments[0].get<int>());
                mainQueue.post([link = client(index).link, type] { link->daemonResponse(envelope(type.c_str(), 1)); });
            }
        };
    };
    listen();
    Client someone(path);
    for (const char* key : {"1", "2", "128"}) {
        const std::string pushed =
            R"({"jsonrpc":"2.0","method":"daemonResponse:","params":[{"number":1,"padding":"","type":")";
        EXPECT_EQ(someone.ask(requestOf("startRequestWithKey:interval:", "[" + std::string(key) + ",2]")),
            pushed + key + "\"}]}");
        EXPECT_EQ(someone.line(), resultOf("null"));
    }
}

/// A main queue in the midst of a turn, whose tasks run when told.
class TurnQueue final : public Queue {
public:
    void post(Task task) override { tasks.push_back(std::move(task)); }
    void runAndWait(const Task& task) override { task(); }
    bool isCurrent() const override { return std::this_thread::get_id() == thread_; }
    const std::string& label() const override { return label_; }
    void endTurn()
    {
        for (const Task& task : std::exchange(tasks, {})) {
            task();
        }
    }

    std::vector<Task> tasks;

private:
    const std::thread::id thread_ = std::this_thread::get_id();
    const std::string label_ = "main";
};

TEST_F(UnixSocketListenerTest, EnvelopesOfATurnAreWrittenTogetherAndHoldUpNoAnswer)
{
    TurnQueue turn;
    listener = std::move(*UnixSocketListener::listen(path, *this, &named, turn));
    std::vector<Client> clients;
    for (std::size_t count = 0; count < 40; ++count) { // more than are written to at once
        clients.emplace_back(path);
        client(count);
    }
    const auto send = [&](int number) {
        for (const char* type : {"1", "2"}) {
            const EnvelopePtr list = envelope(type, number);
            for (const Served& each : served) {
                each.link->daemonResponse(list);
            }
        }
    };
    const auto expect = [](Client& reader, int number) {
        for (const char* type : {"1", "2"}) {
            const Value received = envelopeIn(reader.line().value_or("(ended)"));
            EXPECT_EQ(received["type"], type);
            EXPECT_EQ(received["number"], number);
        }
    };
    send(1);
    EXPECT_EQ(turn.tasks.size(), 1U) << "one for all";
    EXPECT_EQ(listener->statistics().envelopesSent, 0U);
    clients[7].send(existsRequest + "\n");
    expect(clients[7], 1);
    EXPECT_EQ(clients[7].line(), existsAnswer);
    EXPECT_EQ(listener->statistics().envelopesSent, 2U) << "nobody else's";
    send(2);
    turn.endTurn();
    for (Client& each : clients) {
        expect(each, 2);
    }
    std::thread([&] { served[3].link->daemonResponse(envelope("4", 3)); }).join(); // not of the main queue's
    EXPECT_EQ(envelopeIn(clients[3].line().value_or("(ended)"))["number"], 3);
    EXPECT_TRUE(turn.tasks.empty());

    send(4);
    listener.reset();
    turn.endTurn();
    EXPECT_EQ(clients[0].line(), std::nullopt);
}

TEST_F(UnixSocketListenerTest, PipelinedRequestsAreServedInOrderOneAtATime)
{
    std::atomic<int> serving{0};
    std::atomic<bool> overlapped{false};
    prepare = [&](FakeExportedConnection& exported, std::size_t) {
        exported.onCall = [&](const std::string& selector, const Value&) {
            overlapped = overlapped || serving > 0;
            if (selector == "enableHierachy") {
                ++serving;
                mainQueue.post([&] { --serving; });
            }
        };
    };
    listen();
    Client someone(path);
    std::string requests;
    for (int i = 0; i < 1000; ++i) {
        requests += requestOf(i % 2 == 0 ? "enableHierachy" : "exists:", "[]", std::to_string(i)) + "\n";
    }
    ASSERT_TRUE(someone.send(requests));
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(someone.line(), resultOf(i % 2 == 0 ? "null" : "true", std::to_string(i)));
    }
    EXPECT_FALSE(overlapped);
}

TEST_F(UnixSocketListenerTest, AnEndlessLineClosesItsConnectionWithAReason)
{
    listen();
    Client longest(path);
    EXPECT_EQ(longest.ask(existsRequest + std::string((1 << 20) - existsRequest.size(), ' ')), existsAnswer);

    Client endless(path);
    endless.send(std::string(3 << 20, ' ')); // part of it may be refused already
    const auto reason = endless.line();
    ASSERT_TRUE(reason);
    EXPECT_NE(reason->find("-32600"), std::string::npos) << *reason;
    EXPECT_FALSE(endless.line());
    EXPECT_EQ(client(1).exported->calls(), (std::vector<std::string>{"ended []"}));
    EXPECT_EQ(longest.ask(existsRequest), existsAnswer);
}

TEST_F(UnixSocketListenerTest, AClientThatEndsItsOutputStillGetsItsAnswers)
{
    listen();
    Client someone(path);
    someone.send(existsRequest + "\n" + existsRequest + "\n{\"half");
    someone.endOutput();
    EXPECT_EQ(someone.line(), existsAnswer);
    EXPECT_EQ(someone.line(), existsAnswer);
    EXPECT_EQ(someone.line(), std::nullopt);
}

TEST_F(UnixSocketListenerTest, AReplyAfterTheClientLeftIsDropped)
{
    std::promise<void> called;
    std::promise<void> left;
    prepare = [&](FakeExportedConnection& exported, std::size_t index) {
        exported.onEnded = [&, index] {
            if (index == 0) {
                left.set_value();
            }
        };
        exported.onCall = [&, index](const std::string& selector, const Value&) {
            if (index == 0 && selector == "smartTemps") {
                mainQueue.post([&, ended = left.get_future().share()] { ended.wait(); }); // holds up the answer
                called.set_value();
            }
        };
    };
    listen();
    {
        Client leaver(path);
        leaver.send(requestOf("smartTemps") + "\n");
        called.get_future().wait();
        // Its input is not read while it is being served; an envelope finds out that nobody is there.
    }
    const auto gone = client(0);
    gone.link->daemonResponse(envelope("1", 1));
    EXPECT_TRUE(eventually([&] { return gone.exported->calls().size() == 2; }));
    EXPECT_EQ(gone.exported->calls(), (std::vector<std::string>{"smartTemps []", "ended []"}));
    mainQueue.runAndWait([] {});
    gone.link->daemonResponse(envelope("1", 2));
    EXPECT_TRUE(eventually([&] { return listener->statistics().openConnections == 1; })) << "only the prober";
}

TEST_F(UnixSocketListenerTest, TheDelegateMayTurnAClientAway)
{
    turnAway = true;
    listen();
    Client someone(path);
    EXPECT_EQ(someone.line(),
        R"({"jsonrpc":"2.0","id":null,"error":{"code":-32003,"message":)"
        R"("this user has as many connections as one may have; the connection is closed"}})");
    EXPECT_EQ(someone.line(), std::nullopt);
    EXPECT_EQ(listener->statistics().openConnections, 0U);
    turnAway = false;
    EXPECT_EQ(Client(path).ask(existsRequest), existsAnswer);
}

TEST_F(UnixSocketListenerTest, AClientThatDoesNotReadGetsTheNewestOfEachTypeWhenItDoes)
{
    listen();
    Client lazy(path);
    const auto link = client(0).link;
    constexpr int last = 300;
    for (int number = 1; number <= last; ++number) {
        for (const char* type : {"1", "2"}) {
            link->daemonResponse(envelope(type, number, 20'000));
        }
        Client other(path); // meanwhile the others are served, and the listener gets to write
        EXPECT_EQ(other.ask(existsRequest), existsAnswer);
    }
    const auto statistics = listener->statistics();
    EXPECT_GT(statistics.envelopesDropped, 400U);
    std::map<std::string, int> newest;
    while (newest["1"] < last || newest["2"] < last) {
        const auto line = lazy.line();
        ASSERT_TRUE(line);
        const Value received = envelopeIn(*line);
        const int number = received["number"];
        EXPECT_GT(number, newest[received["type"]]) << "out of order";
        newest[received["type"]] = number;
    }
    EXPECT_TRUE(eventually([&] {
        const auto now = listener->statistics();
        return now.envelopesSent + now.envelopesDropped == 2 * last;
    }));
}

TEST_F(UnixSocketListenerTest, AClientThatAsksWithoutReadingIsHeldUp)
{
    listen();
    Client greedy(path);
    const std::string id = '"' + std::string(1000, 'i') + '"';
    const std::string request = requestOf("exists:", "[]", id) + "\n";
    std::string rest;
    std::size_t sent = 0;
    const auto sendMore = [&] {
        bool any = false;
        for (;;) {
            rest = rest.empty() ? request : rest;
            const std::size_t count = greedy.trySend(rest);
            if (count == 0) {
                return any;
            }
            any = true;
            sent += count;
            rest.erase(0, count);
            if (sent > (16U << 20)) {
                return false;
            }
        }
    };
    int pauses = 0;
    EXPECT_TRUE(eventually([&] { return sendMore() ? (pauses = 0, false) : ++pauses > 100; }));
    EXPECT_LT(sent, 4U << 20) << "the daemon went on reading";

    // Once it reads, everything is answered that was asked.
    std::size_t answers = 0;
    std::thread reader([&] {
        while (const auto line = greedy.line()) {
            EXPECT_EQ(*line, resultOf("true", id));
            ++answers;
        }
    });
    greedy.send(rest);
    greedy.endOutput();
    reader.join();
    EXPECT_EQ(answers, (sent + rest.size()) / request.size());
}

} // namespace
} // namespace meridal::test
