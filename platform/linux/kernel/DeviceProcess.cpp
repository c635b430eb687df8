// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/DeviceProcess.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace meridal {

namespace {

// The child comes from a process with threads: it may call nothing that takes a lock or memory. What runs in it is in
// this part of the file, and ends in _exit.

constexpr unsigned commandTimeout = 20'000; ///< ms, of the kernel's own patience with the device
constexpr int channelInChild = 3;
constexpr std::uint32_t suggestsSense = 8; ///< driver status: sense data is there; no failure by itself

void sendScsi(int device, DeviceCommand& command, DeviceAnswer& answer)
{
    sg_io_hdr_t request{};
    request.interface_id = 'S';
    request.cmd_len = static_cast<unsigned char>(command.cdbLength);
    request.cmdp = command.cdb.data();
    request.mx_sb_len = static_cast<unsigned char>(answer.sense.size());
    request.sbp = answer.sense.data();
    request.dxfer_direction = command.dataLength > 0 ? SG_DXFER_FROM_DEV : SG_DXFER_NONE;
    request.dxfer_len = command.dataLength;
    request.dxferp = answer.data.data();
    request.timeout = commandTimeout;
    if (::ioctl(device, SG_IO, &request) < 0) {
        answer.error = errno;
        return;
    }
    answer.status = request.status;
    answer.transport = request.host_status | (request.driver_status & ~suggestsSense);
    answer.missing = static_cast<std::uint32_t>(std::max(request.resid, 0));
    answer.senseLength = request.sb_len_wr;
}

void sendNvme(int device, const DeviceCommand& command, DeviceAnswer& answer)
{
    nvme_admin_cmd request{};
    request.opcode = static_cast<__u8>(command.opcode);
    request.nsid = command.namespaceID;
    request.addr = reinterpret_cast<std::uintptr_t>(answer.data.data());
    request.data_len = command.dataLength;
    request.cdw10 = command.cdw10;
    request.timeout_ms = commandTimeout;
    const int result = ::ioctl(device, NVME_IOCTL_ADMIN_CMD, &request);
    answer.error = result < 0 ? errno : 0;
    answer.status = result > 0 ? static_cast<std::uint32_t>(result) : 0;
}

void sendHid(int device, const DeviceCommand& command, DeviceAnswer& answer)
{
    // HIDIOCGFEATURE and HIDIOCGINPUT; the headers have the latter since Linux 5.11, older kernels refuse it.
    const unsigned number = command.kind == DeviceCommand::Kind::HIDFeature ? 0x07 : 0x0A;
    answer.data[0] = static_cast<std::uint8_t>(command.report);
    const int length =
        ::ioctl(device, _IOC(_IOC_WRITE | _IOC_READ, 'H', number, command.dataLength), answer.data.data());
    answer.error = length < 0 ? errno : 0;
    answer.missing = command.dataLength - std::min(command.dataLength, static_cast<std::uint32_t>(std::max(length, 0)));
}

void closeAllBut(int channel)
{
    ::dup2(channel, channelInChild);
    constexpr int first = channelInChild + 1;
#ifdef SYS_close_range
    if (::syscall(SYS_close_range, static_cast<unsigned>(first), ~0U, 0U) == 0) {
        return;
    }
#endif
    constexpr int mostDescriptors = 65'536; // an older kernel: each one, as far as one may have got
    for (int descriptor = first; descriptor < mostDescriptors; ++descriptor) {
        ::close(descriptor);
    }
}

[[noreturn]] void serveDevice(int channel, const char* node, pid_t parent)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        ::_exit(0);
    }
    // The sockets of clients and the instance's lock must not live on in a child that hangs.
    closeAllBut(channel);
    const int device = ::open(node, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const int failure = device < 0 ? errno : 0;
    static DeviceCommand command;
    static DeviceAnswer answer;
    while (::recv(channelInChild, &command, sizeof command, 0) == static_cast<ssize_t>(sizeof command)) {
        answer = {};
        if (device < 0) {
            answer.error = failure;
        } else if (command.kind == DeviceCommand::Kind::SCSI) {
            sendScsi(device, command, answer);
        } else if (command.kind == DeviceCommand::Kind::NVMe) {
            sendNvme(device, command, answer);
        } else {
            sendHid(device, command, answer);
        }
        if (::send(channelInChild, &answer, sizeof answer, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof answer)) {
            break;
        }
    }
    ::_exit(0);
}

/// Keeps signals away from a child until it has ended: their handlers belong to the parent.
class BlockedSignals {
public:
    BlockedSignals()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t before_{};
};

template <typename Call>
ssize_t again(Call call)
{
    ssize_t result = -1;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

} // namespace

bool DeviceProcess::start()
{
    int ends[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) < 0) {
        return false;
    }
    Descriptor ours(ends[0]);
    const Descriptor theirs(ends[1]);
    const pid_t parent = ::getpid();
    const BlockedSignals blocked;
    child_ = ::fork();
    if (child_ == 0) {
        serveDevice(theirs.get(), node_.c_str(), parent);
    }
    if (child_ > 0) {
        channel_ = std::move(ours);
    }
    return child_ > 0;
}

DeviceAnswer DeviceProcess::run(const DeviceCommand& command)
{
    DeviceAnswer answer;
    answer.error = -1;
    if (command.dataLength > answer.data.size() || (child_ < 0 && !start())) {
        return answer;
    }
    const auto sent = again([&] { return ::send(channel_.get(), &command, sizeof command, MSG_NOSIGNAL); });
    const auto got = sent < 0 ? sent : again([&] { return ::recv(channel_.get(), &answer, sizeof answer, 0); });
    if (got != static_cast<ssize_t>(sizeof answer)) {
        stop(); // it has gone; the next command gets a new one
        answer = {};
        answer.error = -1;
    }
    return answer;
}

void DeviceProcess::stop()
{
    if (child_ > 0) {
        channel_ = Descriptor(); // its sign to leave
        again([this] { return ::waitpid(child_, nullptr, 0); });
        child_ = -1;
    }
}

} // namespace meridal
