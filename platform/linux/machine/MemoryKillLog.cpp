// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/MemoryKillLog.h"

#include "base/Text.h"
#include "platform/linux/kernel/ChildProgram.h"
#include "platform/linux/machine/JournalExport.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace meridal {

namespace {

constexpr std::uint64_t userFacility = 8;   // a record's priority from here on: of programs, not of the kernel
constexpr std::size_t largestRecord = 8192; // of the kernel's interface
constexpr int mostRecords = 1 << 16;        // a read; the rest comes with the next
constexpr double journalPatience = 60;      // s, on a disk that sleeps or is busy
constexpr const char* stampField = "_SOURCE_MONOTONIC_TIMESTAMP";

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

/// /dev/kmsg writes bytes that are not printable as "\\x0a", and the backslash, too.
std::string unescaped(std::string_view text)
{
    constexpr std::size_t length = 4;
    std::string whole;
    while (!text.empty()) {
        unsigned byte = 0;
        const bool isEscape = text.starts_with("\\x") && text.size() >= length
            && std::from_chars(text.data() + 2, text.data() + length, byte, 16).ptr == text.data() + length;
        whole += isEscape ? static_cast<char>(byte) : text.front();
        text.remove_prefix(isEscape ? length : 1);
    }
    return whole;
}

std::string fieldOf(const JournalExport::Entry& entry, const char* name)
{
    const auto field = entry.find(name);
    return field == entry.end() ? std::string() : field->second;
}

/// None where it may not be read. What systemd puts in its place to hide it opens to those who may override permissions, and
/// where it cannot make devices it is an empty file.
Descriptor openKernelLog(const RootFolder& root)
{
    Descriptor log(::open(root.path("dev/kmsg").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat status { };
    const bool isEmpty = log && ::fstat(log.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0;
    return isEmpty ? Descriptor() : std::move(log);
}

/// The folders in which journals of a machine lie, on the disk and until that is there.
constexpr std::array journalFolders{"var/log/journal", "run/log/journal"};

} // namespace

std::optional<MemoryKill> MemoryKillRecords::takeRecord(std::string_view record)
{
    const std::size_t head = record.find(';');
    const auto priority = leadingNumber(record);
    const std::size_t second = record.find(',', record.find(',') + 1);
    if (head == std::string_view::npos || !priority || *priority >= userFacility || second >= head) {
        return std::nullopt;
    }
    const std::string_view text = record.substr(head + 1, record.find('\n', head) - head - 1);
    return take(unescaped(text), leadingNumber(record.substr(second + 1)).value_or(0));
}

std::optional<MemoryKill> MemoryKillRecords::take(std::string_view text, std::uint64_t microseconds)
{
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
    number_ = std::max(microseconds, number_ + 1); // two may be of one moment
    MemoryKill kill{.number = number_,
        .monotonicTime = static_cast<double>(microseconds) / 1e6,
        .pid = *pid,
        .name = validUtf8(std::string(*name)),
        .uid = narrowed<std::uint32_t>(numberAfter(figures, "UID:")),
        .bytes = memoryIn(figures)};
    if (pid_ == *pid && !cgroup_.empty()) {
        kill.cgroup = cgroup_;
    }
    return kill;
}

MemoryKillLog::MemoryKillLog(Runtime& runtime, const std::filesystem::path& root) : runtime_(runtime), root_(root) { }

void MemoryKillLog::read(MachineCounters::Kills reply)
{
    if (!log_) {
        log_ = openKernelLog(root_);
    }
    if (log_) {
        reply(readKernel());
    } else if (isReading_ || ::access(root_.path(programFile).c_str(), X_OK) != 0) {
        reply({});
    } else {
        readJournal(std::move(reply));
    }
}

std::vector<MemoryKill> MemoryKillLog::readKernel()
{
    std::vector<MemoryKill> kills;
    std::array<char, largestRecord> buffer{};
    for (int count = 0; count < mostRecords; ++count) {
        const ssize_t got = ::read(log_.get(), buffer.data(), buffer.size());
        if (got < 0 && (errno == EPIPE || errno == EINTR)) {
            continue; // what was to come next has been overwritten meanwhile
        }
        if (got <= 0) {
            break;
        }
        if (auto kill = records_.takeRecord({buffer.data(), static_cast<std::size_t>(got)})) {
            kills.push_back(std::move(*kill));
        }
    }
    return kills;
}

/// What a question needs and brings. It goes from the main queue to the slow one and back.
struct MemoryKillLog::JournalRead {
    std::vector<std::string> words;
    MemoryKillRecords records;
    std::string cursor;
    std::vector<MemoryKill> kills;

    void run()
    {
        JournalExport entries([this](const JournalExport::Entry& entry) {
            cursor = fieldOf(entry, "__CURSOR");
            const auto stamp = leadingNumber(fieldOf(entry, stampField));
            if (auto kill = records.take(fieldOf(entry, "MESSAGE"), stamp.value_or(0))) {
                kills.push_back(std::move(*kill));
            }
        });
        // How it ends does not matter: what it has brought counts, and the next question goes on behind it.
        static_cast<void>(
            readProgram(words, journalPatience, [&](std::string_view bytes) { return entries.add(bytes); }));
    }
};

/// Not by libsystemd: that maps the files into its caller, whom the kernel ends (SIGBUS) for a page that the disk cannot give.
/// Facility 0 is the kernel's own, which it lets no program write as.
void MemoryKillLog::readJournal(MachineCounters::Kills reply)
{
    isReading_ = true;
    auto question = std::make_shared<JournalRead>();
    question->records = records_;
    question->cursor = cursor_;
    question->words = {root_.path(programFile).string(), "--dmesg", "--system", "--quiet", "--output=export",
        fmt::format("--output-fields=MESSAGE,{}", stampField),
        cursor_.empty() ? fmt::format("--lines={}", mostJournalRecords) : "--after-cursor=" + cursor_,
        "SYSLOG_FACILITY=0"};
    Task finished = lifetime_.guard([this, question, reply = std::move(reply)] {
        isReading_ = false;
        records_ = std::move(question->records);
        cursor_ = std::move(question->cursor);
        reply(std::move(question->kills));
    });
    if (!queue_) {
        queue_ = runtime_.makeSlowQueue("kernel's log");
    }
    queue_->post(
        [question = std::move(question), finished = std::move(finished), &main = runtime_.mainQueue()]() mutable {
            question->run();
            question.reset();
            main.post(std::move(finished));
        });
}

bool canReadKernelLog(const RootFolder& root)
{
    if (!root.exists("dev/kmsg") || openKernelLog(root)) {
        return true; // without it this is a container, which is not to know
    }
    bool isJournal = false;
    for (const char* folder : journalFolders) {
        std::error_code failure;
        for (std::filesystem::directory_iterator machine(root.path(folder), failure), end; !failure && machine != end;
             machine.increment(failure)) {
            isJournal = isJournal || ::access((machine->path() / "system.journal").c_str(), R_OK) == 0;
        }
    }
    return isJournal && ::access(root.path(MemoryKillLog::programFile).c_str(), X_OK) == 0;
}

} // namespace meridal
