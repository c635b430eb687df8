// SPDX-License-Identifier: Apache-2.0
// The libc's calls for sockets, which are the kernel's own for all but sockets to the control.
#include "simulated/mac/StatisticsControl.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <sys/kern_control.h>
#include <sys/sys_domain.h>

#include "simulated/mac/Kernel.h"
#include "simulated/mac/Ledger.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <utility>

namespace meridal::test {

namespace {

constexpr std::uint32_t controlIdentifier = 4;

bool isControl(int descriptor) { return StatisticsControl::current().ends.contains(descriptor); }

/// Of a descriptor that was closed there is no other end.
bool hasOtherEnd(int end)
{
    char none = 0;
    return ::syscall(SYS_recvfrom, end, &none, sizeof none, MSG_DONTWAIT | MSG_PEEK, nullptr, nullptr) != 0;
}

} // namespace

StatisticsControl& StatisticsControl::current()
{
    static StatisticsControl control;
    return control;
}

void StatisticsControl::say(Bytes message)
{
    if (waiting.size() < room) {
        waiting.push_back(std::move(message));
    }
}

std::vector<int> StatisticsControl::open()
{
    std::vector<int> left;
    std::erase_if(ends, [&left](const auto& each) {
        const bool isOpen = hasOtherEnd(each.second);
        if (isOpen) {
            left.push_back(each.first);
        } else {
            ::close(each.second);
        }
        return !isOpen;
    });
    return left;
}

void StatisticsControl::reset()
{
    if (!open().empty()) {
        Ledger::misuse("a socket to the statistics was not closed");
    }
    *this = {};
}

} // namespace meridal::test

using namespace meridal::test;

extern "C" {

int socket(int domain, int type, int protocol) noexcept
{
    if (domain != PF_SYSTEM) {
        return static_cast<int>(::syscall(SYS_socket, domain, type, protocol));
    }
    std::array<int, 2> pair{};
    if (const auto fault = Ledger::current().call("socket");
        fault || protocol != SYSPROTO_CONTROL || (type & SOCK_DGRAM) == 0) {
        return refuseWith(fault.value_or(EPROTONOSUPPORT));
    }
    StatisticsControl::current().open(); // a descriptor's number may be that of one that was closed
    ::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair.data());
    StatisticsControl::current().ends[pair[0]] = pair[1];
    return pair[0];
}

int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request != CTLIOCGINFO || !isControl(descriptor)) {
        return static_cast<int>(::syscall(SYS_ioctl, descriptor, request, argument));
    }
    auto& info = *static_cast<ctl_info*>(argument);
    const auto fault = Ledger::current().call("ioctl");
    if (fault || std::strcmp(info.ctl_name, "com.apple.network.statistics") != 0) {
        return refuseWith(fault.value_or(ENOENT));
    }
    info.ctl_id = controlIdentifier;
    return 0;
}

int connect(int descriptor, const sockaddr* address, socklen_t size)
{
    if (!isControl(descriptor)) {
        return static_cast<int>(::syscall(SYS_connect, descriptor, address, size));
    }
    sockaddr_ctl wanted{};
    std::memcpy(&wanted, address, std::min<std::size_t>(size, sizeof wanted));
    const bool isRight = wanted.sc_len == sizeof wanted && wanted.sc_family == AF_SYSTEM
        && wanted.ss_sysaddr == AF_SYS_CONTROL && wanted.sc_id == controlIdentifier;
    const auto fault = Ledger::current().call("connect");
    return fault || !isRight ? refuseWith(fault.value_or(EINVAL)) : 0;
}

ssize_t send(int descriptor, const void* bytes, std::size_t size, int flags)
{
    if (!isControl(descriptor)) {
        return ::syscall(SYS_sendto, descriptor, bytes, size, flags, nullptr, 0);
    }
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    if (const auto& answer = StatisticsControl::current().answer) {
        answer({first, first + size});
    }
    return static_cast<ssize_t>(size);
}

ssize_t recv(int descriptor, void* bytes, std::size_t size, int flags)
{
    if (!isControl(descriptor)) {
        return ::syscall(SYS_recvfrom, descriptor, bytes, size, flags, nullptr, nullptr);
    }
    auto& waiting = StatisticsControl::current().waiting;
    if (waiting.empty()) {
        if ((::fcntl(descriptor, F_GETFL) & O_NONBLOCK) == 0) {
            Ledger::misuse("a message is waited for that may never come");
        }
        return refuseWith(EAGAIN);
    }
    const StatisticsControl::Bytes message = std::move(waiting.front());
    waiting.pop_front();
    const std::size_t taken = std::min(size, message.size());
    std::memcpy(bytes, message.data(), taken);
    return static_cast<ssize_t>(taken);
}

#ifdef MERIDAL_NEEDS_STRLCPY
std::size_t strlcpy(char* to, const char* from, std::size_t size)
{
    const std::size_t length = std::strlen(from);
    if (size > 0) {
        const std::size_t copied = std::min(length, size - 1);
        std::memcpy(to, from, copied);
        to[copied] = '\0';
    }
    return length;
}
#endif
}
