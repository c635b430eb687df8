// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/AsioRuntime.h"
#include "daemon/transport/UnixSocketListener.h"
#include "tests/support/TemporaryTree.h"
#include "tests/transport/FakeDaemon.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace meridal::test {

/// A queue of real threads, as the daemon's main queue has one, that counts what waits in it.
class CountingQueue final : public Queue {
public:
    void post(Task task) override
    {
        int most = deepest_;
        for (const int now = ++waiting_; now > most && !deepest_.compare_exchange_weak(most, now);) { }
        queue_->post([this, task = std::move(task)] {
            --waiting_;
            task();
        });
    }
    void runAndWait(const Task& task) override { queue_->runAndWait(task); }
    bool isCurrent() const override { return queue_->isCurrent(); }
    const std::string& label() const override { return queue_->label(); }
    /// The most tasks that ever waited at once.
    int deepest() const { return deepest_; }

private:
    std::atomic<int> waiting_ = 0;
    std::atomic<int> deepest_ = 0;
    AsioRuntime runtime_;
    std::shared_ptr<Queue> queue_ = runtime_.makeSerialQueue("main");
};

/// A client on a real socket. Reads and writes block; half a minute of silence counts as a failure, so that a hang
/// shows as one.
class Client {
public:
    Client() : descriptor_(::socket(AF_UNIX, SOCK_STREAM, 0))
    {
        const timeval limit{30, 0};
        setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    }
    explicit Client(const std::filesystem::path& path) : Client() { EXPECT_TRUE(connect(path)); }
    Client(Client&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)), received_(std::move(other.received_))
    {
    }
    Client& operator=(Client&&) = delete;
    ~Client() { close(); }

    bool connect(const std::filesystem::path& path) const
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
        return ::connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    }
    void close()
    {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
        descriptor_ = -1;
    }
    void endOutput() const { ::shutdown(descriptor_, SHUT_WR); }

    /// Sends everything; false when the other end is gone.
    bool send(std::string_view bytes) const
    {
        while (!bytes.empty()) {
            const ssize_t count = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count <= 0) {
                return false;
            }
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }
    /// Sends what the socket takes at once.
    std::size_t trySend(std::string_view bytes) const
    {
        const ssize_t count = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return count < 0 ? 0 : static_cast<std::size_t>(count);
    }
    /// The next line without its end; nothing when the connection was ended.
    std::optional<std::string> line()
    {
        std::size_t end = 0;
        while ((end = received_.find('\n')) == std::string::npos) {
            char bytes[16384];
            const ssize_t count = ::recv(descriptor_, bytes, sizeof(bytes), 0);
            if (count <= 0) {
                EXPECT_FALSE(count < 0 && errno == EAGAIN) << "silence for half a minute";
                return std::nullopt;
            }
            received_.append(bytes, static_cast<std::size_t>(count));
        }
        std::string line = received_.substr(0, end);
        received_.erase(0, end + 1);
        if (received_.empty()) {
            received_.shrink_to_fit(); // thousands of clients are measured
        }
        return line;
    }
    std::string ask(std::string_view request)
    {
        EXPECT_TRUE(send(std::string(request) + "\n"));
        return line().value_or("(ended)");
    }

private:
    int descriptor_;
    std::string received_;
};

/// A request and its answer, without the end of the line.
inline std::string requestOf(std::string_view method, std::string_view parameters = "[]", std::string_view id = "1")
{
    return fmt::format(R"({{"jsonrpc":"2.0","id":{},"method":"{}","params":{}}})", id, method, parameters);
}
inline std::string resultOf(std::string_view result, std::string_view id = "1")
{
    return fmt::format(R"({{"jsonrpc":"2.0","id":{},"result":{}}})", id, result);
}
inline const std::string existsRequest = requestOf("exists:");
inline const std::string existsAnswer = resultOf("true");

/// A listener with fake daemon objects behind it, in a folder of its own.
class SocketFixture : public testing::Test, protected ListenerDelegate {
protected:
    /// What the daemon holds for one client.
    struct Served {
        std::shared_ptr<ClientLink> link;
        std::shared_ptr<FakeExportedConnection> exported;
    };

    /// Before any destructor: until then the listener's thread calls this object as its delegate.
    void TearDown() override { listener.reset(); }

    void listen()
    {
        auto result = UnixSocketListener::listen(path, *this, &named, mainQueue);
        ASSERT_TRUE(result) << result.error().message;
        listener = std::move(*result);
    }

    std::shared_ptr<ExportedConnection> shouldAcceptNewConnection(std::shared_ptr<ClientLink> client) override
    {
        if (turnAway) {
            return nullptr;
        }
        auto exported = std::make_shared<FakeExportedConnection>();
        const std::lock_guard lock(mutex);
        served.push_back({std::move(client), exported});
        if (prepare) {
            prepare(*exported, served.size() - 1);
        }
        changed.notify_all();
        return exported;
    }

    /// The daemon's side of the n-th client, counted from 0; waits for it to be accepted.
    Served client(std::size_t index)
    {
        std::unique_lock lock(mutex);
        EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(30), [&] { return served.size() > index; }));
        return served.at(index);
    }
    /// Waits until a condition that some connection brings about holds; every "exists:" of a client of ours is a point
    /// at which the listener's thread has gone on.
    template <typename Condition>
    bool eventually(const Condition& holds)
    {
        Client prober(path);
        for (int i = 0; i < 200'000; ++i) {
            if (holds()) {
                return true;
            }
            if (prober.ask(existsRequest) != existsAnswer) {
                return false;
            }
        }
        return false;
    }

    TemporaryTree folder;
    const std::filesystem::path path = folder.root() / "run" / "daemon.sock";
    CountingQueue mainQueue;
    FakeNamedMethods named;
    std::mutex mutex; // of served
    std::condition_variable changed;
    std::vector<Served> served;
    std::function<void(FakeExportedConnection&, std::size_t index)> prepare; ///< set up before the client is served
    std::atomic<bool> turnAway{false};
    std::unique_ptr<UnixSocketListener> listener;
};

inline EnvelopePtr envelope(const char* type, int number, std::size_t padding = 0)
{
    return std::make_shared<const Envelope>(
        Dictionary{{"type", type}, {"number", number}, {"padding", std::string(padding, 'p')}});
}

/// The dictionary inside a pushed line; null when the line is something else.
inline Value envelopeIn(const std::string& line)
{
    const auto message = parseUntrusted(line);
    const Value* parameters = message ? find(*message, "params") : nullptr;
    return parameters && parameters->size() == 1 ? (*parameters)[0] : Value();
}

} // namespace meridal::test
