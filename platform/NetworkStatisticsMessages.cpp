#include "platform/NetworkStatisticsMessages.h"

#include <algorithm>
#include <array>
#include <tuple>

namespace meridal {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t headerSize = 16; ///< context 8, type 4, length 2, flags 2 (the last two zero until 10.10)
constexpr std::size_t sourceAt = 16;
constexpr std::uint64_t requireSourceAdded = 0x200000;

/// A descriptor of one protocol inside a description.
struct DescriptorLayout {
    std::size_t size;
    std::size_t pid;
    std::size_t local; ///< a socket address, its port big-endian 2 bytes in
    std::size_t foreign;
    std::size_t interface;
};

/// Where the fields of one release lie. Sizes are those of whole messages.
struct Layout {
    std::size_t sourceBytes; ///< of a source's number: 4 or 8
    std::size_t addAllSize;
    std::size_t addAllProvider;
    std::size_t addAllFilter; ///< 0 = there is none, or it stays empty
    std::size_t requestSize;
    std::size_t addedSize;
    std::size_t addedSource;
    std::size_t addedProvider;
    std::size_t removedSize;
    std::size_t descriptionProvider;
    std::size_t descriptionData;
    std::size_t countsSize;
    std::size_t counts;
    DescriptorLayout tcp;
    DescriptorLayout udp;
};

const Layout& layoutOf(StatisticsFormat format)
{
    static constexpr std::array<Layout, 6> layouts = {{
        {4, 20, 16, 0, 20, 24, 20, 16, 20, 20, 24, 132, 20, {252, 124, 0, 28, 56}, {208, 80, 0, 28, 56}},
        {4, 28, 16, 0, 20, 24, 20, 16, 20, 20, 24, 132, 20, {260, 124, 0, 28, 56}, {212, 80, 0, 28, 56}},
        {8, 56, 16, 20, 24, 28, 20, 16, 24, 32, 36, 144, 32, {260, 124, 0, 28, 56}, {212, 80, 0, 28, 56}},
        {8, 56, 32, 16, 24, 32, 16, 24, 24, 32, 40, 144, 32, {304, 100, 108, 136, 56}, {256, 128, 56, 84, 112}},
        {8, 56, 32, 16, 24, 32, 16, 24, 24, 32, 40, 144, 32, {336, 116, 124, 152, 72}, {272, 128, 56, 84, 112}},
        {8, 56, 32, 16, 24, 32, 16, 24, 24, 32, 40, 144, 32, {344, 116, 124, 152, 72}, {280, 128, 56, 84, 112}},
    }};
    return layouts.at(static_cast<std::size_t>(format));
}

std::uint64_t get(Bytes bytes, std::size_t at, std::size_t count)
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value |= std::uint64_t{bytes[at + i]} << (8 * i);
    }
    return value;
}

