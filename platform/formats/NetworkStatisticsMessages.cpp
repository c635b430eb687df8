// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/NetworkStatisticsMessages.h"

#include <algorithm>
#include <array>
#include <tuple>

namespace meridal {

namespace {

using MessageBytes = std::span<const std::uint8_t>;

constexpr std::size_t messageHeader = 16; ///< context 8, type 4, length 2, flags 2 (the last two zero until 10.10)
constexpr std::size_t sourceAt = 16;
constexpr std::uint64_t requireSourceAdded = 0x200000;
constexpr std::uint8_t protocolTcp = 6;
constexpr std::uint8_t protocolUdp = 17;
constexpr std::uint32_t providerQuic = 8; ///< of programs that bring QUIC themselves; described as TCP is

/// A descriptor of one protocol inside a description.
struct DescriptorLayout {
    std::size_t pid;
    std::size_t local; ///< a socket address, its port big-endian 2 bytes in
};

/// Where the fields of one release lie. Sizes are those of whole messages.
struct ReleaseLayout {
    std::size_t sourceBytes; ///< of a source's number: 4 or 8
    std::size_t addAllSize;
    std::size_t addAllProvider;
    std::size_t addAllFilter; ///< 0 = there is none, or it stays empty
    std::size_t requestSize;
    std::size_t addedSize;
    std::size_t addedSource;
    std::size_t descriptionProvider;
    std::size_t descriptionData;
    std::size_t countsSize;
    std::size_t counts;
    DescriptorLayout tcp;
    DescriptorLayout udp;
};

const ReleaseLayout& layoutOfRelease(StatisticsFormat format)
{
    static constexpr std::array<ReleaseLayout, 7> layouts = {{
        {4, 20, 16, 0, 20, 24, 20, 20, 24, 132, 20, {124, 0}, {80, 0}},
        {4, 28, 16, 0, 20, 24, 20, 20, 24, 132, 20, {124, 0}, {80, 0}},
        {8, 56, 16, 20, 24, 28, 20, 32, 36, 144, 32, {124, 0}, {80, 0}},
        {8, 56, 32, 16, 24, 32, 16, 32, 40, 144, 32, {100, 108}, {128, 56}},
        {8, 56, 32, 16, 24, 32, 16, 32, 40, 144, 32, {100, 108}, {128, 56}},
        {8, 56, 32, 16, 24, 32, 16, 32, 40, 144, 32, {116, 124}, {128, 56}},
        {8, 56, 32, 16, 24, 32, 16, 32, 40, 144, 32, {116, 124}, {128, 56}},
    }};
    return layouts.at(static_cast<std::size_t>(format));
}

std::uint64_t messageField(MessageBytes bytes, std::size_t at, std::size_t count)
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value |= std::uint64_t{bytes[at + i]} << (8 * i);
    }
    return value;
}

