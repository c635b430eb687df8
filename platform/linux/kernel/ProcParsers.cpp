// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/ProcParsers.h"

#include <algorithm>
#include <limits>

namespace meridal::proc {

namespace {

/// Reads numbers one after another. Once something was not a number, `failed()` stays true and all reads give 0.
class Numbers {
public:
    explicit Numbers(std::string_view text) : position_(text.data()), end_(text.data() + text.size()) { }

    std::uint64_t next()
    {
        skipBlanks();
        std::uint64_t value = 0;
        const char* begin = position_;
        for (; position_ != end_ && *position_ >= '0' && *position_ <= '9'; ++position_) {
            const auto digit = static_cast<std::uint64_t>(*position_ - '0');
            failed_ |= value > (std::numeric_limits<std::uint64_t>::max() - digit) / 10;
            value = value * 10 + digit;
        }
        failed_ |= position_ == begin;
        return failed_ ? 0 : value;
    }

    /// One of either sign; 0 when it is below.
    std::uint64_t nextAboveNothing()
    {
        skipBlanks();
        if (position_ == end_ || *position_ != '-') {
            return next();
        }
        skip(1);
        return 0;
    }

    /// One of either sign, within a few digits.
    std::int8_t nextSmall()
    {
        skipBlanks();
        const bool isNegative = position_ != end_ && *position_ == '-';
        if (isNegative) {
            ++position_;
        }
        const auto size = static_cast<std::int8_t>(std::min<std::uint64_t>(next(), 100));
        return isNegative ? static_cast<std::int8_t>(-size) : size;
    }

    /// Passes over numbers of either sign.
    void skip(int count)
    {
        for (; count > 0; --count) {
            skipBlanks();
            const char* begin = position_;
            while (position_ != end_ && *position_ != ' ' && *position_ != '\n') {
                ++position_;
            }
            failed_ |= position_ == begin;
        }
    }

    bool failed() const { return failed_; }
    bool atEnd() const { return position_ == end_; }

private:
    void skipBlanks()
    {
        while (position_ != end_ && (*position_ == ' ' || *position_ == '\t')) {
            ++position_;
        }
    }

    const char* position_;
    const char* end_;
    bool failed_ = false;
};

/// "Key:   123 kB" → 123, when the line has that key.
std::optional<std::uint64_t> numberOf(std::string_view line, std::string_view key)
{
    if (!line.starts_with(key)) {
        return std::nullopt;
    }
    Numbers numbers(line.substr(key.size()));
    const std::uint64_t value = numbers.next();
    return numbers.failed() ? std::nullopt : std::optional(value);
}

bool readKilobytes(std::string_view line, std::string_view key, std::uint64_t& bytes)
{
    const auto kilobytes = numberOf(line, key);
    if (!kilobytes || *kilobytes > std::numeric_limits<std::uint64_t>::max() / 1024) {
        return false;
    }
    bytes = *kilobytes * 1024;
    return true;
}

/// The second of the four ids in a line.
std::optional<std::uint32_t> effectiveOf(std::string_view line, std::string_view key)
{
    if (!line.starts_with(key)) {
        return std::nullopt;
    }
    Numbers ids(line.substr(key.size()));
    ids.next();
    const std::uint64_t id = ids.next();
    return ids.failed() || id > std::numeric_limits<std::uint32_t>::max()
        ? std::nullopt
        : std::optional(static_cast<std::uint32_t>(id));
}

} // namespace

std::optional<std::string_view> takeLine(std::string_view& text)
{
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end + 1);
    return line;
}

std::optional<Stat> parseStat(std::string_view text)
{
    // A name may hold ") R 1 2 3": only the last parenthesis ends it, for nothing but numbers follows.
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open || close + 3 > text.size()) {
        return std::nullopt;
    }
    Stat stat;
    stat.name = text.substr(open + 1, close - open - 1);
    stat.state = text[close + 2];
    Numbers fields(text.substr(close + 3));
    const std::uint64_t parent = fields.next(); // field 4
    fields.skip(4);
    stat.flags = fields.next(); // 9
    fields.skip(1);
    stat.hasWaited = fields.next() > 0; // for somebody who had page faults, as everybody has
    fields.skip(2);
    stat.userTicks = fields.next();                 // 14, as user
    stat.cpuTicks = stat.userTicks + fields.next(); // and for it in the kernel
    stat.childUserTicks = fields.nextAboveNothing();
    stat.childTicks = stat.childUserTicks + fields.nextAboveNothing();
    fields.skip(1);
    stat.nice = fields.nextSmall();              // 19
    const std::uint64_t threads = fields.next(); // 20
    fields.skip(1);
    stat.startTicks = fields.next();         // 22
    if (fields.failed() || fields.atEnd()) { // more fields follow in every kernel: at the end the number may be cut
        return std::nullopt;
    }
    if (parent > std::numeric_limits<std::int32_t>::max() || threads > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    stat.parentPid = static_cast<std::int32_t>(parent);
    stat.threads = static_cast<std::uint32_t>(threads);
    return stat;
}