void put(std::span<std::uint8_t> bytes, std::size_t at, std::size_t count, std::uint64_t value)
{
    for (std::size_t i = 0; i < count; ++i) {
        bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

std::uint16_t port(Bytes data, std::size_t address)
{
    return static_cast<std::uint16_t>(data[address + 2] << 8 | data[address + 3]);
}

void putPort(std::span<std::uint8_t> data, std::size_t address, std::uint16_t port)
{
    data[address + 2] = static_cast<std::uint8_t>(port >> 8);
    data[address + 3] = static_cast<std::uint8_t>(port);
}

bool tellsLength(StatisticsFormat format) { return format != StatisticsFormat::Release10_10; }

/// An empty message with its header, at the end of `into`.
std::span<std::uint8_t> begin(StatisticsFormat format, StatisticsType type, std::uint64_t context, std::size_t size,
    std::vector<std::uint8_t>& into)
{
    const std::size_t place = into.size();
    into.resize(place + size);
    const std::span<std::uint8_t> message = std::span(into).subspan(place);
    put(message, 0, 8, context);
    put(message, 8, 4, static_cast<std::uint32_t>(type));
    if (tellsLength(format)) {
        put(message, 12, 2, size);
    }
    return message;
}

const DescriptorLayout* descriptorOf(StatisticsFormat format, std::uint32_t provider)
{
    const Layout& layout = layoutOf(format);
    const std::uint8_t protocol = protocolOfProvider(format, provider);
    return protocol == 6 ? &layout.tcp : protocol == 17 ? &layout.udp : nullptr;
}

std::optional<SourceDescription> parseDescription(StatisticsFormat format, Bytes message)
{
    const Layout& layout = layoutOf(format);
    SourceDescription description;
    description.provider = static_cast<std::uint32_t>(get(message, layout.descriptionProvider, 4));
    const DescriptorLayout* descriptor = descriptorOf(format, description.provider);
    if (!descriptor) {
        return std::nullopt;
    }
    // A later release may append fields, but the ones that are read have to be there.
    const Bytes data = message.subspan(layout.descriptionData);
    const std::size_t wanted = std::max({descriptor->pid, descriptor->interface, descriptor->foreign}) + 4;
    if (data.size() < wanted) {
        return std::nullopt;
    }
    description.pid = static_cast<std::int32_t>(get(data, descriptor->pid, 4));
    description.interface = static_cast<std::uint32_t>(get(data, descriptor->interface, 4));
    description.localPort = port(data, descriptor->local);
    description.foreignPort = port(data, descriptor->foreign);
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
        : isAtLeast(10, 13) ? Release10_13
        : isAtLeast(10, 12) ? Release10_12
        : isAtLeast(10, 11) ? Release10_11
                            : Release10_10;
}

std::span<const std::uint32_t> statisticsProviders(StatisticsFormat format)
{
    static constexpr std::array<std::uint32_t, 2> old = {3, 2};
    static constexpr std::array<std::uint32_t, 4> current = {
        3, 2, 5, 4}; // TCP, then UDP; of programs, then the kernel's
    return format < StatisticsFormat::Release10_12 ? std::span<const std::uint32_t>(old) : current;
}

std::uint8_t protocolOfProvider(StatisticsFormat format, std::uint32_t provider)
{
    constexpr std::uint8_t tcp = 6;
    constexpr std::uint8_t udp = 17;
    if (format < StatisticsFormat::Release10_12) {
        return provider == 2 ? tcp : provider == 3 ? udp : std::uint8_t{0};
    }
    return provider == 2 || provider == 3 ? tcp : provider == 4 || provider == 5 ? udp : std::uint8_t{0};
}

std::vector<std::uint8_t> encodeAddAllSources(StatisticsFormat format, std::uint32_t provider)
{
    const Layout& layout = layoutOf(format);
    std::vector<std::uint8_t> bytes(layout.addAllSize);
    put(bytes, 0, 8, provider); // the context, which comes back with an answer
    put(bytes, 8, 4, static_cast<std::uint32_t>(StatisticsType::AddAllSources));
    if (format >= StatisticsFormat::Release10_12) {
        put(bytes, 12, 2, bytes.size());
    }
    if (layout.addAllFilter != 0) {
        put(bytes, layout.addAllFilter, 8, requireSourceAdded);
    }
    put(bytes, layout.addAllProvider, 4, provider);
    return bytes;
}

void encodeSourceRequest(StatisticsFormat format, StatisticsType type, std::uint64_t context, std::uint64_t source,
    std::vector<std::uint8_t>& into)
{
    const Layout& layout = layoutOf(format);
    into.assign(layout.requestSize, 0);
    put(into, 0, 8, context);
    put(into, 8, 4, static_cast<std::uint32_t>(type));
    if (format >= StatisticsFormat::Release10_12) {
        put(into, 12, 2, into.size());
    }
    put(into, sourceAt, layout.sourceBytes, source);
}

std::optional<StatisticsRequest> parseStatisticsRequest(StatisticsFormat format, Bytes bytes)
{
    const Layout& layout = layoutOf(format);
    if (bytes.size() < headerSize) {
        return std::nullopt;
    }
    StatisticsRequest request;
    request.context = get(bytes, 0, 8);
    request.type = static_cast<StatisticsType>(get(bytes, 8, 4));
    if (request.type == StatisticsType::AddAllSources && bytes.size() >= layout.addAllSize) {
        request.provider = static_cast<std::uint32_t>(get(bytes, layout.addAllProvider, 4));
        return request;
    }
    const bool isAboutSource =
        request.type == StatisticsType::QuerySource || request.type == StatisticsType::GetDescription;
    if (isAboutSource && bytes.size() >= layout.requestSize) {
        request.source = get(bytes, sourceAt, layout.sourceBytes);
        return request;
    }
    return std::nullopt;
}

std::optional<StatisticsMessage> StatisticsMessages::next()
{
    while (rest_.size() >= headerSize) {
        std::size_t length = rest_.size();
        if (tellsLength(format_)) {
            const auto told = static_cast<std::size_t>(get(rest_, 12, 2));
            // One that lies about its length, or tells none, is the last one of the read.
            length = told >= headerSize && told <= rest_.size() ? told : rest_.size();
        }
        const Bytes message = rest_.first(length);
        rest_ = rest_.subspan(length);
        if (auto parsed = parse(message)) {
            return parsed;
        }
    }
    return std::nullopt;
}

std::optional<StatisticsMessage> StatisticsMessages::parse(Bytes bytes) const
{
    const Layout& layout = layoutOf(format_);
    StatisticsMessage message;
    message.context = get(bytes, 0, 8);
    message.type = static_cast<StatisticsType>(get(bytes, 8, 4));
    switch (message.type) {
    case StatisticsType::SourceAdded:
        if (bytes.size() < layout.addedSize) {
            return std::nullopt;
        }
        message.source = get(bytes, layout.addedSource, layout.sourceBytes);
        message.provider = static_cast<std::uint32_t>(get(bytes, layout.addedProvider, 4));
        break;
    case StatisticsType::SourceRemoved:
        if (bytes.size() < layout.removedSize) {
            return std::nullopt;
        }
        message.source = get(bytes, sourceAt, layout.sourceBytes);
        break;
    case StatisticsType::SourceDescription:
        if (bytes.size() < layout.descriptionData) {
            return std::nullopt;
        }
        message.source = get(bytes, sourceAt, layout.sourceBytes);
        message.description = parseDescription(format_, bytes);
        break;
    case StatisticsType::SourceCounts:
        if (bytes.size() < layout.countsSize) {
            return std::nullopt;
        }
        message.source = get(bytes, sourceAt, layout.sourceBytes);
        message.counts = {get(bytes, layout.counts + 8, 8), get(bytes, layout.counts + 24, 8)};
        break;
    default:
        break;
    }
    return message;
}

void encodeSourceAdded(
    StatisticsFormat format, std::uint64_t source, std::uint32_t provider, std::vector<std::uint8_t>& into)
{
    const Layout& layout = layoutOf(format);
    const auto message = begin(format, StatisticsType::SourceAdded, 0, layout.addedSize, into);
    put(message, layout.addedSource, layout.sourceBytes, source);
    put(message, layout.addedProvider, 4, provider);
}

void encodeSourceRemoved(StatisticsFormat format, std::uint64_t source, std::vector<std::uint8_t>& into)
{
    const Layout& layout = layoutOf(format);
    put(begin(format, StatisticsType::SourceRemoved, 0, layout.removedSize, into), sourceAt, layout.sourceBytes,
        source);
}

void encodeSourceDescription(StatisticsFormat format, std::uint64_t context, std::uint64_t source,
    const SourceDescription& description, std::vector<std::uint8_t>& into)
{
    const Layout& layout = layoutOf(format);
    const DescriptorLayout* descriptor = descriptorOf(format, description.provider);
    const std::size_t size = layout.descriptionData + (descriptor ? descriptor->size : 0);
    const auto message = begin(format, StatisticsType::SourceDescription, context, size, into);
    put(message, sourceAt, layout.sourceBytes, source);
    put(message, layout.descriptionProvider, 4, description.provider);
    if (descriptor) {
        const auto data = message.subspan(layout.descriptionData);
        put(data, descriptor->pid, 4, static_cast<std::uint32_t>(description.pid));
        put(data, descriptor->interface, 4, description.interface);
        putPort(data, descriptor->local, description.localPort);
        putPort(data, descriptor->foreign, description.foreignPort);
    }
}

void encodeSourceCounts(StatisticsFormat format, std::uint64_t context, std::uint64_t source,
    const SourceCounts& counts, std::vector<std::uint8_t>& into)
{
    const Layout& layout = layoutOf(format);
    const auto message = begin(format, StatisticsType::SourceCounts, context, layout.countsSize, into);
    put(message, sourceAt, layout.sourceBytes, source);
    put(message, layout.counts + 8, 8, counts.received);
    put(message, layout.counts + 24, 8, counts.sent);
}

} // namespace meridal
