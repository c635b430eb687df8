#pragma once

#include "platform/linux/Descriptor.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
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

inline sockaddr_in6 end(const std::string& address, std::uint16_t port)
{
    sockaddr_in6 result{};
    result.sin6_family = AF_INET6;
    result.sin6_port = htons(port);
    const std::string written = address.find(':') == std::string::npos ? "::ffff:" + address : address;
    ::inet_pton(AF_INET6, written.c_str(), &result.sin6_addr);
    return result;
}

inline Descriptor socketTo(int type, const std::string& address, std::uint16_t port)
{
    // A socket of the address's own family: programs use both.
    const bool isIPv6 = address.find(':') != std::string::npos;
    Descriptor result(::socket(isIPv6 ? AF_INET6 : AF_INET, type | SOCK_CLOEXEC, 0));
    const sockaddr_in6 to6 = end(address, port);
    sockaddr_in to4{};
    to4.sin_family = AF_INET;
    to4.sin_port = htons(port);
    ::inet_pton(AF_INET, address.c_str(), &to4.sin_addr);
    const bool connected = isIPv6 ? ::connect(result.get(), reinterpret_cast<const sockaddr*>(&to6), sizeof(to6)) == 0
                                  : ::connect(result.get(), reinterpret_cast<const sockaddr*>(&to4), sizeof(to4)) == 0;
    return connected ? std::move(result) : Descriptor();
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

/// Ends when nothing came for a second: its queue may have run over.
inline void udpReceive(const std::string& address, std::uint64_t datagrams, std::size_t size)
{
    static Descriptor socket;
    socket = socketTo(SOCK_DGRAM, address, udpSource);
    const timeval patience{.tv_sec = 1, .tv_usec = 0};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    const Question question{datagrams, size};
    ::send(socket.get(), &question, sizeof(question), 0);
    receiveBytes(socket.get(), datagrams * size);
}

/// A process that takes a step each time it is told to, and lives until it is killed.
class Worker {
public:
    explicit Worker(std::vector<std::function<void()>> steps)
    {
        int go[2];
        int done[2];
        if (::pipe2(go, O_CLOEXEC) != 0 || ::pipe2(done, O_CLOEXEC) != 0) {
            std::abort();
        }
        go_ = Descriptor(go[1]);
        done_ = Descriptor(done[0]);
        const Descriptor goHere(go[0]);
        const Descriptor doneHere(done[1]);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::signal(SIGPIPE, SIG_DFL);
            go_ = {};
            char letter = 0;
            for (const auto& step : steps) {
                if (::read(goHere.get(), &letter, 1) == 1) {
                    step();
                    static_cast<void>(!::write(doneHere.get(), &letter, 1));
                }
            }
            while (true) {
                ::pause();
            }
        }
    }
    ~Worker()
    {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    std::int32_t pid() const { return pid_; }
    void go() { static_cast<void>(!::write(go_.get(), "g", 1)); }
    /// Until a step has ended; false when none does within a minute.
    bool wait() const
    {
        pollfd state{done_.get(), POLLIN, 0};
        char letter = 0;
        return ::poll(&state, 1, 60'000) == 1 && ::read(done_.get(), &letter, 1) == 1;
    }
    /// Whether a step has ended since this was last true. Does not wait.
    bool isDone() const
    {
        pollfd state{done_.get(), POLLIN, 0};
        char letter = 0;
        return ::poll(&state, 1, 0) == 1 && ::read(done_.get(), &letter, 1) == 1;
    }

private:
    pid_t pid_ = -1;
    Descriptor go_;
    Descriptor done_;
};

/// Two network namespaces with a veth pair between them: the test's own thread is in the one, with the interface m0; a
/// process that serves is in the other, with p0.
class NetworkBed {
public:
    NetworkBed()
    {
        if (::geteuid() != 0) {
            why_ = "network namespaces need root";
            return;
        }
        before_ = Descriptor(::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
        if (::unshare(CLONE_NEWNET) != 0) {
            why_ = std::string("no network namespace: ") + std::strerror(errno);
            before_ = {};
            return;
        }
        peer_ = std::make_unique<Worker>(
            std::vector<std::function<void()>>{[] { ::unshare(CLONE_NEWNET); }, [] { configure("p0", 2); }, serve});
        take(*peer_);
        run("ip link add m0 type veth peer name p0 netns " + std::to_string(peer_->pid()));
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
    ~NetworkBed()
    {
        if (before_) {
            ::setns(before_.get(), CLONE_NEWNET);
        }
    }
    NetworkBed(const NetworkBed&) = delete;
    NetworkBed& operator=(const NetworkBed&) = delete;

    /// Why there is none; empty when it is ready.
    const std::string& unavailable() const { return why_; }
    static void run(const std::string& command)
    {
        static_cast<void>(!std::system(("exec 2>/dev/null; " + command).c_str()));
    }

    /// Received and sent bytes of an interface, as it counts them itself.
    static std::pair<std::uint64_t, std::uint64_t> counters(const std::string& interface)
    {
        std::ifstream file("/proc/thread-self/net/dev");
        for (std::string line; std::getline(file, line);) {
            std::replace(line.begin(), line.end(), ':', ' ');
            std::istringstream words(line);
            std::string name;
            std::uint64_t received = 0;
            std::uint64_t skipped = 0;
            std::uint64_t sent = 0;
            if (words >> name && name == interface && words >> received) {
                for (int i = 0; i < 7; ++i) {
                    words >> skipped;
                }
                words >> sent;
                return {received, sent};
            }
        }
        return {};
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
        while (!worker.isDone()) {
            ::poll(nullptr, 0, 5);
        }
    }

    static Descriptor bound(int type, std::uint16_t port)
    {
        Descriptor socket(::socket(AF_INET6, type, 0));
        const int on = 1;
        ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        const sockaddr_in6 any = end("::", port);
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&any), sizeof(any));
        if (type == SOCK_STREAM) {
            ::listen(socket.get(), 100);
        }
        return socket;
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

    std::string why_;
    Descriptor before_;
    std::unique_ptr<Worker> peer_;
};

} // namespace meridal::test
