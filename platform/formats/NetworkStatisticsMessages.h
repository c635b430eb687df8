// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/MachineInfo.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace meridal {

/// The message formats of the kernel's network-statistics control, which changed with its releases and tell themselves
/// apart by nothing but the release. Little-endian. Fields lie as the kernel's own structures have them: packed to 4
/// bytes up to 10.12, aligned naturally from 10.13 on.
enum class StatisticsFormat : std::uint8_t {
    Release10_10,
    Release10_11,
    Release10_12,
    Release10_13, ///< and 10.14
    Release10_15, ///< the same, with a provider of QUIC
    Release11,    ///< to 13
    Release14,    ///< and later
};

StatisticsFormat statisticsFormatOf(const SystemRelease& release);

enum class StatisticsType : std::uint32_t {
    Success = 0,
    Error = 1,
    AddAllSources = 1002,
    QuerySource = 1004,
    GetDescription = 1005,
    SourceAdded = 10001,
    SourceRemoved = 10002,
    SourceDescription = 10003,
    SourceCounts = 10004,
};

/// Sources of one kind. The numbers changed their meaning: 2 was TCP and 3 UDP until 10.11.
std::span<const std::uint32_t> statisticsProviders(StatisticsFormat format);
/// What a provider counts: 6 TCP, 17 UDP, of which QUIC is; 0 for others.
std::uint8_t protocolOfProvider(StatisticsFormat format, std::uint32_t provider);

/// Requests.
std::vector<std::uint8_t> encodeAddAllSources(StatisticsFormat format, std::uint32_t provider);
/// QuerySource or GetDescription. Into `into`, so that thousands cost no allocation.
void encodeSourceRequest(StatisticsFormat format, StatisticsType type, std::uint64_t context, std::uint64_t source,
    std::vector<std::uint8_t>& into);

/// Whose a source is.
struct SourceDescription {
    std::uint8_t protocol = 0; ///< 6 TCP, 17 UDP
    std::int32_t pid = -1;     ///< negative = not known
    std::uint16_t localPort = 0;
    bool operator==(const SourceDescription&) const = default;
};

/// What came through a source since it exists, in bytes of payload.
struct SourceCounts {
    std::uint64_t received = 0;
    std::uint64_t sent = 0;
    bool operator==(const SourceCounts&) const = default;
};

/// A message of the kernel.
struct StatisticsMessage {
    StatisticsType type = StatisticsType::Success;
    std::uint64_t source = 0;                     ///< 0 for types without one
    std::optional<SourceDescription> description; ///< of SourceDescription, when it is of a kind that is known
    SourceCounts counts;                          ///< of SourceCounts
};

/// Takes message after message off the bytes of one read.
class StatisticsMessages {
public:
    StatisticsMessages(StatisticsFormat format, std::span<const std::uint8_t> bytes) : format_(format), rest_(bytes) { }
    /// Absent at the end. Messages of other types have their type only; those that are too short for theirs are left out.
    std::optional<StatisticsMessage> next();

private:
    std::optional<StatisticsMessage> parse(std::span<const std::uint8_t> message) const;

    StatisticsFormat format_;
    std::span<const std::uint8_t> rest_;
};

} // namespace meridal
