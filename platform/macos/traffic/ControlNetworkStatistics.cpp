// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/traffic/MacAdapters.h"

#include "base/Runtime.h"
#include "platform/formats/NetworkStatisticsSources.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/sys_domain.h>
#include <unistd.h>

#include <sys/kern_control.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <span>
#include <string>
#include <utility>

namespace meridal {

namespace {

static_assert(sizeof(ctl_info) == 100 && sizeof(ctl_info::ctl_name) == 96 && sizeof(sockaddr_ctl) == 32);
static_assert(PF_SYSTEM == 32 && SYSPROTO_CONTROL == 2 && AF_SYS_CONTROL == 2 && CTLIOCGINFO == 0xC0644E03);

constexpr const char* controlName = "com.apple.network.statistics";
constexpr int receiveBytes = 1 << 20; ///< what the control gives by itself holds few answers

/// Owns the socket.
class ControlSocket {
public:
    ControlSocket() : number_(::socket(PF_SYSTEM, SOCK_DGRAM, SYSPROTO_CONTROL)) { }
    ControlSocket(ControlSocket&& other) noexcept : number_(std::exchange(other.number_, -1)) { }
    ControlSocket& operator=(ControlSocket&&) = delete;
    ~ControlSocket()
    {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    int get() const { return number_; }

private:
    int number_;
};

Unexpected failure(const char* call)
{
    const int error = errno;
    const bool isDenied = error == EPERM || error == EACCES;
    return unexpected(
        isDenied ? ErrorCode::NotPermitted : ErrorCode::Unavailable, std::string(call) + ": " + std::strerror(error));
}

Result<ControlSocket> createSocket()
{
    ControlSocket socket;
    if (socket.get() < 0) {
        return failure("socket(PF_SYSTEM)");
    }
    ctl_info control{};
    ::strlcpy(control.ctl_name, controlName, sizeof(control.ctl_name));
    if (::ioctl(socket.get(), CTLIOCGINFO, &control) != 0) {
        return failure("ioctl(CTLIOCGINFO)");
    }
    sockaddr_ctl address{};
    address.sc_len = sizeof(address);
    address.sc_family = AF_SYSTEM;
    address.ss_sysaddr = AF_SYS_CONTROL;
    address.sc_id = control.ctl_id;
    address.sc_unit = 0;
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        const Unexpected failed = failure("connect(AF_SYS_CONTROL)");
        std::fprintf(stderr, "%s\n", failed.error.message.c_str());
        return failed;
    }
    // Adding all sources brings an answer for each of them within one write. Where this is refused, some are lost.
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &receiveBytes, sizeof(receiveBytes));
    ::fcntl(socket.get(), F_SETFL, O_NONBLOCK);
    ::fcntl(socket.get(), F_SETFD, FD_CLOEXEC);
    return socket;
}

class ControlCounting final : public NetworkStatistics::Counting {
public:
    ControlCounting(Runtime& runtime, ControlSocket socket, StatisticsFormat format)
        : runtime_(runtime)
        , socket_(std::move(socket))
        , sources_(format, [this](std::span<const std::uint8_t> request) { write(request); })
    {
        watch_ = runtime.watchReadable(socket_.get(), [this] { drain(); });
        sources_.subscribe(runtime.monotonicTime());
    }

    std::span<const CountedConnection> read() override { return sources_.read(); }

private:
    void write(std::span<const std::uint8_t> request)
    {
        // The kernel writes its answer while it takes the request, and drops it when there is no room: never let
        // answers pile up. A question about one source that could not be sent is asked again at the next reading.
        ::send(socket_.get(), request.data(), request.size(), 0);
        drain();
    }

    void drain()
    {
        std::array<std::uint8_t, 2048> bytes;
        ssize_t size = 0;
        while ((size = ::recv(socket_.get(), bytes.data(), bytes.size(), 0)) > 0) {
            sources_.received({bytes.data(), static_cast<std::size_t>(size)}, runtime_.monotonicTime());
        }
    }

    Runtime& runtime_;
    ControlSocket socket_;
    StatisticsSources sources_;
    std::unique_ptr<Watch> watch_;
};

class ControlNetworkStatistics final : public NetworkStatistics {
public:
    ControlNetworkStatistics(Runtime& runtime, StatisticsFormat format) : runtime_(runtime), format_(format) { }

    Result<std::unique_ptr<Counting>> start() override
    {
        auto socket = createSocket();
        if (!socket) {
            return unexpected(socket.error().code, socket.error().message);
        }
        return std::unique_ptr<Counting>(std::make_unique<ControlCounting>(runtime_, std::move(*socket), format_));
    }
    bool knowsEveryConnection() const override { return true; }

private:
    Runtime& runtime_;
    StatisticsFormat format_;
};

} // namespace

std::unique_ptr<NetworkStatistics> makeControlNetworkStatistics(Runtime& runtime, const SystemRelease& release)
{
    return std::make_unique<ControlNetworkStatistics>(runtime, statisticsFormatOf(release));
}

} // namespace meridal
