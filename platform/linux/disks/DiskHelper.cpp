// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/disks/DiskHelper.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace meridal {

namespace {

constexpr const char* helperName = "meridal-disks";

Descriptor connectedTo(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return {};
    }
    std::memcpy(address.sun_path, path.c_str(), path.size());
    Descriptor connection(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const bool isThere =
        connection && ::connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    return isThere ? std::move(connection) : Descriptor();
}

} // namespace

bool DiskHelperPlace::isThere() const
{
    return socket.empty() ? !findHelperProgram(helperName).empty() : ::access(socket.c_str(), F_OK) == 0;
}

DiskReply DiskHelper::ask(DiskRequest request)
{
    if (channel() < 0 && !begin()) {
        return {.error = EACCES};
    }
    const int failure = number_ ? 0 : find();
    if (failure != 0) {
        stop();
        return {.error = failure};
    }
    request.disk = number_.value_or(0);
    auto reply = say(request);
    if (!reply) {
        stop();
    }
    return reply ? *std::move(reply) : DiskReply{.error = EPIPE};
}

bool DiskHelper::begin()
{
    if (!place_.socket.empty()) {
        connection_ = connectedTo(place_.socket);
        return static_cast<bool>(connection_);
    }
    const auto program = findHelperProgram(helperName);
    return !program.empty() && process_.start(program, {"--root", place_.root.string()});
}

int DiskHelper::find()
{
    std::uint32_t count = 1;
    for (std::uint32_t number = 0; number < count; ++number) {
        const auto reply = say({.verb = DiskVerb::List, .disk = number});
        if (!reply) {
            return EPIPE;
        }
        count = reply->count;
        if (reply->path == path_) {
            number_ = number;
            return 0;
        }
    }
    return ENODEV;
}

std::optional<DiskReply> DiskHelper::say(const DiskRequest& request) const
{
    const DiskRequestBytes question = encode(request);
    DiskReplyBytes answer;
    const auto size = exchange(channel(), question.data(), question.size(), answer.data(), answer.size());
    return size == answer.size() ? decodeDiskReply(answer, request) : std::nullopt;
}

void DiskHelper::stop()
{
    process_.stop();
    connection_ = Descriptor();
    number_.reset();
}

} // namespace meridal
