// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/SMARTDevice.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace meridal {

// What the daemon and the program that asks disks (meridal-disks) say to each other: a message of fixed size each way over a
// SOCK_SEQPACKET socket, question and answer in turn. Neither believes the other: what is no message ends the conversation.

enum class DiskVerb : std::uint32_t {
    List = 1,  ///< which disks there are: the path of the one with this number, and how many there are. 0 looks anew
    PowerMode, ///< never wakes the disk
    Page,
    Identify, ///< ATA: IDENTIFY DEVICE; NVMe: the first 512 bytes of Identify Controller
};

enum class DiskPage : std::uint32_t {
    None,
    Data,       ///< SMART READ DATA
    Thresholds, ///< SMART READ THRESHOLDS
    Status,     ///< SMART RETURN STATUS: a verdict, no bytes
    Health,     ///< NVMe: log page 02h
};

enum class DiskVerdict : std::uint32_t { Unknown, Fine, Failing };

struct DiskRequest {
    DiskVerb verb = DiskVerb::List;
    std::uint32_t disk = 0; ///< its number in the answerer's own list
    DiskPage page = DiskPage::None;
    bool shortCommands = false; ///< it is known to understand those of 12 bytes only
};

struct DiskReply {
    std::int32_t error = 0;  ///< errno of opening or asking the disk; 0 = it has answered
    std::uint32_t count = 0; ///< list: of disks
    DiskPower power = DiskPower::Unknown;
    DiskVerdict verdict = DiskVerdict::Unknown;
    bool shortCommands = false; ///< as in the request, as it turned out
    std::optional<SMARTPage> page = {};
    std::string path = {}; ///< list: of the device folder below the root, as in DiskRecord
};

constexpr std::uint32_t mostDisks = 1024;
constexpr std::size_t diskRequestSize = 24;
constexpr std::size_t diskReplySize = 32 + sizeof(SMARTPage);
using DiskRequestBytes = std::array<std::uint8_t, diskRequestSize>;
using DiskReplyBytes = std::array<std::uint8_t, diskReplySize>;

DiskRequestBytes encode(const DiskRequest& request);
/// Absent for all but the bytes that encode() gives.
std::optional<DiskRequest> decodeDiskRequest(std::span<const std::uint8_t> bytes);

/// A path longer than a page is left out.
DiskReplyBytes encode(const DiskReply& reply, const DiskRequest& request);
/// Absent for what is no answer to this request.
std::optional<DiskReply> decodeDiskReply(std::span<const std::uint8_t> bytes, const DiskRequest& request);

} // namespace meridal