void putMessageField(std::span<std::uint8_t> bytes, std::size_t at, std::size_t count, std::uint64_t value)
{
    for (std::size_t i = 0; i < count; ++i) {
        bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

bool tellsLength(StatisticsFormat format) { return format != StatisticsFormat::Release10_10; }

/// An empty request with its header.
void beginRequest(StatisticsFormat format, StatisticsType type, std::uint64_t context, std::size_t size,
    std::vector<std::uint8_t>& request)
{
    request.assign(size, 0);
    putMessageField(request, 0, 8, context);
    putMessageField(request, 8, 4, static_cast<std::uint32_t>(type));
    if (format >= StatisticsFormat::Release10_12) {
        putMessageField(request, 12, 2, size);
    }
}

std::optional<SourceDescription> parseDescription(StatisticsFormat format, MessageBytes message)
{
    const ReleaseLayout& layout = layoutOfRelease(format);
    SourceDescription description;
    const auto provider = static_cast<std::uint32_t>(messageField(message, layout.descriptionProvider, 4));
    description.protocol = protocolOfProvider(format, provider);
    if (description.protocol == 0) {
        return std::nullopt;
    }
    // A later release may append fields, but the ones that are read have to be there.
    const bool isAsTcp = description.protocol == protocolTcp || provider == providerQuic;
    const DescriptorLayout& descriptor = isAsTcp ? layout.tcp : layout.udp;
    const MessageBytes data = message.subspan(layout.descriptionData);
    if (data.size() < std::max(descriptor.pid, descriptor.local) + 4) {
        return std::nullopt;
    }
    description.pid = static_cast<std::int32_t>(messageField(data, descriptor.pid, 4));
    description.localPort = static_cast<std::uint16_t>(data[descriptor.local + 2] << 8 | data[descriptor.local + 3]);
    return description;
}

} // namespace

StatisticsFormat statisticsFormatOf(const SystemRelease& release)
{
    const auto isAtLeast = [&](int major, int minor) {
        return std::tie(release.major, release.minor) >= std::tie(major, minor);
    };
    using enum StatisticsFormat;
    return isAtLeast(14, 0) ? Release14
        // 11 calls itself 10.16 to programs that were built for older systems
        : isAtLeast(10, 16) ? Release11
        : isAtLeast(10, 15) ? Release10_15
        : isAtLeast(10, 13) ? Release10_13
        : isAtLeast(10, 12) ? Release10_12
        : isAtLeast(10, 11) ? Release10_11
                            : Release10_10;
}

std::span<const std::uint32_t> statisticsProviders(StatisticsFormat format)
{
    static constexpr std::array<std::uint32_t, 2> old = {3, 2};
    // TCP, then UDP; of programs, then the kernel's
    static constexpr std::array<std::uint32_t, 5> current = {3, 2, 5, 4, providerQuic};
    if (format < StatisticsFormat::Release10_12) {
        return old;
    }
    return std::span(current).first(format < StatisticsFormat::Release10_15 ? 4 : 5);
}

std::uint8_t protocolOfProvider(StatisticsFormat format, std::uint32_t provider)
{
    if (format < StatisticsFormat::Release10_12) {
        return provider == 2 ? protocolTcp : provider == 3 ? protocolUdp : std::uint8_t{0};
    }
    const bool isQuic = provider == providerQuic && format >= StatisticsFormat::Release10_15;
    return provider == 2 || provider == 3          ? protocolTcp
        : provider == 4 || provider == 5 || isQuic ? protocolUdp
                                                   : std::uint8_t{0};
}

std::vector<std::uint8_t> encodeAddAllSources(StatisticsFormat format, std::uint32_t provider)
{
    const ReleaseLayout& layout = layoutOfRelease(format);
    std::vector<std::uint8_t> request;
    beginRequest(format, StatisticsType::AddAllSources, provider, layout.addAllSize, request); // the context comes back
    if (layout.addAllFilter != 0) {
        putMessageField(request, layout.addAllFilter, 8, requireSourceAdded);
    }
    putMessageField(request, layout.addAllProvider, 4, provider);
    return request;
}

void encodeSourceRequest(StatisticsFormat format, StatisticsType type, std::uint64_t context, std::uint64_t source,
    std::vector<std::uint8_t>& into)
{
    const ReleaseLayout& layout = layoutOfRelease(format);
    beginRequest(format, type, context, layout.requestSize, into);
    putMessageField(into, sourceAt, layout.sourceBytes, source);
}

std::optional<StatisticsMessage> StatisticsMessages::next()
{
    while (rest_.size() >= messageHeader) {
        std::size_t length = rest_.size();
        if (tellsLength(format_)) {
            const auto told = static_cast<std::size_t>(messageField(rest_, 12, 2));
            // One that lies about its length, or tells none, is the last one of the read.
            length = told >= messageHeader && told <= rest_.size() ? told : rest_.size();
        }
        const MessageBytes message = rest_.first(length);
        rest_ = rest_.subspan(length);
        if (auto parsed = parse(message)) {
            return parsed;
        }
    }
    return std::nullopt;
}

std::optional<StatisticsMessage> StatisticsMessages::parse(MessageBytes bytes) const
{
    const ReleaseLayout& layout = layoutOfRelease(format_);
    StatisticsMessage message;
    message.type = static_cast<StatisticsType>(messageField(bytes, 8, 4));
    switch (message.type) {
    case StatisticsType::SourceAdded:
        if (bytes.size() < layout.addedSize) {
            return std::nullopt;
        }
        message.source = messageField(bytes, layout.addedSource, layout.sourceBytes);
        break;
    case StatisticsType::SourceRemoved:
        if (bytes.size() < sourceAt + layout.sourceBytes) {
            return std::nullopt;
        }
        message.source = messageField(bytes, sourceAt, layout.sourceBytes);
        break;
    case StatisticsType::SourceDescription:
        if (bytes.size() < layout.descriptionData) {
            return std::nullopt;
        }
        message.source = messageField(bytes, sourceAt, layout.sourceBytes);
        message.description = parseDescription(format_, bytes);
        break;
    case StatisticsType::SourceCounts:
        if (bytes.size() < layout.countsSize) {
            return std::nullopt;
        }
        message.source = messageField(bytes, sourceAt, layout.sourceBytes);
        message.counts = {messageField(bytes, layout.counts + 8, 8), messageField(bytes, layout.counts + 24, 8)};
        break;
    default:
        break;
    }
    return message;
}

} // namespace meridal
