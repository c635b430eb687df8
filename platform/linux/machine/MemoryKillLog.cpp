// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/MemoryKillLog.h"

#include "base/Text.h"
#include "platform/linux/kernel/RootFolder.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <unistd.h>
#include <utility>

namespace meridal {

namespace {

constexpr std::uint64_t userFacility = 8;   // a record's priority from here on: of programs, not of the kernel
constexpr std::size_t largestRecord = 8192; // of the kernel's interface
constexpr int mostRecords = 1 << 16;        // a read; the rest comes with the next

/// What lies between two texts; absent without either.
std::optional<std::string_view> between(std::string_view text, std::string_view before, std::string_view after)
{
    const std::size_t begin = text.find(before);
    if (begin == std::string_view::npos) {
        return std::nullopt;
    }
    text.remove_prefix(begin + before.size());
    const std::size_t end = text.rfind(after); // a name may hold anything
    return end == std::string_view::npos ? std::nullopt : std::optional(text.substr(0, end));
}

std::optional<std::uint64_t> numberAfter(std::string_view text, std::string_view before)
{
    const std::size_t at = text.rfind(before);
    return at == std::string_view::npos ? std::nullopt : leadingNumber(text.substr(at + before.size()));
}

template <typename Number>
std::optional<Number> narrowed(std::optional<std::uint64_t> number)
{
    return number && *number <= static_cast<std::uint64_t>(std::numeric_limits<Number>::max())
        ? std::optional(static_cast<Number>(*number))
        : std::nullopt;
}

/// What it held that nobody else does, and files and shared memory that it had mapped.
std::optional<std::uint64_t> memoryIn(std::string_view figures)
{
    std::optional<std::uint64_t> sum;
    for (const char* part : {"anon-rss:", "file-rss:", "shmem-rss:"}) {
        if (const auto kilobytes = numberAfter(figures, part)) {
            sum = sum.value_or(0) + *kilobytes * 1024;
        }
    }
    return sum;
}

} // namespace

std::optional<MemoryKill> MemoryKillRecords::take(std::string_view record)
{
    const std::size_t head = record.find(';');
    if (head == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view text = record.substr(head + 1, record.find('\n', head) - head - 1);
    const auto priority = leadingNumber(record);
    const std::size_t first = record.find(',');
    const std::size_t second = record.find(',', first + 1);
    if (!priority || *priority >= userFacility || second >= head) {
        return std::nullopt;
    }
    if (text.starts_with("oom-kill:")) {
        pid_ = narrowed<std::int32_t>(numberAfter(text, ",pid=")).value_or(0);
        const auto group = between(text, "task_memcg=", ",task=");
        cgroup_ = validUtf8(std::string(group.value_or("")));
        return std::nullopt;
    }
    constexpr std::string_view killed = "Killed process ";
    const std::size_t at = text.find(killed);
    const auto pid = at == std::string_view::npos
        ? std::nullopt
        : narrowed<std::int32_t>(leadingNumber(text.substr(at + killed.size())));
    const auto name = between(text.substr(std::min(at, text.size())), " (", ") total-vm:");
    if (!pid || !name || text.find("ut of memory") > at) {
        return std::nullopt;
    }
    const std::string_view figures = text.substr(text.rfind(") total-vm:"));
    MemoryKill kill{.number = leadingNumber(record.substr(first + 1)).value_or(0),
        .monotonicTime = static_cast<double>(leadingNumber(record.substr(second + 1)).value_or(0)) / 1e6,
        .pid = *pid,
        .name = validUtf8(std::string(*name)),
        .uid = narrowed<std::uint32_t>(numberAfter(figures, "UID:")),
        .bytes = memoryIn(figures)};
    if (pid_ == *pid && !cgroup_.empty()) {
        kill.cgroup = cgroup_;
    }
    return kill;
}

std::vector<MemoryKill> MemoryKillLog::read()
{
    std::vector<MemoryKill> kills;
    if (!log_) {
        log_ = Descriptor(::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    }
    std::array<char, largestRecord> buffer{};
    for (int count = 0; log_ && count < mostRecords; ++count) {
        const ssize_t got = ::read(log_.get(), buffer.data(), buffer.size());
        if (got < 0 && (errno == EPIPE || errno == EINTR)) {
            continue; // what was to come next has been overwritten meanwhile
        }
        if (got <= 0) {
            break;
        }
        if (auto kill = records_.take({buffer.data(), static_cast<std::size_t>(got)})) {
            kills.push_back(std::move(*kill));
        }
    }
    return kills;
}

} // namespace meridal
