// SPDX-License-Identifier: Apache-2.0
// What a pass costs that hands four lists to up to 1,000 clients: the call on the measuring thread, and the whole way into the
// clients' sockets.

#include "base/Value.h"
#include "daemon/transport/UnixSocketListener.h"
#include "tests/transport/FakeDaemon.h"

#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace meridal;

/// The main queue in the midst of a pass, whose tasks run when that is over. Nobody calls a method here.
class TurnQueue final : public Queue {
public:
    void post(Task task) override { tasks_.push_back(std::move(task)); }
    void runAndWait(const Task&) override { std::abort(); }
    bool isCurrent() const override { return true; }
    const std::string& label() const override { return label_; }
    void endTurn()
    {
        for (const Task& task : std::exchange(tasks_, {})) {
            task();
        }
    }

private:
    std::vector<Task> tasks_;
    std::string label_ = "main";
};

/// A listener in a folder of its own with connected clients that hold keys 1, 2, 4 and 16.
class Audience final : public ListenerDelegate {
public:
    explicit Audience(std::size_t size)
    {
        rlimit files{};
        getrlimit(RLIMIT_NOFILE, &files); // two for each client
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
        std::string pattern = std::filesystem::temp_directory_path() / "meridal-bench-XXXXXX";
        folder_ = mkdtemp(pattern.data());
        const auto path = folder_ / "daemon.sock";
        auto result = UnixSocketListener::listen(path, *this, nullptr, queue);
        if (!result) {
            std::abort();
        }
        listener = std::move(*result);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
        for (std::size_t i = 0; i < size; ++i) {
            const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
            if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
                std::abort();
            }
            descriptors.push_back(descriptor);
        }
        while (listener->statistics().openConnections < size) {
            std::this_thread::yield();
        }
    }
    ~Audience() override
    {
        listener.reset();
        for (const int descriptor : descriptors) {
            close(descriptor);
        }
        std::filesystem::remove_all(folder_);
    }
    Audience(const Audience&) = delete;
    Audience& operator=(const Audience&) = delete;

    std::shared_ptr<ExportedConnection> shouldAcceptNewConnection(std::shared_ptr<ClientLink> client) override
    {
        const std::lock_guard lock(mutex_);
        links.push_back(std::move(client));
        return std::make_shared<test::FakeExportedConnection>();
    }
    /// Reads everything that the clients were sent.
    void drain() const
    {
        static std::array<char, 1 << 18> bytes;
        for (const int descriptor : descriptors) {
            while (recv(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) { }
        }
    }

    TurnQueue queue;
    std::unique_ptr<UnixSocketListener> listener;
    std::vector<std::shared_ptr<ClientLink>> links;
    std::vector<int> descriptors;

private:
    std::filesystem::path folder_;
    std::mutex mutex_;
};

/// A list of twenty processes, as long as the daemon sends them.
EnvelopePtr processList(const char* type)
{
    Value rows = Value::array();
    for (int i = 0; i < 20; ++i) {
        rows.push_back(
            {{"name", "some-process-" + std::to_string(i)}, {"pid", std::to_string(1000 + i)}, {"value", "12.34"}});
    }
    return std::make_shared<const Envelope>(Dictionary{{"type", type}, {"processes", std::move(rows)}});
}

/// Processor seconds of this process, all threads.
double processorTime()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void fanOut(benchmark::State& state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    Audience audience(size);
    const std::uint64_t encodedBefore = audience.listener->envelopesEncoded();
    double spent = 0;
    std::uint64_t expected = 0;
    for (auto _ : state) {
        const double start = processorTime();
        for (const char* type : {"1", "2", "4", "16"}) {
            const EnvelopePtr envelope = processList(type);
            for (const auto& link : audience.links) {
                link->daemonResponse(envelope);
            }
        }
        audience.queue.endTurn();
        state.PauseTiming(); // the rest happens on the listener's thread
        expected += 4 * size;
        for (auto now = audience.listener->statistics(); now.envelopesSent + now.envelopesDropped < expected;
             now = audience.listener->statistics()) {
            usleep(200);
        }
        spent += processorTime() - start;
        audience.drain();
        state.ResumeTiming();
    }
    using benchmark::Counter;
    const auto encoded = static_cast<double>(audience.listener->envelopesEncoded() - encodedBefore);
    state.counters["encoded_per_pass"] = Counter(encoded, Counter::kAvgIterations);
    state.counters["cpu_per_pass_s"] = Counter(spent, Counter::kAvgIterations);
    state.counters["cpu_per_envelope_s"] = Counter(spent / static_cast<double>(4 * size), Counter::kAvgIterations);
    state.counters["dropped"] = static_cast<double>(audience.listener->statistics().envelopesDropped);
}
BENCHMARK(fanOut)->Arg(1)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond)->Iterations(200);

} // namespace

BENCHMARK_MAIN();
