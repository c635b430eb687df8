// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/AsioRuntime.h"
#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "collectors/process/PacketStatCollector.h"
#include "collectors/process/ProcessStatCollector.h"
#include "platform/Context.h"
#include "platform/linux/LinuxHost.h"
#include "tests/linux/Child.h"
#include "tests/linux/NetworkNamespace.h"
#include "tests/support/TemporaryTree.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace meridal::test {

/// Ports that the other end of the bed serves.
enum Service : std::uint16_t {
    tcpSink = 5001,   ///< reads to the end and closes
    udpSink = 5002,   ///< takes everything
    tcpSource = 5003, ///< sends as many bytes as it was asked for
    udpSource = 5004, ///< answers each datagram with as many as it was asked for
};

struct Question {
    std::uint64_t count = 0; ///< bytes, or datagrams
    std::uint64_t size = 0;  ///< of a datagram
};

/// Of either family: programs use both.
inline sockaddr_in6 end(const std::string& address, std::uint16_t port)
{
    sockaddr_in6 result{}; // has room for IPv4's, which has its port in the same place and its address behind that
    const bool isIPv6 = address.find(':') != std::string::npos;
    result.sin6_family = isIPv6 ? AF_INET6 : AF_INET;
    result.sin6_port = htons(port);
    ::inet_pton(result.sin6_family, address.c_str(),
        isIPv6 ? static_cast<void*>(&result.sin6_addr) : static_cast<void*>(&result.sin6_flowinfo));
    return result;
}

inline Descriptor socketTo(int type, const std::string& address, std::uint16_t port, int protocol = 0)
{
    const sockaddr_in6 to = end(address, port);
    Descriptor result(::socket(to.sin6_family, type | SOCK_CLOEXEC, protocol));
    const bool connected = ::connect(result.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0;
    return connected ? std::move(result) : Descriptor();
}

/// A socket that takes what comes to a port.
inline Descriptor bound(int type, std::uint16_t port)
{
    Descriptor socket(::socket(AF_INET6, type | SOCK_CLOEXEC, 0));
    const int on = 1;
    ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in6 any = end("::", port);
    const bool taken = ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&any), sizeof any) == 0
        && (type != SOCK_STREAM || ::listen(socket.get(), 100) == 0);
    return taken ? std::move(socket) : Descriptor();
}

inline void sendBytes(int socket, std::uint64_t count)
{
    static const std::vector<char> bytes(1 << 16, 'x');
    while (count > 0) {
        const ssize_t sent = ::send(socket, bytes.data(), std::min<std::uint64_t>(count, bytes.size()), MSG_NOSIGNAL);
        if (sent <= 0) {
            return;
        }
        count -= static_cast<std::uint64_t>(sent);
    }
}

inline std::uint64_t receiveBytes(int socket, std::uint64_t count)
{
    std::vector<char> bytes(1 << 16);
    std::uint64_t got = 0;
    while (got < count) {
        const ssize_t size = ::recv(socket, bytes.data(), bytes.size(), 0);
        if (size <= 0) {
            break;
        }
        got += static_cast<std::uint64_t>(size);
    }
    return got;
}

/// These four keep their sockets, as programs do that go on.
inline void tcpSend(const std::string& address, std::uint64_t count)
{
    static Descriptor socket;
    socket = socketTo(SOCK_STREAM, address, tcpSink);
    sendBytes(socket.get(), count);
}

inline void tcpReceive(const std::string& address, std::uint64_t count)
{
    static Descriptor socket;
    socket = socketTo(SOCK_STREAM, address, tcpSource);
    const Question question{count, 0};
    ::send(socket.get(), &question, sizeof(question), 0);
    receiveBytes(socket.get(), count);
}

inline void udpSend(const std::string& address, std::uint64_t datagrams, std::size_t size)
{
    static Descriptor socket;
    socket = socketTo(SOCK_DGRAM, address, udpSink);
    const std::vector<char> bytes(size, 'u');
    for (std::uint64_t i = 0; i < datagrams; ++i) {
        ::send(socket.get(), bytes.data(), bytes.size(), 0);
    }
}

