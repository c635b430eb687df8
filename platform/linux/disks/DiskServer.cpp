// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/disks/DiskServer.h"

#include "platform/linux/disks/SysfsDisk.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace meridal {

namespace {

constexpr int mostConversations = 256;
constexpr int refusedStatus = 1; ///< exit status of a conversation in which a device was refused

DiskVerdict verdictOf(std::optional<bool> failing)
{
    return failing ? (*failing ? DiskVerdict::Failing : DiskVerdict::Fine) : DiskVerdict::Unknown;
}

std::optional<SMARTPage> pageOf(DiskReader& reader, DiskPage page)
{
    switch (page) {
    case DiskPage::Data:
        return reader.readData();
    case DiskPage::Thresholds:
        return reader.readThresholds();
    case DiskPage::Health:
        return reader.readHealthLog();
    default:
        return std::nullopt;
    }
}

} // namespace

DiskReply DiskServer::list(std::uint32_t number)
{
    if (number == 0) {
        disks_ = findDisks(root_);
        disks_.resize(std::min<std::size_t>(disks_.size(), mostDisks));
        reader_.reset();
    }
    DiskReply reply{.count = static_cast<std::uint32_t>(disks_.size())};
    if (number < disks_.size()) {
        reply.path = disks_[number].path;
    }
    return reply;
}

DiskReader* DiskServer::reader(std::uint32_t number)
{
    if (number >= disks_.size()) {
        return nullptr;
    }
    if (!reader_ || readerNumber_ != number) {
        reader_ = std::make_unique<DiskReader>(root_, disks_[number]);
        readerNumber_ = number;
    }
    return reader_.get();
}

DiskReply DiskServer::answer(const DiskRequest& request)
{
    if (request.verb == DiskVerb::List) {
        return list(request.disk);
    }
    DiskReader* disk = reader(request.disk);
    const bool isNvme = disk && disks_[request.disk].kind == SMARTKind::NVMe;
    if (!disk || (request.verb == DiskVerb::Page && isNvme != (request.page == DiskPage::Health))) {
        return {.error = disk ? EINVAL : ENODEV};
    }
    if (request.shortCommands) {
        disk->useShortCommands();
    }
    DiskReply reply;
    if (request.verb == DiskVerb::PowerMode) {
        reply.power = disk->powerMode();
    } else if (request.verb == DiskVerb::Identify) {
        reply.page = disk->identify();
    } else if (request.page == DiskPage::Status) {
        reply.verdict = verdictOf(disk->isFailing());
    } else {
        reply.page = pageOf(*disk, request.page);
    }
    reply.error = disk->error();
    reply.shortCommands = disk->usesShortCommands();
    wasRefused_ = wasRefused_ || reply.error == EPERM || reply.error == EACCES;
    return reply;
}

void DiskServer::serve(int channel)
{
    DiskRequestBytes bytes = {};
    while (::recv(channel, bytes.data(), bytes.size(), MSG_TRUNC) == static_cast<ssize_t>(bytes.size())) {
        const auto request = decodeDiskRequest(bytes);
        if (!request) {
            break;
        }
        const DiskReplyBytes reply = encode(answer(*request), *request);
        if (::send(channel, reply.data(), reply.size(), MSG_NOSIGNAL) < 0) {
            break;
        }
    }
}

bool isTrusted(int connection)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && size == sizeof peer
        && (peer.uid == 0 || peer.uid == ::geteuid());
}

// This process touches no device, so it cannot hang; it is small, so a fork of it costs little.
void serveConnections(int listener, const std::filesystem::path& root, int idleSeconds)
{
    int conversations = 0;
    bool wasRefused = false;
    sigset_t childEnded;
    sigset_t before;
    ::sigemptyset(&childEnded);
    ::sigaddset(&childEnded, SIGCHLD);
    ::sigprocmask(SIG_BLOCK, &childEnded, &before);
    struct sigaction wake { };
    wake.sa_handler = [](int) {}; // it only ends the wait, and only there
    ::sigaction(SIGCHLD, &wake, nullptr);
    for (;;) {
        int status = 0;
        while (conversations > 0 && ::waitpid(-1, &status, WNOHANG) > 0) {
            --conversations;
            wasRefused = wasRefused || (WIFEXITED(status) && WEXITSTATUS(status) == refusedStatus);
        }
        pollfd waiting{.fd = listener, .events = POLLIN, .revents = 0};
        constexpr int refusedPatience = 2; // not at once: many disks may be refused, and each would start it again
        const timespec patience{
            .tv_sec = wasRefused ? std::min(refusedPatience, idleSeconds) : idleSeconds, .tv_nsec = 0};
        const int ready = ::ppoll(&waiting, 1, conversations > 0 ? nullptr : &patience, &before);
        if (ready == 0) {
            return;
        }
        const Descriptor connection(ready > 0 ? ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC) : -1);
        if (!connection || conversations >= mostConversations || !isTrusted(connection.get())) {
            continue;
        }
        const pid_t child = ::fork();
        if (child == 0) {
            ::close(listener);
            DiskServer server(root);
            server.serve(connection.get());
            ::_exit(server.wasRefused() ? refusedStatus : 0);
        }
        conversations += child > 0 ? 1 : 0;
    }
}

} // namespace meridal
