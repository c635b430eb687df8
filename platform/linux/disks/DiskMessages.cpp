// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/disks/DiskMessages.h"

#include <algorithm>
#include <cstring>

namespace meridal {

namespace {

// Numbers of 32 bits, as both ends are on one machine in its own order of bytes.
constexpr std::uint32_t requestMark = 0x6D647131; ///< changes with the meaning of what follows
constexpr std::uint32_t replyMark = 0x6D647231;

constexpr std::uint32_t shortCommandsFlag = 2;
constexpr std::uint32_t hasPageFlag = 4;

template <std::size_t Size>
class MessageWriter {
public:
    void number(std::uint32_t value)
    {
        std::memcpy(bytes.data() + at_, &value, sizeof value);
        at_ += sizeof value;
    }
    template <typename Container>
    void rest(const Container& content)
    {
        std::copy(content.begin(), content.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at_));
    }

    std::array<std::uint8_t, Size> bytes = {};

private:
    std::size_t at_ = 0;
};

std::uint32_t numberAt(std::span<const std::uint8_t> bytes, std::size_t place)
{
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + place * sizeof value, sizeof value);
    return value;
}

template <typename Enumeration>
std::uint32_t raw(Enumeration value)
{
    return static_cast<std::uint32_t>(value);
}

} // namespace

DiskRequestBytes encode(const DiskRequest& request)
{
    MessageWriter<diskRequestSize> writer;
    writer.number(requestMark);
    writer.number(raw(request.verb));
    writer.number(request.disk);
    writer.number(raw(request.page));
    writer.number(request.shortCommands ? shortCommandsFlag : 0);
    return writer.bytes;
}

std::optional<DiskRequest> decodeDiskRequest(std::span<const std::uint8_t> bytes)
{
    if (bytes.size() != diskRequestSize || numberAt(bytes, 0) != requestMark || numberAt(bytes, 5) != 0) {
        return std::nullopt;
    }
    const std::uint32_t verb = numberAt(bytes, 1);
    const std::uint32_t disk = numberAt(bytes, 2);
    const std::uint32_t page = numberAt(bytes, 3);
    const std::uint32_t flags = numberAt(bytes, 4);
    const bool wantsPage = verb == raw(DiskVerb::Page);
    const bool isPage = page >= raw(DiskPage::Data) && page <= raw(DiskPage::Health);
    if (verb < raw(DiskVerb::List) || verb > raw(DiskVerb::Identify) || disk >= mostDisks
        || (wantsPage ? !isPage : page != 0) || (flags & ~shortCommandsFlag) != 0) {
        return std::nullopt;
    }
    return DiskRequest{.verb = static_cast<DiskVerb>(verb),
        .disk = disk,
        .page = static_cast<DiskPage>(page),
        .shortCommands = (flags & shortCommandsFlag) != 0};
}

DiskReplyBytes encode(const DiskReply& reply, const DiskRequest& request)
{
    MessageWriter<diskReplySize> writer;
    writer.number(replyMark);
    writer.number(raw(request.verb));
    writer.number(request.disk);
    writer.number(static_cast<std::uint32_t>(reply.error));
    writer.number(reply.count);
    writer.number(raw(reply.power));
    writer.number(raw(reply.verdict));
    writer.number((reply.shortCommands ? shortCommandsFlag : 0) | (reply.page ? hasPageFlag : 0));
    if (reply.page) {
        writer.rest(*reply.page);
    } else if (reply.path.size() < sizeof(SMARTPage)) { // a zero behind it
        writer.rest(reply.path);
    }
    return writer.bytes;
}

std::optional<DiskReply> decodeDiskReply(std::span<const std::uint8_t> bytes, const DiskRequest& request)
{
    if (bytes.size() != diskReplySize || numberAt(bytes, 0) != replyMark || numberAt(bytes, 1) != raw(request.verb)
        || numberAt(bytes, 2) != request.disk) {
        return std::nullopt;
    }
    const std::uint32_t error = numberAt(bytes, 3);
    const std::uint32_t count = numberAt(bytes, 4);
    const std::uint32_t power = numberAt(bytes, 5);
    const std::uint32_t verdict = numberAt(bytes, 6);
    const std::uint32_t flags = numberAt(bytes, 7);
    constexpr std::uint32_t largestError = 4095; // of the kernel's
    if (error > largestError || count > mostDisks || power > raw(DiskPower::Unknown)
        || verdict > raw(DiskVerdict::Failing) || (flags & ~(shortCommandsFlag | hasPageFlag)) != 0) {
        return std::nullopt;
    }
    DiskReply reply{.error = static_cast<std::int32_t>(error),
        .count = count,
        .power = static_cast<DiskPower>(power),
        .verdict = static_cast<DiskVerdict>(verdict),
        .shortCommands = (flags & shortCommandsFlag) != 0,
        .page = {},
        .path = {}};
    const auto rest = bytes.subspan(diskReplySize - sizeof(SMARTPage));
    if ((flags & hasPageFlag) != 0) {
        std::copy(rest.begin(), rest.end(), reply.page.emplace().begin());
    } else {
        const auto end = std::find(rest.begin(), rest.end(), 0);
        if (end == rest.end()) {
            return std::nullopt;
        }
        reply.path.assign(rest.begin(), end);
    }
    return reply;
}

} // namespace meridal