bool hasEnded(const Stat& stat)
{
    return stat.state == 'X' || stat.state == 'x' || (stat.state == 'Z' && stat.threads <= 1);
}

bool isKernelThread(const Stat& stat)
{
    constexpr std::uint64_t flag = 0x200000; // PF_KTHREAD
    return (stat.flags & flag) != 0;
}

bool hasLostMainThread(const Stat& stat) { return stat.state == 'Z' && stat.threads > 1; }

std::int32_t threadGroupOf(std::string_view status)
{
    while (const auto line = takeLine(status)) {
        if (const auto group = numberOf(*line, "Tgid:")) {
            return *group <= std::numeric_limits<std::int32_t>::max() ? static_cast<std::int32_t>(*group) : 0;
        }
    }
    return 0;
}

std::string_view lastingName(std::string_view name, std::uint64_t flags)
{
    constexpr std::uint64_t workQueueWorker = 0x20;  // PF_WQ_WORKER
    constexpr std::uint64_t kernelThread = 0x200000; // PF_KTHREAD
    constexpr std::string_view worker = "kworker/";
    constexpr std::string_view rescuer = "kworker/R-"; // and the name of its queue
    const bool isWorker = (flags & workQueueWorker) != 0 && (flags & kernelThread) != 0;
    if (!isWorker || !name.starts_with(worker) || name.starts_with(rescuer)) {
        return name;
    }
    return name.substr(0, name.find_first_of("+-"));
}

std::optional<Status> parseStatus(std::string_view text)
{
    Status status;
    while (const auto line = takeLine(text)) {
        if (line->empty()) {
            continue;
        }
        switch (line->front()) {
        case 'V':
            if (!status.hasMemory) {
                status.hasMemory = readKilobytes(*line, "VmRSS:", status.residentBytes);
            }
            readKilobytes(*line, "VmSwap:", status.swapBytes);
            break;
        case 'R':
            if (!status.hasParts) {
                status.hasParts = readKilobytes(*line, "RssAnon:", status.anonymousBytes);
            }
            readKilobytes(*line, "RssShmem:", status.sharedMemoryBytes);
            break;
        case 'U':
            if (!status.user) {
                status.user = effectiveOf(*line, "Uid:");
            }
            break;
        case 'v':
            if (const auto switches = numberOf(*line, "voluntary_ctxt_switches:")) {
                status.voluntarySwitches = *switches;
                return status;
            }
            break;
        default:
            break;
        }
    }
    return std::nullopt;
}

std::optional<Io> parseIo(std::string_view text)
{
    Io io;
    bool hasRead = false;
    bool hasWritten = false;
    while (const auto line = takeLine(text)) {
        if (const auto read = numberOf(*line, "read_bytes:")) {
            io.readBytes = *read;
            hasRead = true;
        } else if (const auto written = numberOf(*line, "write_bytes:")) {
            io.writeBytes = *written;
            hasWritten = true;
        } else if (const auto cancelled = numberOf(*line, "cancelled_write_bytes:")) {
            io.cancelledWriteBytes = *cancelled; // the last of them
            return hasRead && hasWritten ? std::optional(io) : std::nullopt;
        }
    }
    return std::nullopt;
}

std::optional<Schedstat> parseSchedstat(std::string_view text)
{
    Numbers numbers(text);
    Schedstat schedstat;
    schedstat.runTime = numbers.next();
    schedstat.waitTime = numbers.next();
    schedstat.slices = numbers.next();
    if (numbers.failed() || numbers.atEnd()) { // without the line's end the last number may be cut
        return std::nullopt;
    }
    return schedstat;
}

bool isNamed(std::string_view path, std::string_view name, std::size_t nameLimit)
{
    const std::size_t slash = path.rfind('/');
    const std::string_view component = slash == std::string_view::npos ? path : path.substr(slash + 1);
    if (component.empty() || !component.starts_with(name)) {
        return false;
    }
    if (name.empty()) {
        return true;
    }
    if (name.size() < nameLimit) {
        return component.size() == name.size();
    }
    // Programs write titles over their arguments ("some-long-server: worker 3"): a blank where the part that we know
    // has none is such a title's.
    return component.find(' ') == std::string_view::npos || name.find(' ') != std::string_view::npos;
}

std::string_view parseCmdline(std::string_view text, std::string_view name, std::size_t nameLimit)
{
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\0'), text.size());
        const std::string_view argument = text.substr(0, end);
        if (isNamed(argument, name, nameLimit)) {
            return argument;
        }
        if (name.empty()) {
            return {};
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return {};
}

} // namespace meridal::proc