/// Ends when nothing came for a second: where its queue may not be as long as it needs, that may have run over.
inline void udpReceive(const std::string& address, std::uint64_t datagrams, std::size_t size)
{
    static Descriptor socket;
    socket = socketTo(SOCK_DGRAM, address, udpSource);
    const int room = 32 << 20;
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof(room));
    const timeval patience{.tv_sec = 1, .tv_usec = 0};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    const Question question{datagrams, size};
    ::send(socket.get(), &question, sizeof(question), 0);
    receiveBytes(socket.get(), datagrams * size);
}

/// Datagrams of one byte as fast as the machine can send them, 512 a call; how many were sent.
inline std::uint64_t flood(const std::string& address, int calls)
{
    const Descriptor socket = socketTo(SOCK_DGRAM, address, udpSink);
    char byte = 'f';
    iovec content{&byte, 1};
    mmsghdr one{};
    one.msg_hdr.msg_iov = &content;
    one.msg_hdr.msg_iovlen = 1;
    std::vector<mmsghdr> messages(512, one);
    std::uint64_t sent = 0;
    for (int i = 0; i < calls; ++i) {
        const int now = ::sendmmsg(socket.get(), messages.data(), static_cast<unsigned int>(messages.size()), 0);
        sent += static_cast<std::uint64_t>(std::max(now, 0));
    }
    return sent;
}

using Steps = std::vector<std::function<void()>>;

/// A process that takes a step each time it is told to, and lives until it is killed.
class Worker {
public:
    explicit Worker(const Steps& steps)
        : child_([&steps](const Child::Pipes& pipes) {
            for (const auto& step : steps) {
                if (pipes.command() != 0) {
                    step();
                    pipes.answer('!');
                }
            }
            while (true) {
                ::pause();
            }
        })
    {
    }
    std::int32_t pid() const { return child_.pid(); }
    void go() const { child_.command('g'); }
    /// Whether a step ends within so many milliseconds.
    bool wait(int milliseconds = 60'000) const { return child_.hasAnswer(milliseconds) && child_.answer(); }

private:
    Child child_;
};

/// Two network namespaces with a veth pair between them: the test's own thread is in the one, with the interface m0; a
/// process that serves is in the other, with p0.
class NetworkBed {
public:
    NetworkBed()
    {
        if (!here_.entered()) {
            return;
        }
        peer_ = std::make_unique<Worker>(Steps{[] { ::unshare(CLONE_NEWNET); }, [] { configure("p0", 2); }, serve});
        take(*peer_);
        // The kernel is in no hurry, up to a second, to call a pair ready whose ends have the same number.
        run("ip link add m0 index 5 type veth peer name p0 index 6 netns " + std::to_string(peer_->pid()));
        configure("m0", 1);
        take(*peer_);
        peer_->go();
        Worker probe({[] { // until it serves
            while (!socketTo(SOCK_STREAM, peer6, tcpSink)) {
                ::poll(nullptr, 0, 10);
            }
        }});
        take(probe);
    }
    bool isReady() const { return peer_ != nullptr; }
    static void run(const std::string& command)
    {
        static_cast<void>(!std::system(("exec 2>/dev/null; " + command).c_str()));
    }

    /// Runs the same at both ends, with "$I" for the interface of an end, "$N" for its number and "$O" for the other one's.
    void runAtBothEnds(const std::string& command) const
    {
        run("I=m0 N=1 O=2; " + command);
        run("nsenter -t " + std::to_string(peer_->pid()) + " -n sh -c 'I=p0 N=2 O=1; " + command + "'");
    }

    /// Received and sent bytes of these interfaces, as they count them themselves.
    static std::pair<double, double> carried(const std::set<std::string>& interfaces = {"m0", "lo"})
    {
        std::pair<double, double> sum;
        std::ifstream file("/proc/thread-self/net/dev");
        for (std::string line; std::getline(file, line);) {
            std::replace(line.begin(), line.end(), ':', ' ');
            std::istringstream words(line);
            std::string name;
            double received = 0;
            double sent = 0;
            if (words >> name >> received && interfaces.contains(name)) {
                for (int i = 0; i < 8; ++i) { // seven others are in between
                    words >> sent;
                }
                sum.first += received;
                sum.second += sent;
            }
        }
        return sum;
    }

    static constexpr const char* peer4 = "10.99.0.2";
    static constexpr const char* peer6 = "fd99::2";

private:
    static void configure(const std::string& interface, int host)
    {
        const std::string number = std::to_string(host);
        run("ip link set lo up; ip addr add 10.99.0." + number + "/24 dev " + interface + "; ip -6 addr add fd99::"
            + number + "/64 dev " + interface + " nodad; ip link set " + interface + " up");
    }
    static void take(Worker& worker)
    {
        worker.go();
        worker.wait();
    }

    static void serve()
    {
        ::signal(SIGCHLD, SIG_IGN);
        if (::fork() == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            serveDatagrams();
        }
        const Descriptor sink = bound(SOCK_STREAM, tcpSink);
        const Descriptor source = bound(SOCK_STREAM, tcpSource);
        while (true) {
            pollfd states[] = {{sink.get(), POLLIN, 0}, {source.get(), POLLIN, 0}};
            ::poll(states, 2, -1);
            const bool isSink = (states[0].revents & POLLIN) != 0;
            const Descriptor connection(::accept(isSink ? sink.get() : source.get(), nullptr, nullptr));
            if (::fork() == 0) {
                if (isSink) {
                    receiveBytes(connection.get(), ~std::uint64_t{0});
                } else {
                    Question question;
                    ::recv(connection.get(), &question, sizeof(question), MSG_WAITALL);
                    sendBytes(connection.get(), question.count);
                }
                ::_exit(0);
            }
        }
    }
    [[noreturn]] static void serveDatagrams()
    {
        const Descriptor sink = bound(SOCK_DGRAM, udpSink); // its queue may run over: the sender's bytes were sent
        const Descriptor source = bound(SOCK_DGRAM, udpSource);
        while (true) {
            Question question;
            sockaddr_in6 from{};
            socklen_t size = sizeof(from);
            if (::recvfrom(source.get(), &question, sizeof(question), 0, reinterpret_cast<sockaddr*>(&from), &size)
                <= 0) {
                continue;
            }
            const std::vector<char> bytes(question.size, 'd');
            for (std::uint64_t i = 0; i < question.count; ++i) {
                ::sendto(source.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&from), size);
            }
        }
    }

    NetworkNamespace here_;
    std::unique_ptr<Worker> peer_;
};

/// Real traffic in a network of its own.
class TrafficBedTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!bed.isReady()) {
            GTEST_SKIP() << "a network of its own takes root";
        }
    }
    void TearDown() override { workers.clear(); }

    Worker& worker(const Steps& steps) { return workers.emplace_back(steps); }
    Worker& begun(const std::function<void()>& step)
    {
        Worker& one = worker({step});
        one.go();
        return one;
    }
    Worker& run(const std::function<void()>& step)
    {
        Worker& one = begun(step);
        await({&one});
        return one;
    }
    /// Until every one of them has done a step. Serves what runs here meanwhile.
    void await(const std::vector<const Worker*>& all)
    {
        for (const Worker* one : all) {
            bool isDone = false;
            for (int i = 0; i < 6'000 && !isDone; ++i) { // two minutes: a flood lasts on a busy machine
                serveFor(0.02);
                isDone = one->wait(0);
            }
            EXPECT_TRUE(isDone);
        }
    }
    void serveFor(double seconds)
    {
        runtime.after(seconds, [this] { runtime.stop(); });
        runtime.run();
    }

    NetworkBed bed; ///< first: threads belong to the network in which they were started
    AsioRuntime runtime;
    std::deque<Worker> workers;
};

/// The daemon's collectors on this machine, in a network of their own.
class DaemonBedTest : public TrafficBedTest {
protected:
    /// What the interfaces carried since the test set `before`, in both directions.
    double carried() const
    {
        const auto now = NetworkBed::carried();
        return now.first - before.first + now.second - before.second;
    }
    static double accountedFor(const TrafficAccount& total)
    {
        return total.processes.linkBytes + total.kernel.linkBytes + total.unattributed.linkBytes;
    }

    TemporaryTree files;
    NotificationCenter notifications;
    Log log;
    std::unique_ptr<Host> host = makeLinuxHost(runtime);
    Context context{runtime, *host, notifications, log, Paths::underRoot(files.root())};
    ProcessStatCollector captured{context}; ///< what the capture gives to whom
    PacketStatCollector packets{context, captured};
    std::pair<double, double> before;
};

} // namespace meridal::test
